// What a user does with a configuration: its text and findings, its picture, and the values of a write.

import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { after, afterEach, before, describe, test } from "node:test";
import {
  becomes,
  closeBrowser,
  closePages,
  configurationOf,
  counts,
  documentOf,
  dp4,
  fileWith,
  holds,
  openBrowser,
  openConfiguration,
  openPage,
  pathOf,
  shows,
  textIn,
  textOf,
  typeConfiguration,
} from "./browser.mjs";

const KETTLE = textOf("examples/kettle.json");
const EXAMPLES = ["air_conditioner", "gateway", "kettle", "power_meter"];

before(openBrowser);
after(closeBrowser);
afterEach(closePages);

// Line and rule of each finding.
async function shownFindings(page) {
  return page
    .getByTestId("finding")
    .evaluateAll((items) =>
      items.map((item) => `${/line (\d+)/.exec(item.querySelector(".where").textContent)[1]} ${item.dataset.rule}`),
    );
}

function findingsOfDp4(path) {
  return JSON.parse(dp4("lint", "--severity", "info", "--format", "json", path)).findings;
}

describe("editor", () => {
  test("tells findings at their place while somebody types, with effect and fix", async () => {
    const page = await openPage();
    await typeConfiguration(
      page,
      KETTLE.replace(
        '"len": 2}\n        },\n        {\n          "id": 2',
        '"len": 2}\n        },\n        {\n          "id": 2',
      ).replace('"ratio": 0.5', '"ratio": 0'),
    );
    const finding = page.locator('[data-rule="zero-ratio"]').first();
    await finding.waitFor();
    const line = KETTLE.split("\n").findIndex((text) => text.includes('"ratio": 0.5')) + 1;
    for (const part of [new RegExp(`line ${line}`), /Effect .+/, /Fix .+/]) await shows(finding, part);
    await page.locator(".cm-lintRange").first().waitFor();
    await finding.click();
    await shows(page.locator(".cm-activeLine"), /"ratio": 0/);
    await page.locator('[data-testid="field-target"].chosen').waitFor();
    assert.deepEqual(page.problems, []);
  });

  test("completes members and keywords from the schema, and explains them on hover", async () => {
    const page = await openPage();
    await typeConfiguration(page, '{"entities": [{"attrs": [{"data_type": ""');
    await page.keyboard.press("ArrowLeft");
    await page.keyboard.press("Control+Space");
    await shows(page.locator(".cm-tooltip-autocomplete"), /bool[^]*enum[^]*binary[^]*uint16/);
    await page.keyboard.type("bi");
    await shows(page.locator(".cm-tooltip-autocomplete"), "binary");
    await page.waitForTimeout(500); // the editor takes no completion right after it came up
    await page.keyboard.press("Enter");
    await becomes(() => configurationOf(page), '{"entities": [{"attrs": [{"data_type": "binary"');
    // By the mouse, which need not wait.
    const chosen = async (typed, option) => {
      await page.locator(".cm-content").focus();
      await page.keyboard.type(typed);
      const first = page.locator(".cm-tooltip-autocomplete [aria-selected]");
      await becomes(async () => {
        if ((await first.count()) === 0) await page.keyboard.press("Control+Space");
        await page.waitForTimeout(100);
        return textIn(first);
      }, option);
      await first.click();
    };
    await typeConfiguration(page, '{"entities": [{"attrs": [{"posi": 1}]}]}');
    for (let i = 0; i < 10; ++i) await page.keyboard.press("ArrowLeft");
    await chosen("", /^position/);
    await becomes(() => configurationOf(page), /\{"position": 1\}/);
    // Without quotation marks, and from an empty text.
    await typeConfiguration(page, "{}");
    await page.keyboard.press("ArrowLeft");
    await chosen("entit", /^entities/);
    await becomes(() => configurationOf(page), '{"entities": []}');
    await chosen("", /^Lamp/i);
    const { entities } = JSON.parse(await configurationOf(page));
    assert.deepEqual(entities, [{ id: 0, name: "lamp", display_name: "Lamp", attrs: [] }]);
    await typeConfiguration(page, '{"entities": [{"attrs": [{"data_type": }]}]}');
    for (let i = 0; i < 5; ++i) await page.keyboard.press("ArrowLeft");
    await chosen("uint6", "uint64");
    await becomes(() => configurationOf(page), /\{"data_type": "uint64"\}/);
    await typeConfiguration(page, "");
    await chosen("", /^product/);
    await page.getByTestId("field-power").waitFor();
    await counts(page.getByTestId("finding"), 0);
    await typeConfiguration(page, '{"entities": []}');
    await page.locator(".cm-line").getByText('"entities"').hover();
    await shows(page.locator(".cm-tooltip-hover"), /The models that the product consists of/);
  });

  test("starts from an example and inserts attributes", async () => {
    const page = await openPage();
    await page.getByTestId("examples").selectOption({ label: "New, with one attribute" });
    await page.getByTestId("field-power").waitFor();
    await page.getByTestId("insert").selectOption({ label: "Temperature, status_readonly, uint16" });
    await page.getByTestId("field-temperature").first().waitFor();
    const { attrs } = JSON.parse(await configurationOf(page)).entities[0];
    assert.deepEqual(
      attrs.map(({ id, name }) => [id, name]),
      [
        [0, "power"],
        [1, "temperature"],
      ],
    );
    await typeConfiguration(page, '{"entities": [{"id": 0, "name": "a", "display_name": "A", "attrs": []}]}');
    await page.getByTestId("insert").selectOption({ index: 1 });
    await page.getByTestId("field-power").waitFor();
  });

  test("opens files by button and by drop", async () => {
    const page = await openPage();
    await openConfiguration(page, pathOf("examples/gateway.json"));
    await becomes(() => configurationOf(page), textOf("examples/gateway.json"));
    const transfer = await page.evaluateHandle((text) => {
      const made = new DataTransfer();
      made.items.add(new File([text], "dropped.json"));
      return made;
    }, KETTLE);
    await page.getByTestId("configuration").dispatchEvent("drop", { dataTransfer: transfer });
    await shows(page.locator("#file-name"), "dropped.json");
    await becomes(() => configurationOf(page), KETTLE);
    // What was there before is not lost, nor is its name.
    await page.locator(".cm-content").click();
    await page.keyboard.press("Control+z");
    await becomes(() => configurationOf(page), textOf("examples/gateway.json"));
    await shows(page.locator("#file-name"), "gateway.json");
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Control+y");
    await becomes(() => configurationOf(page), KETTLE);
    await shows(page.locator("#file-name"), "dropped.json");
    // Also after all of it was deleted.
    const other = await openPage();
    await typeConfiguration(other, "");
    await becomes(() => configurationOf(other), "");
    await openConfiguration(other, pathOf("examples/gateway.json"));
    await other.locator(".cm-content").click();
    await other.keyboard.press("Control+z");
    await other.keyboard.press("Control+z");
    await becomes(() => configurationOf(other), KETTLE);
  });

  test("tells by its content whether a dropped file is a capture", async () => {
    const page = await openPage();
    const drop = async (name, text) => {
      const transfer = await page.evaluateHandle(
        ([name, text]) => {
          const made = new DataTransfer();
          made.items.add(new File([text], name));
          return made;
        },
        [name, text],
      );
      await page.getByTestId("status").evaluate((status) => (status.textContent = ""));
      await page.getByTestId("layout").dispatchEvent("drop", { dataTransfer: transfer });
    };
    const title = "a log\n".repeat(5);
    const log = `${title}10:00:00.5 RX 04 00 00 04 64 00 00\n10:00:01.5 TX 01 07 05 5a\n`;
    const jsonLines = '{"packet": "04 00 00 04 64 00 00"}\n{"packet": "01 07 05 5a"}\n';
    for (const [name, text] of [
      ["text.log", log],
      ["lines.json", jsonLines],
      ["one.json", '{"packet": "01 07 05 5a"}'],
    ]) {
      await drop(name, text);
      await shows(page.getByTestId("status"), new RegExp(`${name} .* read as a capture`));
      await shows(
        page.getByTestId("capture-summary"),
        new RegExp(`${name}: ${name === "one.json" ? "1 packet$" : "2"}`),
      );
      await becomes(() => configurationOf(page), KETTLE);
    }
    for (const [name, text] of [
      ["broken.json", KETTLE.slice(0, -3)],
      ["commented.json", `// a kettle\n${KETTLE}`],
      ["short.json", JSON.stringify(JSON.parse(KETTLE))],
      ["torn.json", KETTLE.slice(KETTLE.indexOf('"entities"'))],
      ["notes.txt", "nothing of interest"],
    ]) {
      await drop(name, text);
      await shows(page.getByTestId("status"), new RegExp(`${name} is open`));
      await becomes(() => configurationOf(page), text);
    }
  });

  test("shows nothing of the last configuration beside one that is broken", async () => {
    const page = await openPage();
    await shows(page.getByTestId("decoded-target"), "85");
    await page.getByTestId("open").setInputFiles(fileWith("broken.json", '{"entities": ['));
    await page.getByTestId("finding").getByText("not JSON").waitFor();
    await shows(page.getByTestId("layout-problem"), /^configuration:1:/);
    await counts(page.locator("#layout .piece"), 0);
    await counts(page.locator(".value-row"), 0);
    await shows(page.getByTestId("write-packet"), "");
    await counts(page.getByTestId("decoded-target"), 0);
    // While a text is being edited, its last picture stays.
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await typeConfiguration(page, KETTLE.slice(0, -3));
    await shows(page.getByTestId("layout-problem"), /^Not up to date: /);
    await counts(page.getByTestId("field-target"), 1);
    // An entity that cannot be used has no picture of another one.
    await typeConfiguration(page, KETTLE.replace('"entities": [', '"entities": [null,'));
    await page.getByTestId("entity").selectOption("1");
    await page.locator('[data-testid="layout-problem"]:empty').waitFor({ state: "attached" });
    await counts(page.getByTestId("field-target"), 1);
    await page.getByTestId("entity").selectOption("0");
    await shows(page.getByTestId("layout-problem"), /unusable entity/);
    await counts(page.getByTestId("field-target"), 0);
  });

  test("keeps text and packet over a reload", async () => {
    const page = await openPage();
    const text = KETTLE.replace("Kettle K1", "Kettle K2");
    await typeConfiguration(page, text);
    await page.getByTestId("packet").fill("04 00 00 00 00 00 00");
    await shows(page.getByTestId("decoded-power"), "false");
    await page.reload();
    await shows(page.getByTestId("decoded-power"), "false");
    await holds(page.getByTestId("packet"), "04 00 00 00 00 00 00");
    await becomes(() => configurationOf(page), text);
    // The values to be written are kept beside it.
    await page.getByTestId("value-target").fill("41");
    await shows(page.getByTestId("write-packet"), "01 07 00 02");
    await page.reload();
    await shows(page.getByTestId("write-packet"), "01 07 00 02");
    await holds(page.getByTestId("packet"), "04 00 00 00 00 00 00");
  });

  test("keeps over a reload what is to be written, whatever was typed as a packet since", async () => {
    const page = await openPage();
    await openConfiguration(page, pathOf("examples/gateway.json"));
    await page.getByTestId("packet").fill("");
    await shows(page.getByTestId("write-packet"), "");
    await page.locator(".value-row input[type=checkbox]").first().check();
    await shows(page.getByTestId("write-packet"), /^01/);
    const written = await textIn(page.getByTestId("write-packet"));
    await page.getByTestId("entity").selectOption("1");
    await page.getByTestId("value-on").waitFor();
    await page.locator("#write-command").selectOption({ index: 1 });
    await page.getByTestId("sub-device").fill("5");
    await page.getByTestId("value-on").check();
    await shows(page.getByTestId("write-packet"), /^07 05 00 00 00/);
    const other = await textIn(page.getByTestId("write-packet"));
    for (const packet of ["02", "04zz"]) {
      await page.getByTestId("packet").fill(packet);
      await shows(page.getByTestId("write-packet"), other);
      await page.reload();
      await holds(page.getByTestId("packet"), packet);
      await shows(page.getByTestId("write-packet"), other);
    }
    await page.getByTestId("entity").selectOption("0");
    await page.locator("#write-command").selectOption({ index: 0 });
    await page.getByTestId("sub-device").fill("");
    await shows(page.getByTestId("write-packet"), written);
    // A packet of this entity does not set the other's values. An id is kept as it was typed.
    await page.getByTestId("packet").fill(textOf("examples/gateway.notify.hex").trim());
    await page.getByTestId("decoded-label").waitFor();
    await page.getByTestId("entity").selectOption("1");
    await page.locator("#write-command").selectOption({ index: 1 });
    await page.getByTestId("sub-device").pressSequentially("1e1");
    await shows(page.getByTestId("write-packet"), other.replace("07 05", "07 0a"));
    await page.reload();
    await shows(page.getByTestId("write-packet"), other.replace("07 05", "07 0a"));
    // A received packet sets the values, and nothing else.
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await page.locator("#write-command").selectOption({ index: 1 });
    await page.getByTestId("sub-device").fill("5");
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 01");
    await shows(page.getByTestId("write-packet"), "07 05 00 00 00 07 05 5a");
    await page.reload();
    await shows(page.getByTestId("write-packet"), "07 05 00 00 00 07 05 5a");
  });

  test("tells what was done until the text is edited", async () => {
    const page = await openPage();
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await shows(page.getByTestId("status"), "kettle.json is open.");
    await typeConfiguration(page, "");
    await shows(page.getByTestId("status"), "");
    await page.getByTestId("insert").selectOption({ index: 1 });
    await shows(page.getByTestId("status"), /There is no array "attrs" to insert into/);
  });

  test("keeps line ends, and marks findings and follows the cursor between them", async () => {
    const page = await openPage();
    const { entities } = JSON.parse(KETTLE.replace('"ratio": 0.5', '"ratio": 0'));
    const text = JSON.stringify({ entities: [entities[0], { ...entities[0], name: "second" }] }, null, 1);
    await openConfiguration(page, fileWith("crlf.json", text.replaceAll("\n", "\r\n")));
    await page.locator(".cm-lint-marker").first().waitFor();
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Control+End");
    for (let i = 0; i < 8; ++i) await page.keyboard.press("ArrowUp"); // into the last attribute
    await holds(page.getByTestId("entity"), "1");
    assert.equal(await configurationOf(page), text.replaceAll("\n", "\r\n"));
  });

  test("saves with Ctrl+S", async () => {
    const page = await openPage();
    await page.locator(".cm-content").focus();
    const [download] = await Promise.all([page.waitForEvent("download"), page.keyboard.press("Control+s")]);
    assert.equal(readFileSync(await download.path(), "utf8"), KETTLE);
    assert.equal(download.suggestedFilename(), "kettle.json");
  });
});

