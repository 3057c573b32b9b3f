// What a user does with packets, captures, a next version, exports and links; by keyboard, and with hostile input.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { after, afterEach, before, describe, test } from "node:test";
import {
  becomes,
  closeBrowser,
  closePages,
  configurationOf,
  counts,
  documentOf,
  dp4,
  eventually,
  fileWith,
  holds,
  openBrowser,
  openConfiguration,
  openPage,
  pathOf,
  shows,
  studioFile,
  textIn,
  textOf,
  typeConfiguration,
} from "./browser.mjs";

const KETTLE = textOf("examples/kettle.json");
const EXAMPLES = ["air_conditioner", "gateway", "kettle", "power_meter"];
const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

before(openBrowser);
after(closeBrowser);
afterEach(closePages);

describe("a received packet", () => {
  test("gives values, alerts, faults and the application's document", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 01");
    await shows(page.getByTestId("decoded-temperature"), "92.4");
    await shows(page.getByTestId("decoded-program"), "keep_warm");
    await shows(page.getByTestId("received"), /Active: ?\s*Low water\s*Sensor broken/);
    const expected = { kettle: { power: true, program: "2", target: "85", temperature: "92.4" }, version: 4 };
    await becomes(() => documentOf(page), expected);
  });

  test("gives the document that dp4 gives", async () => {
    const page = await openPage();
    for (const name of EXAMPLES) {
      await openConfiguration(page, pathOf(`examples/${name}.json`));
      const { entities } = JSON.parse(textOf(`examples/${name}.json`));
      const packet = textOf(`examples/${name}.notify.hex`).trim();
      await page.getByTestId("packet").fill(packet);
      const { values } = JSON.parse(dp4("decode", `examples/${name}.json`, "--entity", entities[0].name, packet));
      await becomes(() => documentOf(page), values, name);
    }
  });

  test("has notes on what was passed over", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("04 05 ff 04 64 01 01 00 00");
    await shows(page.getByTestId("notes"), /surplus: 2 bytes/);
    await shows(page.getByTestId("notes"), /"target" out-of-range: raw 255, expected 0 to 120/);
    // Of a packet that ends early nothing is taken; what is missing was not left unset by anybody.
    await page.getByTestId("packet").fill("04 05 5a 04");
    await shows(page.getByTestId("notes"), /"sensor" short/);
    await shows(page.getByTestId("decoded-sensor"), "–");
    await page.getByTestId("packet").fill("01 01 01 00");
    await shows(page.getByTestId("decoded-target"), "not set");
    await page.getByTestId("packet").fill("04 0z");
    await shows(page.locator("#packet-problem"), /column 5: /);
    await page.getByTestId("packet").fill("63 00");
    await shows(page.locator("#packet-problem"), /command 63 is unknown/);
  });
});

