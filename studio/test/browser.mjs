// The page in a browser, and dp4 beside it.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { pathToFileURL } from "node:url";
import { isDeepStrictEqual } from "node:util";
import { chromium } from "playwright-core";

const root = resolve(import.meta.dirname ?? new URL(".", import.meta.url).pathname, "../..");
export const studioFile = join(root, "build/studio/studio.html");
const url = pathToFileURL(studioFile).href;
const flags = [
  "--no-sandbox",
  "--disable-gpu",
  "--disable-background-networking",
  "--no-first-run",
  "--disable-sync",
  "--disable-component-update",
];

export const pathOf = (name) => join(root, name);
export const textOf = (name) => readFileSync(pathOf(name), "utf8");

// What dp4 prints; its exit code does not matter.
export function dp4(...args) {
  try {
    return execFileSync(resolve(process.env.DP4), args, {
      cwd: root,
      encoding: "utf8",
      maxBuffer: 1 << 28,
      stdio: ["ignore", "pipe", "ignore"],
    });
  } catch (error) {
    return error.stdout;
  }
}

// A file with this text, which is there as long as the tests run.
export function fileWith(name, text) {
  const path = join(mkdtempSync(join(tmpdir(), "studio-")), name);
  writeFileSync(path, text);
  return path;
}

let browser;
const contexts = [];

export async function openBrowser() {
  browser = await chromium.launch({ executablePath: "/usr/bin/chromium", args: flags });
}

export async function closeBrowser() {
  await browser.close();
}

// A new page without anything kept. `problems` collects what must not happen: errors, messages on the console, and
// requests of anything but the page itself.
export async function openPage({ hash = "", scheme = "light", width = 1440, height = 900, at = url } = {}) {
  const context = await browser.newContext({
    colorScheme: scheme,
    viewport: { width, height },
    acceptDownloads: true,
    timezoneId: "UTC",
  });
  contexts.push(context);
  const page = await context.newPage();
  page.problems = [];
  page.on("pageerror", (error) => page.problems.push(error.message));
  page.on("console", (message) => page.problems.push(message.text()));
  page.on("request", (request) => {
    const isOwn = request.isNavigationRequest() || /^(blob|data):/.test(request.url());
    if (!isOwn) page.problems.push(`request of ${request.url()}`);
  });
  await page.goto(at + hash);
  await page.getByTestId("finding").or(page.getByText("No findings")).first().waitFor();
  // The packet of the example that it begins with.
  if (hash === "") await becomes(() => page.getByTestId("write-packet").textContent(), "01 07 05 5a");
  return page;
}

export async function closePages() {
  for (const context of contexts.splice(0)) await context.close();
}

// Replaces the whole text of the editor, as pasting does.
export async function typeConfiguration(page, text) {
  const content = page.locator(".cm-content");
  await content.click();
  await page.keyboard.press("Control+a");
  if (text === "") await page.keyboard.press("Delete");
  else await page.keyboard.insertText(text);
}

export async function configurationOf(page) {
  const [download] = await Promise.all([
    page.waitForEvent("download"),
    page.getByText("Save", { exact: true }).press("Enter"),
  ]);
  return readFileSync(await download.path(), "utf8");
}

// The application's document of the packet; an empty one while there is none.
export const documentOf = async (page) => JSON.parse((await page.getByTestId("document").textContent()) || "{}");

// Opens a configuration and waits until its findings are there.
export async function openConfiguration(page, path) {
  await page.getByTestId("status").evaluate((status) => (status.textContent = ""));
  await page.getByTestId("open").setInputFiles(path);
  await page.waitForFunction(() => document.getElementById("status").textContent.includes("is open"));
}

// Waits until `read` gives what is expected, and returns the last value.
export async function eventually(read, isExpected, timeout = 30_000) {
  const end = Date.now() + timeout;
  for (;;) {
    const value = await read();
    if (isExpected(value) || Date.now() > end) return value;
    await new Promise((done) => setTimeout(done, 25));
  }
}

const fits = (value, expected) =>
  expected instanceof RegExp ? expected.test(value) : isDeepStrictEqual(value, expected);

export const textIn = async (locator) => (await locator.allInnerTexts()).join("\n").trim();

// The page answers when it can, so that what is expected of it is waited for: that `read` gives a value, or a text that
// matches; that the element shows it; that the control has it; that there are so many elements.
export async function becomes(read, expected, message) {
  const value = await eventually(read, (one) => fits(one, expected));
  if (expected instanceof RegExp) assert.match(value, expected, message);
  else assert.deepEqual(value, expected, message);
}

export const shows = (locator, expected, message) => becomes(() => textIn(locator), expected, message);
export const holds = (locator, expected, message) => becomes(() => locator.inputValue(), expected, message);
export const counts = (locator, expected, message) => becomes(() => locator.count(), expected, message);