describe("picture", () => {
  // The bits of each attribute in the picture, by name; bytes that it leaves out are the same as the byte before.
  async function drawn(page) {
    return page.evaluate(() => {
      const names = {};
      let last;
      for (const row of document.querySelectorAll("#layout .row:not(.head)")) {
        const pieces = [...row.querySelectorAll(".piece")].map((piece) => [
          piece.style.gridColumn,
          piece.dataset.elements,
        ]);
        const label = row.querySelector(".byte").textContent;
        if (label !== "…") {
          const byte = Number(label);
          for (let i = (last ?? -1) + 1; i <= byte; ++i) names[i] = pieces;
          last = byte;
        }
      }
      return names;
    });
  }

  test("is the same as dp4's", async () => {
    const page = await openPage();
    for (const name of EXAMPLES) {
      await openConfiguration(page, pathOf(`examples/${name}.json`));
      const count = JSON.parse(textOf(`examples/${name}.json`)).entities.length;
      for (let i = 0; i < count; ++i) {
        await page.getByTestId("entity").selectOption(String(i));
        const entity = JSON.parse(textOf(`examples/${name}.json`)).entities[i];
        const layout = JSON.parse(dp4("layout", `examples/${name}.json`, "--entity", entity.name, "--format", "json"));
        const expected = {};
        for (const { firstBit, bits, attributes } of layout.stretches) {
          for (let bit = firstBit; bit < firstBit + bits; ++bit) {
            const row = (expected[bit >> 3] ??= []);
            const key = attributes.map((one) => entity.attrs.findIndex((attr) => attr.name === one)).join(" ");
            const piece = row.at(-1);
            if (piece !== undefined && piece.key === key) ++piece.columns;
            else row.push({ column: bit & 7, columns: 1, key });
          }
        }
        const wanted = Object.fromEntries(
          Object.entries(expected).map(([byte, row]) => [
            byte,
            row.map(({ column, columns, key }) => [`${column + 1} / span ${columns}`, key]),
          ]),
        );
        await becomes(() => drawn(page), wanted, `${name} ${entity.name}`);
      }
    }
  });

  // The only entity of a configuration that is strict JSON.
  function entityOf(path) {
    try {
      return JSON.parse(textOf(path)).entities[0] ?? {};
    } catch {
      return {};
    }
  }

  test("is the same as dp4's for all of tests/lint, and so is what a packet says", async () => {
    const page = await openPage();
    let pictures = 0;
    let packets = 0;
    for (const file of readdirSync(pathOf("tests/lint")).filter((name) => name.endsWith(".json"))) {
      const path = `tests/lint/${file}`;
      const layout = dp4("layout", path, "--format", "json");
      const { attrs } = entityOf(path);
      if (layout === "" || attrs === undefined) continue; // several entities, or none that can be used
      await openConfiguration(page, pathOf(path));
      // What lies in each bit, by the attributes' names.
      const expected = [];
      for (const { firstBit, bits, attributes } of JSON.parse(layout).stretches) {
        for (let bit = firstBit; bit < firstBit + bits; ++bit) expected[bit] = attributes.join(" ");
      }
      const shown = async () => {
        const bits = [];
        for (const [byte, pieces] of Object.entries(await drawn(page))) {
          for (const [place, elements] of pieces) {
            const [column, columns] = place.split(" / span ").map(Number);
            const names = elements === "" ? [] : elements.split(" ").map((one) => attrs[Number(one)]?.name);
            for (let i = 0; i < columns; ++i) bits[8 * Number(byte) + column - 1 + i] = names.join(" ");
          }
        }
        return bits;
      };
      await becomes(shown, expected, path);
      ++pictures;
      const { packet } = JSON.parse(dp4("vectors", path) || "{}").notifications?.at(-1) ?? {};
      if (packet === undefined) continue;
      await page.getByTestId("packet").fill(packet);
      await becomes(() => documentOf(page), JSON.parse(dp4("decode", path, packet)).values, path);
      ++packets;
    }
    assert.ok(pictures > 90, `${pictures} pictures`);
    assert.ok(packets > 70, `${packets} packets`);
  });

  test("follows the text", async () => {
    const page = await openPage();
    await typeConfiguration(
      page,
      KETTLE.replace('"bit_offset": 1, "unit": "bit", "len": 2', '"bit_offset": 4, "unit": "bit", "len": 2'),
    );
    await becomes(() => page.getByTestId("field-program").evaluate((piece) => piece.style.gridColumn), "3 / span 2");
  });

  test("has one selection with the editor, the values and the bytes", async () => {
    const page = await openPage();
    await page.getByTestId("field-target").locator(".name").click();
    await shows(page.getByTestId("chosen"), /Target temperature \(target\): writable uint8 at 1/);
    await shows(page.locator(".cm-chosen"), /"name": "target"/);
    await shows(page.locator(".value-row.chosen"), /Target temperature/);
    await shows(page.locator("#received .part.chosen"), /target = 85/);
    // From the editor.
    await page.locator(".cm-line").getByText('"program"').first().click();
    await page.locator('[data-testid="field-program"].chosen').waitFor();
    // From a byte.
    await page.locator("#received .part").getByText("sensor = true").click();
    await page.locator('[data-testid="field-sensor"].chosen').waitFor();
    // From a value, also when attributes before it are new.
    await page.getByTestId("value-power").focus();
    await page.locator('[data-testid="field-power"].chosen').waitFor();
    const { entities } = JSON.parse(KETTLE);
    entities[0].attrs.unshift({ ...entities[0].attrs[3], name: "other" });
    await typeConfiguration(page, JSON.stringify({ entities }));
    await shows(page.locator("#layout"), /other/);
    await page.getByTestId("value-target").focus();
    await shows(page.getByTestId("chosen"), /\(target\)/);
  });

  test("follows the cursor to another entity, and keeps the values of each", async () => {
    const page = await openPage();
    const { entities } = JSON.parse(KETTLE);
    const second = { ...entities[0], name: "second", attrs: entities[0].attrs.slice(0, 3) };
    await typeConfiguration(page, JSON.stringify({ entities: [entities[0], second] }, null, 1));
    await counts(page.locator('[data-testid="entity"] option'), 2);
    await shows(page.getByTestId("write-packet"), "01 07 05 5a");
    await page.getByTestId("packet").fill("");
    await page.getByTestId("value-target").fill("42");
    await shows(page.getByTestId("write-packet"), "01 07 05 04");
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Control+End");
    for (let i = 0; i < 8; ++i) await page.keyboard.press("ArrowUp"); // into the last attribute
    await holds(page.getByTestId("entity"), "1");
    await page.locator('[data-testid="field-target"].chosen').waitFor();
    await shows(page.getByTestId("write-packet"), "");
    await page.keyboard.press("Control+Home");
    for (let i = 0; i < 9; ++i) await page.keyboard.press("ArrowDown");
    await page.locator('[data-testid="field-power"].chosen').waitFor();
    await holds(page.getByTestId("entity"), "0");
    await shows(page.getByTestId("write-packet"), "01 07 05 04");
  });

  test("lets fields that overlap be chosen one after the other", async () => {
    const page = await openPage();
    const text = KETTLE.replace('"bit_offset": 1, "unit": "bit", "len": 1', '"bit_offset": 0, "unit": "bit", "len": 1');
    await typeConfiguration(page, text);
    await page.getByTestId("remarks").getByText("Overlap").waitFor();
    const piece = page.getByTestId("field-low_water");
    await piece.click({ position: { x: 5, y: 5 } });
    await shows(page.getByTestId("chosen"), /low_water/);
    await piece.click({ position: { x: 5, y: 5 } });
    await shows(page.getByTestId("chosen"), /lid_open/);
    await page.getByTestId("field-low_water").click({ position: { x: 5, y: 5 } });
    await page.getByTestId("field-lid_open").click();
    await shows(page.getByTestId("chosen"), /lid_open/);
  });

  test("shows the packet's bits, and a click inverts one", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 00");
    const bit = page.locator('[data-bit="47"]'); // bit 0 of byte 5
    await shows(bit, "0");
    await shows(page.getByTestId("field-target").locator(".bit"), [..."01011010"].join("\n"));
    await bit.click();
    await shows(page.getByTestId("decoded-sensor"), "true");
    await holds(page.getByTestId("packet"), "04 05 5a 04 64 01 01");
    // In a write, the flag is set as well.
    await page.getByTestId("packet").fill("01 04 00 5a");
    await shows(page.getByTestId("write-packet"), "01 04 00 5a");
    await page.getByTestId("value-target").fill("40");
    await shows(page.getByTestId("write-packet"), "01 04 00 00");
    await page.locator('[data-bit="7"]').click();
    await shows(page.getByTestId("write-packet"), "01 05 01 00");
  });

  test("inverts bits of a write that no values give, in the packet below", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("");
    await page.getByTestId("value-target").fill("40");
    await shows(page.getByTestId("write-packet"), "01 07 05 00");
    await page.locator('[data-bit="0"]').click(); // not used
    await holds(page.getByTestId("packet"), "01 07 85 00");
    await shows(page.locator('[data-bit="0"]'), "1");
    await page.getByTestId("value-target").fill("40.5");
    await shows(page.getByTestId("write-packet"), "01 07 05 01");
    await page.locator('[data-bit="8"]').click(); // raw 129, of at most 120
    await holds(page.getByTestId("packet"), "01 07 05 81");
    await shows(page.getByTestId("notes"), /"target" out-of-range: raw 129/);
  });
});