describe("captures", () => {
  const LINES = [
    "2024-05-01 10:00:00.000 RX 04 00 00 04 64 00 00",
    "2024-05-01 10:00:01.000 TX 01 07 05 5a",
    "2024-05-01 10:00:02.000 RX 04 05 5a 04 64 01 00",
    "nothing of interest",
    "2024-05-01 10:00:03.000 RX 04 05 5a 04 64 00 01",
  ];

  test("are read by a ready-made pattern, with table, filter and timeline", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    await shows(page.getByTestId("capture-summary"), /log.txt: 4 packets, 1 line that the pattern does not match/);
    await holds(page.getByTestId("pattern"), "direction");
    await shows(page.getByTestId("pattern-preview"), /2024-05-01 10:00:00.000\s+RX\s+04 00 00 04 64 00 00/);
    await counts(page.getByTestId("capture-row"), 4);
    await page.getByTestId("timeline").locator("canvas").first().waitFor();
    const rowsOf = async (filter, expected) => {
      await page.getByTestId("capture-filter").fill(filter);
      await shows(page.getByTestId("filter-count"), expected, filter);
    };
    await rowsOf("program=keep", "3 rows");
    await rowsOf("target=85", "3 rows");
    await rowsOf("target=8", "0 rows"); // not a part of a number
    await rowsOf("power=true", "3 rows");
    await rowsOf("power=1 low_water=true", "1 row");
    await rowsOf("rx power=false", "1 row");
    await rowsOf("goal=8", "0 rows; there is no attribute goal");
    await rowsOf("goal=8 power=1 aim=2", "0 rows; there is no attribute goal; there is no attribute aim");
    await rowsOf("tx", "1 row");
    await page.getByTestId("capture-row").click();
    await shows(page.getByTestId("write-packet"), "01 07 05 5a");
  });

  test("are drawn over time, what changes first", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    const timeline = page.getByTestId("timeline");
    await timeline.locator(".u-over").waitFor();
    const chosen = timeline.locator("label").filter({ has: page.locator("input:checked") });
    await shows(chosen, "Power\nProgram\nTarget temperature\nLow water\nSensor broken");
    // The bands lie below the chart: the power's, which is on at the end, ends with it.
    await becomes(
      () =>
        timeline.evaluate((container) => {
          const canvas = container.querySelector(".bands");
          const over = container.querySelector(".u-over").getBoundingClientRect();
          const end = over.right - canvas.getBoundingClientRect().left;
          const alpha = (x) => canvas.getContext("2d").getImageData(x * devicePixelRatio, 11, 1, 1).data[3];
          return [alpha(end - 2), alpha(end + 3)];
        }),
      [255, 0],
    );
  });

  test("follow the configuration", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    const values = page.getByTestId("capture-row").first().locator(".says");
    await shows(values, /target=40 temperature=92.4/);
    await typeConfiguration(page, KETTLE.replace('"addition": -20', '"addition": 0'));
    await shows(values, /target=40 temperature=112.4/);
    const titles = page.getByTestId("capture-rows").getByRole("columnheader");
    await shows(titles, "Line\nTime\nCommand\nPacket\nValues\nNotes");
  });

  test("wait for a configuration that can be read", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    await page.getByTestId("capture-row").first().waitFor();
    await page.getByTestId("open").setInputFiles(fileWith("broken.json", '{"entities": ['));
    const summary = page.getByTestId("capture-summary");
    await shows(summary, /log.txt is read as soon as/);
    await page.getByTestId("capture-row").first().waitFor({ state: "hidden" });
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await shows(summary, /log.txt: 4 packets/);
    await page.getByTestId("capture-row").first().waitFor();
    // A text that is broken while somebody types is told as such.
    await typeConfiguration(page, KETTLE.slice(0, -3));
    await page.getByText("Not up to date").waitFor();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    await shows(summary, /log.txt: 0 packets; configuration:\d+:\d+: not JSON/);
  });

  test("are read by a pattern of one's own, and bad ones are told", async () => {
    const page = await openPage();
    await page
      .getByTestId("capture")
      .setInputFiles(fileWith("own.log", "t=1.5 data=04000004640000;\nt=2.5 data=04010004640000;\n"));
    await shows(page.getByTestId("capture-summary"), /without/);
    await shows(page.getByTestId("pattern-preview"), /None of these lines is read as a packet/);
    await page.getByTestId("pattern").fill("t=(?P<time>\\S+) data=(?P<packet>[0-9a-f]+)");
    // The preview follows as somebody types.
    const taken = /^1\.5\s+04 00 00 04 64 00 00/;
    await shows(page.getByTestId("pattern-preview"), taken);
    await page.getByTestId("pattern").press("Enter");
    await shows(page.getByTestId("capture-summary"), /2 packets$/);
    await page.getByTestId("pattern").fill("(unclosed");
    await page.getByTestId("pattern").press("Enter");
    await shows(page.getByTestId("pattern-preview"), /missing|unclosed/);
  });

  test("have times in seconds, or in thousandths, millionths or billionths of them", async () => {
    const page = await openPage();
    for (const zeros of ["", "000", "000000", "000000000"]) {
      const times = [0, 1, 2].map((i) => `${1700000000 + i}${zeros} 04055a04640${i % 2}00`);
      await page.getByTestId("capture").setInputFiles(fileWith(`time${zeros.length}.txt`, times.join("\n")));
      await counts(page.getByTestId("capture-row"), 3);
      await page.getByTestId("pattern").fill("(?P<time>\\d+) (?P<packet>[0-9a-f]+)");
      await page.getByTestId("pattern").blur();
      await shows(page.getByTestId("capture-row").first(), new RegExp(`1700000000${zeros}\\s`));
      const timeline = page.getByTestId("timeline");
      let x = 1;
      const hovered = async () => {
        x = 3 - x; // it is drawn anew now and then, and looks at the mouse when that moves
        await timeline.locator(".u-over").hover({ position: { x, y: 5 } });
        return textIn(timeline.locator(".u-series .u-value").first());
      };
      await becomes(hovered, "2023-11-14 22:13:20");
    }
    assert.deepEqual(page.problems, []);
  });

  test("have one mark for an alert that lasts, although writes between say nothing of it", async () => {
    const page = await openPage();
    const lines = Array.from({ length: 6 }, (_, i) => (i % 2 === 0 ? "04 05 5a 04 64 01 00" : "01 07 05 5a"));
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", lines.join("\n")));
    await counts(page.getByTestId("capture-row"), 6);
    await becomes(
      () =>
        page.getByTestId("timeline").evaluate((container) => {
          const canvas = container.querySelector(".bands");
          const over = container.querySelector(".u-over").getBoundingClientRect();
          const middle = (over.left + over.right) / 2 - canvas.getBoundingClientRect().left;
          return canvas.getContext("2d").getImageData(middle * devicePixelRatio, 14, 1, 1).data[3];
        }),
      255,
    );
  });

  test("show the packet of a moment that is clicked in the timeline", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    const over = page.getByTestId("timeline").locator(".u-over");
    await over.waitFor();
    await over.scrollIntoViewIfNeeded();
    const { width, height } = await over.boundingBox();
    await over.click({ position: { x: width - 2, y: height / 2 } });
    await holds(page.getByTestId("packet"), "04 05 5a 04 64 00 01");
    await shows(page.getByTestId("decoded-low_water"), "false");
    // Also one that the filter leaves out.
    await page.getByTestId("capture-filter").fill("tx");
    await shows(page.getByTestId("filter-count"), "1 row");
    await over.click({ position: { x: 2, y: height / 2 } });
    await holds(page.getByTestId("packet"), "04 00 00 04 64 00 00");
    await counts(page.locator(".capture-row.chosen"), 0);
  });

  test("of 200,000 packets stay smooth and can be cancelled", async () => {
    const page = await openPage();
    const lines = [];
    for (let i = 0; i < 200_000; ++i) {
      const target = (i % 121).toString(16).padStart(2, "0");
      const temperature = (i % 100).toString(16).padStart(2, "0");
      const alerts = i % 1000 < 10 ? "01" : "00";
      lines.push(`${1_700_000_000 + i} 04 0${i % 6} ${target} 04 ${temperature} ${alerts} 00`);
    }
    const file = fileWith("large.log", lines.join("\n"));
    await page.evaluate(() => {
      window.longest = 0;
      let last = performance.now();
      const tick = () => {
        const now = performance.now();
        window.longest = Math.max(window.longest, now - last);
        last = now;
        requestAnimationFrame(tick);
      };
      tick();
    });
    await page.getByTestId("capture").setInputFiles(file);
    await page.getByTestId("progress").waitFor();
    await page.getByTestId("cancel").waitFor();
    await page.getByTestId("cancel").waitFor({ state: "hidden", timeout: 60_000 });
    await shows(page.getByTestId("capture-summary"), /large.log: 200,000 packets/);
    const longest = await page.evaluate(() => window.longest);
    // Without a worker it is many seconds; other programs on the machine add to this.
    assert.ok(longest < 2000, `the page stood still for ${longest} ms`);
    // The table holds only what is visible.
    assert.ok((await page.getByTestId("capture-row").count()) < 60);
    await page.getByTestId("capture-rows").evaluate((rows) => (rows.scrollTop = rows.scrollHeight));
    await shows(page.getByTestId("capture-row").last(), /^200000/);
    await page.getByTestId("capture-row").last().click();
    await shows(page.getByTestId("decoded-power"), "true");
    // Again, and cancelled.
    await page.getByTestId("capture").setInputFiles(file);
    await page.getByTestId("cancel").click();
    await shows(page.getByTestId("capture-summary"), /^((?!200,000).)*cancelled$/);
  });
});

