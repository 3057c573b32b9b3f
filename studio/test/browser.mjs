// The page in a browser, and dp4 beside it.

import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { pathToFileURL } from "node:url";
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
  const context = await browser.newContext({ colorScheme: scheme, viewport: { width, height }, acceptDownloads: true });
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
  await page.keyboard.insertText(text);
}

export async function configurationOf(page) {
  const [download] = await Promise.all([
    page.waitForEvent("download"),
    page.getByText("Save", { exact: true }).click(),
  ]);
  return readFileSync(await download.path(), "utf8");
}

// Opens a configuration and waits until its findings are there.
export async function openConfiguration(page, path) {
  await page.getByTestId("status").evaluate((status) => (status.textContent = ""));
  await page.getByTestId("open").setInputFiles(path);
  await page.waitForFunction(() => document.getElementById("status").textContent.includes("is open"));
}

// Waits until `read` gives what is expected, and returns the last value.
export async function eventually(read, isExpected, timeout = 5000) {
  const end = Date.now() + timeout;
  for (;;) {
    const value = await read();
    if (isExpected(value) || Date.now() > end) return value;
    await new Promise((done) => setTimeout(done, 25));
  }
}

export async function eventualText(locator, expected) {
  const isExpected = (text) => (expected instanceof RegExp ? expected.test(text) : text === expected);
  return eventually(async () => (await locator.allTextContents()).join("\n").trim(), isExpected);
}