describe("values", () => {
  test("make the write packet, explained byte by byte", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("");
    await page.getByTestId("value-power").check();
    await page.getByTestId("value-program").selectOption("2");
    await page.getByTestId("value-target").fill("85");
    await shows(page.getByTestId("write-packet"), "01 07 05 5a");
    const parts = page.locator("#write-explanation .part");
    await becomes(
      async () => (await parts.allInnerTexts()).map((part) => part.replace(/\s+/g, " ")),
      [
        "command 01 write",
        "flags 07 sets power, program, target",
        "byte 0 05 power = true program = keep_warm",
        "byte 1 5a target = 85",
      ],
    );
    // Off is a value as well; without its mark the attribute is not part of the packet.
    await page.getByTestId("value-power").uncheck();
    await shows(page.getByTestId("write-packet"), "01 07 04 5a");
    await page.getByLabel("Send Power").uncheck();
    await shows(page.getByTestId("write-packet"), "01 06 04 5a");
    await page.getByTestId("sub-device").fill("5");
    await shows(page.getByTestId("write-packet"), "01 05 00 00 00 06 04 5a");
    await page.getByTestId("sub-device").fill("99999999999");
    await shows(page.getByTestId("write-problems"), /integer from -2147483648 to 4294967295/);
    await shows(page.getByTestId("write-packet"), "");
  });

  test("stay while the configuration is edited", async () => {
    const page = await openPage();
    await page.getByTestId("value-target").fill("40");
    await shows(page.getByTestId("write-packet"), "01 07 05 00");
    await typeConfiguration(page, KETTLE.replace("Heats or keeps warm", "Heats"));
    await page.getByTestId("field-power").locator(".name").click();
    await shows(page.getByTestId("chosen"), /Heats$/);
    await shows(page.getByTestId("write-packet"), "01 07 05 00");
    await shows(page.locator("#layout-packet"), /write packet/);
    await shows(page.getByTestId("field-target").locator(".bit"), [..."00000000"].join("\n"));
    // A value waits while the name of its attribute is another one.
    await typeConfiguration(page, KETTLE.replace('"name": "target"', '"name": "targ"'));
    await shows(page.getByTestId("write-packet"), "01 03 05 00");
    await typeConfiguration(page, KETTLE);
    await shows(page.getByTestId("write-packet"), "01 07 05 00");
  });

  test("know limits, steps and items", async () => {
    const page = await openPage();
    const target = page.getByTestId("value-target");
    await becomes(() => target.evaluate(({ min, max, step }) => [min, max, step]), ["40", "100", "0.5"]);
    assert.deepEqual(await page.getByTestId("value-program").locator("option").allInnerTexts(), [
      "boil",
      "green_tea",
      "keep_warm",
    ]);
    await page.getByTestId("packet").fill("");
    await target.fill("101");
    await shows(page.locator(".value-row .note"), /refused/);
    await shows(page.getByTestId("write-packet"), "");
  });

  test("are not written to another sub-device than was typed", async () => {
    const page = await openPage();
    await shows(page.getByTestId("write-packet"), "01 07 05 5a");
    await page.getByTestId("sub-device").focus();
    await page.keyboard.type("1e");
    const problem = /the id of a sub-device is an integer/;
    await shows(page.getByTestId("write-problems"), problem);
    await shows(page.getByTestId("write-packet"), "");
    await page.keyboard.type("1"); // makes ten
    const written = page.getByTestId("write-packet");
    const packet = /^01 (0a 00 00 00|00 00 00 0a) 07 05 5a$/;
    await shows(written, packet);
  });

  test("of binaries are hexadecimal", async () => {
    const page = await openPage();
    const { entities } = JSON.parse(KETTLE);
    Object.assign(entities[0].attrs[2], { data_type: "binary" });
    entities[0].attrs[2].position.len = 2;
    entities[0].attrs.splice(3);
    await page.getByTestId("packet").fill("");
    await typeConfiguration(page, JSON.stringify({ entities }));
    const value = page.getByTestId("value-target");
    await page.getByText("2 bytes, in hexadecimal").waitFor();
    await value.fill("ab cd");
    await shows(page.getByTestId("write-packet"), / ab cd$/);
    await value.fill("ab cd ef"); // dp4 sends nothing then either
    await shows(page.getByTestId("write-problems"), /"target" cut: it has 3 bytes, of which 2/);
    await shows(page.getByTestId("write-packet"), "");
    await value.fill("0x12, 0xab");
    await shows(page.getByTestId("write-packet"), / 12 ab$/);
    await value.fill("ab c"); // not yet a byte
    await shows(page.getByTestId("write-packet"), /^((?!ab).)*$/);
    await becomes(() => value.getAttribute("aria-invalid"), "true");
    await page.getByTestId("packet").fill("01 04 00 12 34");
    await holds(value, "12 34");
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", "01 04 00 12 34\n01 04 00 ab cd\n"));
    await page.getByTestId("capture-row").nth(1).waitFor();
    await page.getByTestId("capture-filter").fill("target=12");
    const count = page.getByTestId("filter-count");
    await shows(count, "0 rows; target is binary: filter for bytes alone");
    await page.getByTestId("capture-filter").fill("12 34");
    await shows(count, "1 row");
  });

  test("follow a packet of any kind that is typed", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("0107015a");
    await shows(page.getByTestId("write-packet"), "01 07 01 5a");
    await holds(page.getByTestId("value-target"), "85");
    await holds(page.getByTestId("value-program"), "0");
    await page.getByTestId("packet").fill("04 02 00 04 64 00 00");
    await shows(page.getByTestId("write-packet"), "01 07 02 00");
    await holds(page.getByTestId("value-target"), "40");
    await page.getByTestId("packet").fill("03:05:5a:04:64:00:00");
    await shows(page.getByTestId("write-packet"), "01 07 05 5a");
    await holds(page.getByTestId("value-program"), "2");
  });

  test("are written as dp4 writes them", async () => {
    const page = await openPage();
    for (const name of EXAMPLES.filter((one) => one !== "gateway")) {
      await openConfiguration(page, pathOf(`examples/${name}.json`));
      const packet = dp4("encode", `examples/${name}.json`, `examples/${name}.values.json`).trim();
      await page.getByTestId("packet").fill(packet);
      const written = async () => (await page.getByTestId("write-packet").innerText()).replaceAll(" ", "");
      await becomes(written, packet.replaceAll(" ", ""), name);
    }
  });
});

test("the findings of all of tests/lint and of the examples are those of dp4", async () => {
  const page = await openPage();
  const files = readdirSync(pathOf("tests/lint"))
    .filter((name) => name.endsWith(".json"))
    .map((name) => `tests/lint/${name}`);
  for (const path of [...files, ...EXAMPLES.map((name) => `examples/${name}.json`)]) {
    await openConfiguration(page, pathOf(path));
    // A page cannot hold bytes that are not UTF-8; it tells so, and shows the rest.
    const text = new TextDecoder().decode(readFileSync(pathOf(path)));
    const isText = Buffer.from(text).equals(readFileSync(pathOf(path)));
    assert.equal((await page.getByTestId("status").innerText()).includes("not UTF-8"), !isText, path);
    // Errors come first.
    const findings = findingsOfDp4(isText ? path : fileWith("replaced.json", text));
    const expected = ["error", "warning", "info"].flatMap((kind) =>
      findings.filter(({ severity }) => severity === kind).map(({ rule, line }) => `${line} ${rule}`),
    );
    await becomes(() => shownFindings(page), expected.slice(0, 200), path);
  }
});