test("comparing tells what dp4 compare tells, with both pictures", async () => {
  const next = fileWith(
    "next.json",
    KETTLE.replace(
      '"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1',
      '"byte_offset": 6, "bit_offset": 0, "unit": "byte", "len": 1',
    ),
  );
  const page = await openPage();
  await page.getByTestId("compare").setInputFiles(next);
  const { findings } = JSON.parse(dp4("compare", "--format", "json", "examples/kettle.json", next));
  assert.ok(findings.length > 0);
  await becomes(
    () =>
      page
        .getByTestId("change")
        .evaluateAll((items) => items.map((item) => [item.dataset.rule, item.querySelector("strong").textContent])),
    findings.map(({ rule, message }) => [rule, message]),
  );
  await counts(page.locator("#picture-after .row"), 8);
  await counts(page.locator("#picture-before .row"), 7);
  await shows(
    page.locator(".summary"),
    /^kettle.json → next.json: 2 changes break devices in the field, 0 break applications, 1 breaks nobody$/,
  );
  // Each change leads to its place.
  const moved = page.getByTestId("change").filter({ hasText: "'target'" }).first();
  const line = KETTLE.split("\n").findIndex((text) => text.includes('"byte_offset": 1, "bit_offset": 0')) + 1;
  await shows(moved, new RegExp(`line ${line} → ${line} · place-changed`));
  await moved.locator("button").click();
  await shows(page.locator(".cm-activeLine"), /"position": \{"byte_offset": 1,/);
  await page.locator('[data-testid="field-target"].chosen').waitFor();
  // What was compared with stays until it is the same.
  await typeConfiguration(page, readFileSync(next, "utf8"));
  await shows(page.locator(".summary"), /next.json: no changes$/);
});

test("comparing matches entities by their names, and tells which configuration is broken", async () => {
  const page = await openPage();
  await openConfiguration(page, pathOf("examples/gateway.json"));
  const gateway = JSON.parse(textOf("examples/gateway.json"));
  const [first, second] = gateway.entities;
  const opened = async (entities) =>
    page.getByTestId("compare").setInputFiles(fileWith("next.json", JSON.stringify({ ...gateway, entities })));
  await opened([second, first]);
  const names = page.locator("#picture-before .name");
  await shows(names, new RegExp(first.attrs[0].name));
  await shows(page.locator("#picture-after .name"), await textIn(names));
  await page.getByTestId("entity").selectOption("1");
  await shows(page.locator("#picture-before"), new RegExp(second.attrs[0].name));
  await opened([first]); // the second is gone
  await shows(page.locator("#no-picture-after:visible"), "It has no such entity.");
  await page.getByTestId("entity").selectOption("0");
  await page.locator("#picture-after").waitFor();
  await opened([second]); // now the first is; the second is not compared with it
  await shows(page.locator("#no-picture-after:visible"), "It has no such entity.");
  await page.getByTestId("compare").setInputFiles(fileWith("broken.json", "{\n  1"));
  await shows(page.getByTestId("compare-result"), /^next version:2:3: not JSON/);
  await page.locator("#pictures").waitFor({ state: "hidden" });
});

describe("exports", () => {
  test("are what the command line beside them writes", async () => {
    const page = await openPage();
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await page.getByTestId("export").click();
    const shown = async (form, name) => {
      await page.getByTestId(`export-${form}`).check();
      const [download] = await Promise.all([
        page.waitForEvent("download"),
        page.getByTestId(`download-${name}`).click(),
      ]);
      return readFileSync(await download.path(), "utf8");
    };
    assert.equal(await shown("svg", "kettle.svg"), dp4("layout", "examples/kettle.json", "--svg", "-"));
    await shows(page.getByTestId("export-command"), "dp4 layout kettle.json --svg kettle.svg");
    assert.equal(await shown("vectors", "kettle.vectors.json"), dp4("vectors", "examples/kettle.json"));
    const folder = fileWith("x", "").replace(/\/x$/, "");
    dp4("generate", "c", "examples/kettle.json", "--output", folder);
    for (const name of ["kettle.h", "kettle.c", "kettle_test.c"]) {
      assert.equal(await shown("c", name), readFileSync(`${folder}/${name}`, "utf8"));
    }
    await shows(page.getByTestId("export-command"), "dp4 generate c kettle.json");
    dp4("generate", "wireshark", "examples/kettle.json", "--udp", "12416", "--output", folder);
    assert.equal(await shown("wireshark", "kettle.lua"), readFileSync(`${folder}/kettle.lua`, "utf8"));
  });

  test("of the packet follow the values", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("01 07 05 5a");
    await shows(page.getByTestId("write-packet"), "01 07 05 5a");
    await page.getByTestId("export").click();
    await page.getByTestId("export-c-array").check();
    const command = "dp4 encode kettle.json --set power=true --set program=2 --set target=85 --output c-array";
    await shows(page.getByTestId("export-command"), command);
    const text = dp4(
      "encode",
      "examples/kettle.json",
      "--set",
      "power=true",
      "--set",
      "program=2",
      "--set",
      "target=85",
      "--output",
      "c-array",
    );
    await becomes(() => page.locator(".export-file pre").textContent(), text);
  });
});

test("copying tells whether it was done", async () => {
  const page = await openPage();
  await page.getByTestId("packet").fill("01 07 05 5a");
  await shows(page.getByTestId("write-packet"), "01 07 05 5a");
  const copy = page.locator("#copy-write");
  await page.evaluate(() => {
    window.copied = [];
    Object.defineProperty(navigator, "clipboard", { value: undefined, configurable: true }); // as on plain HTTP
    document.addEventListener("copy", () => window.copied.push(String(document.activeElement.value)));
  });
  await copy.click();
  await shows(copy, "Copied");
  await page.getByTestId("share").click();
  await page.locator("#copy-link").click();
  await shows(page.locator("#copy-link"), "Copied");
  assert.deepEqual(await page.evaluate(() => window.copied), [
    "01 07 05 5a",
    await page.getByTestId("share-link").inputValue(),
  ]);
  await page.evaluate(() => (document.execCommand = () => false));
  await page.locator("#copy-link").click();
  await shows(page.locator("#copy-link"), /did not copy/);
  assert.deepEqual(page.problems, []);
});

test("a link carries configuration and packet", async () => {
  const page = await openPage();
  const text = KETTLE.replace("Kettle K1", "Wasserkocher ☕");
  await typeConfiguration(page, text);
  await page.getByTestId("packet").fill("04 01 00 00 00 00 00");
  await shows(page.getByTestId("decoded-program"), "boil");
  await page.getByTestId("share").click();
  const link = await eventually(
    () => page.getByTestId("share-link").inputValue(),
    (value) => value !== "",
  );
  assert.ok(link.length < 1500, `${link.length} characters`);
  const other = await openPage({ hash: link.slice(link.indexOf("#")) });
  await holds(other.getByTestId("packet"), "04 01 00 00 00 00 00");
  await becomes(() => configurationOf(other), text);
  // It carries what is to be written as well.
  await page.keyboard.press("Escape");
  await page.getByTestId("value-target").fill("60");
  await page.getByTestId("sub-device").fill("7");
  await shows(page.getByTestId("write-packet"), "01 07 00 00 00 07 01 28");
  await page.getByTestId("share").click();
  const next = await eventually(
    () => page.getByTestId("share-link").inputValue(),
    (value) => value !== link,
  );
  const third = await openPage({ hash: next.slice(next.indexOf("#")) });
  await shows(third.getByTestId("write-packet"), "01 07 00 00 00 07 01 28");
  await holds(third.getByTestId("packet"), "04 01 00 00 00 00 00");
  await shows(third.locator("#layout-packet"), /write packet/);
  // What was kept before is one undo away.
  const address = other.url();
  const unsaved = text.replace("Wasserkocher", "Bollitore");
  await typeConfiguration(other, unsaved);
  await other.goto("about:blank");
  await other.goto(address + next.slice(next.indexOf("#")));
  await shows(other.getByTestId("status"), /^The link is open; undo/);
  await becomes(() => configurationOf(other), text);
  await other.locator(".cm-content").focus();
  await other.keyboard.press("Control+z");
  await becomes(() => configurationOf(other), unsaved);
  const broken = await openPage({ hash: "#s=AAAA" });
  await shows(broken.getByTestId("status"), /link could not be read/);
});

describe("accessibility", () => {
  for (const [scheme, width] of [
    ["light", 1440],
    ["dark", 1440],
    ["light", 1024],
    ["dark", 390],
  ]) {
    test(`has no violations: ${scheme}, ${width} pixels`, async () => {
      const page = await openPage({ scheme, width });
      await openConfiguration(page, pathOf("tests/lint/fields-overlap.json"));
      await openConfiguration(page, pathOf("examples/air_conditioner.json"));
      await page.getByTestId("packet").fill(textOf("examples/air_conditioner.notify.hex").trim());
      await page
        .getByTestId("capture")
        .setInputFiles(fileWith("log.txt", `1 ${textOf("examples/air_conditioner.notify.hex")}`));
      await page.getByTestId("compare").setInputFiles(pathOf("examples/kettle.json"));
      await page.getByTestId("change").first().waitFor();
      await page.getByTestId("capture-row").first().waitFor();
      await page.locator(".piece.writable .name").first().click();
      const violations = await violationsOf(page);
      await page.getByTestId("export").click();
      await page.getByTestId("export-command").waitFor();
      assert.deepEqual([...violations, ...(await violationsOf(page))], []);
      const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
      assert.ok(overflow <= 0, `the page is ${overflow} pixels too wide`);
    });
  }

  // The policy of the page keeps scripts out, so that axe comes in through the debugger.
  async function violationsOf(page) {
    const session = await page.context().newCDPSession(page);
    await session.send("Runtime.evaluate", { expression: axe });
    const found = await page.evaluate(async () => {
      const { violations } = await window.axe.run(document, { resultTypes: ["violations"] });
      return violations.map(
        ({ id, nodes }) =>
          `${id}: ${nodes
            .map((node) => node.html.slice(0, 160))
            .slice(0, 3)
            .join(" | ")}`,
      );
    });
    await session.detach();
    return found;
  }

  test("works by keyboard alone", async () => {
    const page = await openPage();
    // The link over the editor leads to the picture and leaves everything as it is.
    const text = KETTLE.replace("Kettle K1", "Kettle K2");
    await typeConfiguration(page, text);
    await page.evaluate(() => (Storage.prototype.setItem = () => {})); // a browser that keeps nothing
    await page.evaluate(() => localStorage.clear());
    await page.locator(".skip").focus();
    await page.keyboard.press("Enter");
    await page.waitForFunction(() => location.hash === "#layout-section");
    await becomes(() => page.evaluate(() => document.activeElement.id), "layout-section");
    await page.waitForTimeout(300); // for what must not happen
    await becomes(() => configurationOf(page), text);
    await page.getByTestId("packet").fill("04 00 00 00 00 00 00");
    await shows(page.getByTestId("decoded-target"), "40");
    await page.locator('[data-bit="0"]').focus();
    await page.keyboard.press("ArrowRight");
    await page.keyboard.press("ArrowDown");
    await becomes(() => page.evaluate(() => document.activeElement.dataset.bit), "9");
    await page.keyboard.press("Enter");
    await shows(page.getByTestId("decoded-target"), "72");
    await becomes(() => page.evaluate(() => document.activeElement.dataset.bit), "9");
    // Choosing does not lose the focus.
    for (const list of ["#write-explanation", "#received"]) {
      const button = page.locator(`${list} .part button`).first();
      await button.focus();
      for (const name of ["power", "program"]) {
        await page.keyboard.press("Enter");
        await shows(page.getByTestId("chosen"), new RegExp(`\\(${name}\\)`));
      }
      assert.ok(await button.evaluate((one) => one === document.activeElement));
    }
    // The rows of a capture.
    const lines = ["04 00 00 00 00 00 00", "04 01 00 00 00 00 00", "04 02 00 00 00 00 00"];
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", lines.join("\n")));
    await page.getByTestId("capture-row").nth(2).waitFor();
    await page.getByTestId("capture-rows").focus();
    for (const [key, line] of [
      ["ArrowDown", 0],
      ["ArrowDown", 1],
      ["End", 2],
      ["Home", 0],
    ]) {
      await page.keyboard.press(key);
      await holds(page.getByTestId("packet"), lines[line], key);
    }
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Escape");
    await page.keyboard.press("Tab");
    await becomes(() => page.evaluate(() => document.activeElement.closest(".cm-editor")), null);
  });

  test("loads nothing and has a policy that says so", async () => {
    const page = await openPage();
    const policy = await page.locator('meta[http-equiv="Content-Security-Policy"]').getAttribute("content");
    assert.match(policy, /default-src 'none'; script-src 'sha256-[^']+' 'wasm-unsafe-eval';/);
    assert.deepEqual(page.problems, []);
    // Not even when something asks for it.
    const isRefused = await page.evaluate(() =>
      fetch("http://127.0.0.1:9/").then(
        () => false,
        () => true,
      ),
    );
    assert.ok(isRefused);
    assert.match(page.problems.join("\n"), /Content Security Policy/);
  });

  test("is one file of at most 2.5 MB, which any server can serve", async () => {
    const text = readFileSync(studioFile);
    assert.ok(text.length <= 2_500_000, `${text.length} bytes`);
    const requests = [];
    const server = createServer((request, response) => {
      requests.push(request.url);
      response.setHeader("Content-Type", "text/html").end(text);
    });
    await new Promise((listening) => server.listen(0, "127.0.0.1", listening));
    const page = await openPage({ at: `http://127.0.0.1:${server.address().port}/any/studio.html` });
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", "04 05 5a 04 64 01 01"));
    await page.getByTestId("capture-row").waitFor();
    await page.getByTestId("share").click();
    await page.getByTestId("share-link").waitFor();
    assert.equal(await page.getByTestId("share-note").isVisible(), false); // the link is good everywhere
    assert.deepEqual(page.problems, []);
    assert.deepEqual(requests, ["/any/studio.html"]);
    server.close();
    server.closeAllConnections();
  });
});

describe("hostile input", () => {
  async function livesOn(page) {
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 01");
    await shows(page.getByTestId("decoded-target"), "85");
  }

  test("of 50 MB is told, and the text is kept", async () => {
    const page = await openPage();
    await page.getByTestId("open").setInputFiles(fileWith("huge.json", " ".repeat(50 << 20)));
    await shows(page.getByTestId("status"), /huge.json has 50.0 MB; the studio opens configurations up to 8 MB/);
    await becomes(() => configurationOf(page), KETTLE);
    await livesOn(page);
    // Pasted, it is in the editor.
    await page.locator(".cm-content").click();
    await page.evaluate(() => {
      const clipboardData = new DataTransfer();
      clipboardData.setData("text/plain", '{"a": "0123456789"},\n'.repeat(2_500_000));
      document
        .querySelector(".cm-content")
        .dispatchEvent(new ClipboardEvent("paste", { clipboardData, bubbles: true, cancelable: true }));
    });
    await shows(page.getByTestId("findings"), /the configuration has \d+ bytes; expected at most 8388608/);
    await livesOn(page);
  });

  test("with NULs, deep nesting, and what makes the module throw is told", async () => {
    const page = await openPage();
    const texts = [
      KETTLE.replace('"power"', '"po\0wer"'),
      `{"entities": ${"[".repeat(100_000)}`,
      KETTLE.replace('"max": 120', '"max": {"a": 1}'),
      '{"entities": [1, null, "x"]}',
      "\0\0\0",
      KETTLE.replace('"target"', '"</script><img src=x onerror=alert(1)>"'),
    ];
    for (const text of texts) {
      await openConfiguration(page, fileWith("hostile.json", text));
      assert.ok((await page.getByTestId("finding").count()) > 0, text.slice(0, 200));
    }
    // Half a surrogate pair is no text.
    await page.getByTestId("packet").evaluate((packet) => {
      packet.value = "04 \ud83d";
      packet.dispatchEvent(new Event("input"));
    });
    await shows(page.locator("#packet-problem"), /column 4: /);
    await page.getByTestId("packet").fill("04".repeat(40_000));
    await shows(page.locator("#packet-problem"), /too long/);
    await livesOn(page);
    assert.deepEqual(page.problems, []);
  });

  test("in a capture, such as a line of 40 MB, is passed over", async () => {
    const page = await openPage();
    const text = ["04 00 00 04 64 00 00", "x".repeat(40 << 20), "\0\0", "04 01 00 04 64 00 00"].join("\n");
    await page.getByTestId("capture").setInputFiles(fileWith("long.log", text));
    const told = "long.log: 2 packets, 1 line without a valid packet, 1 line that the pattern does not match";
    await shows(page.getByTestId("capture-summary"), told);
    await shows(page.getByTestId("capture-row").locator(".line"), "1\n3\n4");
    await livesOn(page);
  });

  test("that crashes or blocks the WebAssembly restarts it, with the text kept", async () => {
    const page = await openPage();
    const text = KETTLE.replace("Kettle K1", "Kettle K3");
    await typeConfiguration(page, text);
    await becomes(() => page.workers().length > 0, true);
    // No known input makes it trap, so the worker gets something that does what a trap does.
    await page.workers()[0].evaluate(() => {
      JSON.stringify = () => {
        throw new WebAssembly.RuntimeError("unreachable");
      };
    });
    await page.getByTestId("packet").fill("04 00 00 00 00 00 00");
    await shows(page.getByTestId("status"), /The analysis was restarted: RuntimeError: unreachable. Your text is kept/);
    await becomes(() => configurationOf(page), text);
    await livesOn(page);
    // And one that never answers.
    await page
      .workers()
      .at(-1)
      .evaluate(() => {
        setTimeout(() => {
          for (;;);
        });
      });
    await page.getByTestId("packet").fill("04 00 00 00 00 00 01");
    await shows(page.getByTestId("status"), /restarted: it took too long. Your text is kept/);
    await becomes(() => configurationOf(page), KETTLE);
    await livesOn(page);
  });
});
