// What a user does with the studio, in a real browser.

import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { after, afterEach, before, describe, test } from "node:test";
import {
  closeBrowser,
  closePages,
  configurationOf,
  dp4,
  eventualText,
  eventually,
  fileWith,
  openBrowser,
  openConfiguration,
  openPage,
  pathOf,
  studioFile,
  textOf,
  typeConfiguration,
} from "./browser.mjs";

const KETTLE = textOf("examples/kettle.json");
const EXAMPLES = ["air_conditioner", "gateway", "kettle", "power_meter"];
const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

before(openBrowser);
after(closeBrowser);
afterEach(closePages);

async function shownFindings(page) {
  return page.getByTestId("finding").evaluateAll((items) =>
    items.map((item) => ({
      rule: item.dataset.rule,
      line: Number(/line (\d+)/.exec(item.querySelector(".where").textContent)[1]),
      text: item.innerText.replace(/\s+/g, " "),
    })),
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
    const text = await finding.innerText();
    assert.match(text, new RegExp(`line ${line}`));
    assert.match(text, /Effect .+/);
    assert.match(text, /Fix .+/);
    await page.locator(".cm-lintRange").first().waitFor();
    await finding.click();
    const active = await eventualText(page.locator(".cm-activeLine"), /ratio/);
    assert.match(active, /"ratio": 0/);
    await page.locator('[data-testid="field-target"].chosen').waitFor({ timeout: 5000 });
    assert.deepEqual(page.problems, []);
  });

  test("completes members and keywords from the schema, and explains them on hover", async () => {
    const page = await openPage();
    await typeConfiguration(page, '{"entities": [{"attrs": [{"data_type": ""');
    await page.keyboard.press("ArrowLeft");
    await page.keyboard.press("Control+Space");
    const options = await eventualText(page.locator(".cm-tooltip-autocomplete"), /uint16/);
    assert.match(options, /bool[^]*enum[^]*binary/);
    await page.keyboard.type("bi");
    await eventualText(page.locator(".cm-tooltip-autocomplete"), "binary");
    await page.waitForTimeout(200); // the editor takes no completion right after it came up
    await page.keyboard.press("Enter");
    assert.equal(await configurationOf(page), '{"entities": [{"attrs": [{"data_type": "binary"');
    await typeConfiguration(page, '{"entities": [{"attrs": [{"posi": 1}]}]}');
    for (let i = 0; i < 10; ++i) await page.keyboard.press("ArrowLeft");
    await page.keyboard.press("Control+Space");
    await eventualText(page.locator(".cm-tooltip-autocomplete li"), /position/);
    await page.waitForTimeout(200);
    await page.keyboard.press("Enter");
    assert.match(await configurationOf(page), /\{"position": 1\}/);
    // Without quotation marks, and from an empty text.
    const chosen = async (typed, option) => {
      await page.locator(".cm-content").focus();
      if (typed === "") await page.keyboard.press("Control+Space");
      await page.keyboard.type(typed);
      await eventualText(page.locator(".cm-tooltip-autocomplete [aria-selected]"), option);
      await page.waitForTimeout(200);
      await page.keyboard.press("Enter");
    };
    await typeConfiguration(page, "{}");
    await page.keyboard.press("ArrowLeft");
    await chosen("entit", /^entities/);
    assert.equal(await configurationOf(page), '{"entities": []}');
    await chosen("", /^Lamp/i);
    const { entities } = JSON.parse(await configurationOf(page));
    assert.deepEqual(entities, [{ id: 0, name: "lamp", display_name: "Lamp", attrs: [] }]);
    await typeConfiguration(page, '{"entities": [{"attrs": [{"data_type": }]}]}');
    for (let i = 0; i < 5; ++i) await page.keyboard.press("ArrowLeft");
    await chosen("uint6", "uint64");
    assert.match(await configurationOf(page), /\{"data_type": "uint64"\}/);
    await typeConfiguration(page, "");
    await page.keyboard.press("Delete");
    await chosen("", /^product/);
    assert.equal(
      (
        await eventually(
          () => shownFindings(page),
          (shown) => shown.length === 0,
        )
      ).length,
      0,
    );
    await page.getByTestId("field-power").waitFor();
    await typeConfiguration(page, '{"entities": []}');
    await page.locator(".cm-line").getByText('"entities"').hover();
    assert.match(
      await eventualText(page.locator(".cm-tooltip-hover"), /models/),
      /The models that the product consists of/,
    );
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
    assert.equal(await configurationOf(page), textOf("examples/gateway.json"));
    const transfer = await page.evaluateHandle((text) => {
      const made = new DataTransfer();
      made.items.add(new File([text], "dropped.json"));
      return made;
    }, KETTLE);
    await page.getByTestId("configuration").dispatchEvent("drop", { dataTransfer: transfer });
    await eventualText(page.locator("#file-name"), "dropped.json");
    assert.equal(await configurationOf(page), KETTLE);
    // What was there before is not lost, nor is its name.
    await page.locator(".cm-content").click();
    await page.keyboard.press("Control+z");
    assert.equal(await configurationOf(page), textOf("examples/gateway.json"));
    assert.equal(await eventualText(page.locator("#file-name"), "gateway.json"), "gateway.json");
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Control+y");
    assert.equal(await configurationOf(page), KETTLE);
    assert.equal(await eventualText(page.locator("#file-name"), "dropped.json"), "dropped.json");
    // Also after all of it was deleted.
    const other = await openPage();
    await typeConfiguration(other, "");
    await other.keyboard.press("Delete");
    assert.equal(await configurationOf(other), "");
    await openConfiguration(other, pathOf("examples/gateway.json"));
    await other.locator(".cm-content").click();
    await other.keyboard.press("Control+z");
    await other.keyboard.press("Control+z");
    assert.equal(await configurationOf(other), KETTLE);
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
      return eventualText(page.getByTestId("status"), /is (open|read as a capture)/);
    };
    const title = "a log\n".repeat(5);
    const log = `${title}10:00:00.5 RX 04 00 00 04 64 00 00\n10:00:01.5 TX 01 07 05 5a\n`;
    const jsonLines = '{"packet": "04 00 00 04 64 00 00"}\n{"packet": "01 07 05 5a"}\n';
    for (const [name, text] of [
      ["text.log", log],
      ["lines.json", jsonLines],
      ["one.json", '{"packet": "01 07 05 5a"}'],
    ]) {
      assert.match(await drop(name, text), new RegExp(`${name} .* read as a capture`));
      const summary = await eventualText(page.getByTestId("capture-summary"), new RegExp(`${name}: \\d`));
      assert.match(summary, name === "one.json" ? /: 1 packet$/ : /: 2 packets/);
      assert.equal(await configurationOf(page), KETTLE);
    }
    for (const [name, text] of [
      ["broken.json", KETTLE.slice(0, -3)],
      ["commented.json", `// a kettle\n${KETTLE}`],
      ["short.json", JSON.stringify(JSON.parse(KETTLE))],
      ["torn.json", KETTLE.slice(KETTLE.indexOf('"entities"'))],
      ["notes.txt", "nothing of interest"],
    ]) {
      assert.match(await drop(name, text), new RegExp(`${name} is open`));
      assert.equal(await configurationOf(page), text);
    }
  });

  test("shows nothing of the last configuration beside one that is broken", async () => {
    const page = await openPage();
    await eventualText(page.getByTestId("decoded-target"), "85");
    await page.getByTestId("open").setInputFiles(fileWith("broken.json", '{"entities": ['));
    await page.getByTestId("finding").getByText("not JSON").waitFor();
    assert.match(await eventualText(page.getByTestId("layout-problem"), /not JSON/), /^configuration:1:/);
    assert.equal(await page.locator("#layout .piece").count(), 0);
    assert.equal(await page.locator(".value-row").count(), 0);
    assert.equal(await page.getByTestId("write-packet").innerText(), "");
    assert.equal(await page.getByTestId("decoded-target").count(), 0);
    // While a text is being edited, its last picture stays.
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await typeConfiguration(page, KETTLE.slice(0, -3));
    assert.match(await eventualText(page.getByTestId("layout-problem"), /not JSON/), /^Not up to date: /);
    assert.equal(await page.getByTestId("field-target").count(), 1);
    // An entity that cannot be used has no picture of another one.
    await typeConfiguration(page, KETTLE.replace('"entities": [', '"entities": [null,'));
    await page.getByTestId("entity").selectOption("1");
    await page.locator('[data-testid="layout-problem"]:empty').waitFor({ state: "attached" });
    assert.equal(await page.getByTestId("field-target").count(), 1);
    await page.getByTestId("entity").selectOption("0");
    assert.match(await eventualText(page.getByTestId("layout-problem"), /unusable/), /unusable entity/);
    assert.equal(await page.getByTestId("field-target").count(), 0);
  });

  test("keeps text and packet over a reload", async () => {
    const page = await openPage();
    const text = KETTLE.replace("Kettle K1", "Kettle K2");
    await typeConfiguration(page, text);
    await page.getByTestId("packet").fill("04 00 00 00 00 00 00");
    await eventualText(page.getByTestId("decoded-power"), "false");
    await page.reload();
    await eventualText(page.getByTestId("decoded-power"), "false");
    assert.equal(await page.getByTestId("packet").inputValue(), "04 00 00 00 00 00 00");
    assert.equal(await configurationOf(page), text);
    // The values to be written are kept beside it.
    await page.getByTestId("value-target").fill("41");
    await eventualText(page.getByTestId("write-packet"), "01 07 00 02");
    await page.reload();
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 07 00 02"), "01 07 00 02");
    assert.equal(await page.getByTestId("packet").inputValue(), "04 00 00 00 00 00 00");
  });

  test("tells what was done until the text is edited", async () => {
    const page = await openPage();
    await openConfiguration(page, pathOf("examples/kettle.json"));
    assert.equal(await page.getByTestId("status").innerText(), "kettle.json is open.");
    await typeConfiguration(page, "");
    await page.keyboard.press("Delete");
    assert.equal(await eventualText(page.getByTestId("status"), ""), "");
    await page.getByTestId("insert").selectOption({ index: 1 });
    assert.match(await eventualText(page.getByTestId("status"), /attrs/), /There is no array "attrs" to insert into/);
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
        await page.getByTestId(`field-${entity.attrs[0].name}`).waitFor();
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
        assert.deepEqual(await drawn(page), wanted, `${name} ${entity.name}`);
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
      const shown = [];
      for (const [byte, pieces] of Object.entries(await drawn(page))) {
        for (const [place, elements] of pieces) {
          const [column, columns] = place.split(" / span ").map(Number);
          const names = elements === "" ? [] : elements.split(" ").map((one) => attrs[Number(one)].name);
          shown.push(...Array.from({ length: columns }, (_, i) => [8 * Number(byte) + column - 1 + i, names.join(" ")]));
        }
      }
      const inOrder = shown.sort(([one], [other]) => one - other);
      assert.deepEqual(inOrder, [...expected.entries()], path);
      ++pictures;
      const { packet } = JSON.parse(dp4("vectors", path) || "{}").notifications?.at(-1) ?? {};
      if (packet === undefined) continue;
      await page.getByTestId("packet").fill(packet);
      const document = JSON.stringify(JSON.parse(dp4("decode", path, packet)).values);
      const shownDocument = await eventually(
        async () => JSON.stringify(JSON.parse((await page.getByTestId("document").textContent()) || "{}")),
        (text) => text === document,
      );
      assert.equal(shownDocument, document, path);
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
    const columns = await eventually(
      () => page.getByTestId("field-program").evaluate((piece) => piece.style.gridColumn),
      (text) => text === "3 / span 2",
    );
    assert.equal(columns, "3 / span 2");
  });

  test("has one selection with the editor, the values and the bytes", async () => {
    const page = await openPage();
    await page.getByTestId("field-target").locator(".name").click();
    assert.match(await page.getByTestId("chosen").innerText(), /Target temperature \(target\): writable uint8 at 1/);
    assert.match((await page.locator(".cm-chosen").allInnerTexts()).join("\n"), /"name": "target"/);
    assert.match(await page.locator(".value-row.chosen").innerText(), /Target temperature/);
    assert.match(await page.locator("#received .part.chosen").innerText(), /target = 85/);
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
    await eventualText(page.locator("#layout"), /other/);
    await page.getByTestId("value-target").focus();
    assert.match(await eventualText(page.getByTestId("chosen"), /\(target\)/), /\(target\)/);
  });

  test("follows the cursor to another entity, and keeps the values of each", async () => {
    const page = await openPage();
    const { entities } = JSON.parse(KETTLE);
    const second = { ...entities[0], name: "second", attrs: entities[0].attrs.slice(0, 3) };
    await typeConfiguration(page, JSON.stringify({ entities: [entities[0], second] }, null, 1));
    await page.getByTestId("packet").fill("");
    await page.getByTestId("value-target").fill("42");
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 07 05 04"), "01 07 05 04");
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Control+End");
    for (let i = 0; i < 8; ++i) await page.keyboard.press("ArrowUp"); // into the last attribute
    await page.locator('[data-testid="field-target"].chosen').waitFor();
    assert.equal(await page.getByTestId("entity").inputValue(), "1");
    assert.equal(await eventualText(page.getByTestId("write-packet"), ""), "");
    await page.keyboard.press("Control+Home");
    for (let i = 0; i < 9; ++i) await page.keyboard.press("ArrowDown");
    await page.locator('[data-testid="field-power"].chosen').waitFor();
    assert.equal(await page.getByTestId("entity").inputValue(), "0");
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 07 05 04"), "01 07 05 04");
  });

  test("lets fields that overlap be chosen one after the other", async () => {
    const page = await openPage();
    const text = KETTLE.replace('"bit_offset": 1, "unit": "bit", "len": 1', '"bit_offset": 0, "unit": "bit", "len": 1');
    await typeConfiguration(page, text);
    await page.getByTestId("remarks").getByText("Overlap").waitFor();
    const piece = page.getByTestId("field-low_water");
    await piece.click({ position: { x: 5, y: 5 } });
    assert.match(await page.getByTestId("chosen").innerText(), /low_water/);
    await piece.click({ position: { x: 5, y: 5 } });
    assert.match(await page.getByTestId("chosen").innerText(), /lid_open/);
    await page.getByTestId("field-low_water").click({ position: { x: 5, y: 5 } });
    await page.getByTestId("field-lid_open").click();
    assert.match(await page.getByTestId("chosen").innerText(), /lid_open/);
  });

  test("shows the packet's bits, and a click inverts one", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 00");
    const bit = page.locator('[data-bit="47"]'); // bit 0 of byte 5
    await eventualText(bit, "0");
    assert.equal((await page.getByTestId("field-target").locator(".bit").allInnerTexts()).join(""), "01011010");
    await bit.click();
    assert.equal(await eventualText(page.getByTestId("decoded-sensor"), "true"), "true");
    assert.equal(await page.getByTestId("packet").inputValue(), "04 05 5a 04 64 01 01");
    // In a write, the flag is set as well.
    await page.getByTestId("packet").fill("01 04 00 5a");
    await eventualText(page.getByTestId("write-packet"), "01 04 00 5a");
    await page.getByTestId("value-target").fill("40");
    await eventualText(page.getByTestId("write-packet"), "01 04 00 00");
    await page.locator('[data-bit="7"]').click();
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 05 01 00"), "01 05 01 00");
  });

  test("inverts bits of a write that no values give, in the packet below", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("");
    await page.getByTestId("value-target").fill("40");
    await eventualText(page.getByTestId("write-packet"), "01 07 05 00");
    await page.locator('[data-bit="0"]').click(); // not used
    const packet = async (expected) =>
      eventually(
        () => page.getByTestId("packet").inputValue(),
        (text) => text === expected,
      );
    assert.equal(await packet("01 07 85 00"), "01 07 85 00");
    assert.equal(await page.locator('[data-bit="0"]').innerText(), "1");
    await page.getByTestId("value-target").fill("40.5");
    await eventualText(page.getByTestId("write-packet"), "01 07 05 01");
    await page.locator('[data-bit="8"]').click(); // raw 129, of at most 120
    assert.equal(await packet("01 07 05 81"), "01 07 05 81");
    assert.match(await eventualText(page.getByTestId("notes"), /range/), /"target" out-of-range: raw 129/);
  });
});

describe("values", () => {
  test("make the write packet, explained byte by byte", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("");
    await page.getByTestId("value-power").check();
    await page.getByTestId("value-program").selectOption("2");
    await page.getByTestId("value-target").fill("85");
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 07 05 5a"), "01 07 05 5a");
    const parts = await page.locator("#write-explanation .part").allInnerTexts();
    assert.deepEqual(
      parts.map((part) => part.replace(/\s+/g, " ")),
      [
        "command 01 write",
        "flags 07 sets power, program, target",
        "byte 0 05 power = true program = keep_warm",
        "byte 1 5a target = 85",
      ],
    );
    // Off is a value as well; without its mark the attribute is not part of the packet.
    await page.getByTestId("value-power").uncheck();
    await eventualText(page.getByTestId("write-packet"), "01 07 04 5a");
    await page.getByLabel("Send Power").uncheck();
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 06 04 5a"), "01 06 04 5a");
    await page.getByTestId("sub-device").fill("5");
    assert.equal(await eventualText(page.getByTestId("write-packet"), /05 00 00 00/), "01 05 00 00 00 06 04 5a");
    await page.getByTestId("sub-device").fill("99999999999");
    assert.match(
      await eventualText(page.getByTestId("write-problems"), /sub-device/),
      /integer from -2147483648 to 4294967295/,
    );
    assert.equal(await page.getByTestId("write-packet").innerText(), "");
  });

  test("stay while the configuration is edited", async () => {
    const page = await openPage();
    await page.getByTestId("value-target").fill("40");
    await eventualText(page.getByTestId("write-packet"), "01 07 05 00");
    await typeConfiguration(page, KETTLE.replace("Heats or keeps warm", "Heats"));
    await page.getByTestId("field-power").locator(".name").click();
    await eventualText(page.getByTestId("chosen"), /Heats$/);
    assert.equal(await page.getByTestId("write-packet").innerText(), "01 07 05 00");
    assert.match(await page.locator("#layout-packet").innerText(), /write packet/);
    assert.equal((await page.getByTestId("field-target").locator(".bit").allInnerTexts()).join(""), "00000000");
    // A value waits while the name of its attribute is another one.
    await typeConfiguration(page, KETTLE.replace('"name": "target"', '"name": "targ"'));
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 03 05 00"), "01 03 05 00");
    await typeConfiguration(page, KETTLE);
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 07 05 00"), "01 07 05 00");
  });

  test("know limits, steps and items", async () => {
    const page = await openPage();
    const target = page.getByTestId("value-target");
    assert.deepEqual(await target.evaluate(({ min, max, step }) => [min, max, step]), ["40", "100", "0.5"]);
    assert.deepEqual(await page.getByTestId("value-program").locator("option").allInnerTexts(), [
      "boil",
      "green_tea",
      "keep_warm",
    ]);
    await page.getByTestId("packet").fill("");
    await target.fill("101");
    assert.match(await eventualText(page.locator(".value-row .note"), /refused/), /refused/);
    assert.equal(await page.getByTestId("write-packet").innerText(), "");
  });

  test("are not written to another sub-device than was typed", async () => {
    const page = await openPage();
    await eventualText(page.getByTestId("write-packet"), "01 07 05 5a");
    await page.getByTestId("sub-device").focus();
    await page.keyboard.type("1e");
    const problem = /the id of a sub-device is an integer/;
    assert.match(await eventualText(page.getByTestId("write-problems"), problem), problem);
    assert.equal(await page.getByTestId("write-packet").innerText(), "");
    await page.keyboard.type("1"); // makes ten
    const written = page.getByTestId("write-packet");
    const packet = /^01 (0a 00 00 00|00 00 00 0a) 07 05 5a$/;
    assert.match(await eventualText(written, packet), packet);
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
    assert.match(await eventualText(page.getByTestId("write-packet"), /ab cd/), / ab cd$/);
    await value.fill("ab cd ef"); // dp4 sends nothing then either
    assert.match(
      await eventualText(page.getByTestId("write-problems"), /cut/),
      /"target" cut: it has 3 bytes, of which 2/,
    );
    assert.equal(await page.getByTestId("write-packet").innerText(), "");
    await value.fill("0x12, 0xab");
    assert.match(await eventualText(page.getByTestId("write-packet"), /12 ab/), / 12 ab$/);
    await value.fill("ab c"); // not yet a byte
    assert.doesNotMatch(await eventualText(page.getByTestId("write-packet"), /^((?!ab).)*$/), /ab/);
    assert.equal(await value.getAttribute("aria-invalid"), "true");
    await page.getByTestId("packet").fill("01 04 00 12 34");
    assert.equal(
      await eventually(
        () => value.inputValue(),
        (text) => text === "12 34",
      ),
      "12 34",
    );
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", "01 04 00 12 34\n01 04 00 ab cd\n"));
    await page.getByTestId("capture-row").nth(1).waitFor();
    await page.getByTestId("capture-filter").fill("target=12");
    const count = page.getByTestId("filter-count");
    assert.equal(await eventualText(count, /row/), "0 rows; target is binary: filter for bytes alone");
    await page.getByTestId("capture-filter").fill("12 34");
    assert.equal(await eventualText(count, "1 row"), "1 row");
  });

  test("follow a packet of any kind that is typed", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("0107015a");
    await eventualText(page.getByTestId("write-packet"), "01 07 01 5a");
    assert.equal(await page.getByTestId("value-target").inputValue(), "85");
    assert.equal(await page.getByTestId("value-program").inputValue(), "0");
    await page.getByTestId("packet").fill("04 02 00 04 64 00 00");
    await eventualText(page.getByTestId("write-packet"), "01 07 02 00");
    assert.equal(await page.getByTestId("value-target").inputValue(), "40");
    await page.getByTestId("packet").fill("03:05:5a:04:64:00:00");
    await eventualText(page.getByTestId("write-packet"), "01 07 05 5a");
    assert.equal(await page.getByTestId("value-program").inputValue(), "2");
  });

  test("are written as dp4 writes them", async () => {
    const page = await openPage();
    for (const name of EXAMPLES.filter((one) => one !== "gateway")) {
      await openConfiguration(page, pathOf(`examples/${name}.json`));
      const packet = dp4("encode", `examples/${name}.json`, `examples/${name}.values.json`).trim();
      await page.getByTestId("packet").fill(packet);
      const plain = (text) => text.replace(/\s/g, "");
      const written = await eventually(
        () => page.getByTestId("write-packet").innerText(),
        (text) => plain(text) === plain(packet),
      );
      assert.equal(plain(written), plain(packet), name);
    }
  });
});

describe("a received packet", () => {
  test("gives values, alerts, faults and the application's document", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 01");
    assert.equal(await eventualText(page.getByTestId("decoded-temperature"), "92.4"), "92.4");
    assert.equal(await page.getByTestId("decoded-program").innerText(), "keep_warm");
    assert.match(await page.getByTestId("received").innerText(), /Active: ?\s*Low water\s*Sensor broken/);
    const expected = { kettle: { power: true, program: "2", target: "85", temperature: "92.4" }, version: 4 };
    assert.deepEqual(JSON.parse(await page.getByTestId("document").innerText()), expected);
  });

  test("gives the document that dp4 gives", async () => {
    const page = await openPage();
    for (const name of EXAMPLES) {
      await openConfiguration(page, pathOf(`examples/${name}.json`));
      const { entities } = JSON.parse(textOf(`examples/${name}.json`));
      const packet = textOf(`examples/${name}.notify.hex`).trim();
      await page.getByTestId("packet").fill(packet);
      const { values } = JSON.parse(dp4("decode", `examples/${name}.json`, "--entity", entities[0].name, packet));
      const text = await eventually(
        () => page.getByTestId("document").innerText(),
        (shown) => shown !== "",
      );
      assert.deepEqual(JSON.parse(text), values, name);
    }
  });

  test("has notes on what was passed over", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("04 05 ff 04 64 01 01 00 00");
    const notes = await eventualText(page.getByTestId("notes"), /surplus/);
    assert.match(notes, /surplus: 2 bytes/);
    assert.match(notes, /"target" out-of-range: raw 255, expected 0 to 120/);
    // Of a packet that ends early nothing is taken; what is missing was not left unset by anybody.
    await page.getByTestId("packet").fill("04 05 5a 04");
    assert.match(await eventualText(page.getByTestId("notes"), /short/), /"sensor" short/);
    assert.equal(await page.getByTestId("decoded-sensor").innerText(), "–");
    await page.getByTestId("packet").fill("01 01 01 00");
    assert.equal(await eventualText(page.getByTestId("decoded-target"), "not set"), "not set");
    await page.getByTestId("packet").fill("04 0z");
    assert.match(await eventualText(page.locator("#packet-problem"), /column/), /column 5: /);
    await page.getByTestId("packet").fill("63 00");
    assert.match(await eventualText(page.locator("#packet-problem"), /unknown/), /command 63 is unknown/);
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
    assert.match(
      await eventualText(page.getByTestId("capture-summary"), /4 packets/),
      /log.txt: 4 packets, 1 line that the pattern does not match/,
    );
    assert.equal(await page.getByTestId("pattern").inputValue(), "direction");
    assert.match(
      await page.getByTestId("pattern-preview").innerText(),
      /2024-05-01 10:00:00.000\s+RX\s+04 00 00 04 64 00 00/,
    );
    assert.equal(await page.getByTestId("capture-row").count(), 4);
    await page.getByTestId("timeline").locator("canvas").first().waitFor();
    const rowsOf = async (filter, expected) => {
      await page.getByTestId("capture-filter").fill(filter);
      assert.equal(await eventualText(page.getByTestId("filter-count"), expected), expected, filter);
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
    assert.equal(await eventualText(page.getByTestId("write-packet"), "01 07 05 5a"), "01 07 05 5a");
  });

  test("are drawn over time, what changes first", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    const timeline = page.getByTestId("timeline");
    await timeline.locator(".u-over").waitFor();
    const chosen = timeline.locator("label").filter({ has: page.locator("input:checked") });
    assert.deepEqual(await chosen.allInnerTexts(), [
      "Power",
      "Program",
      "Target temperature",
      "Low water",
      "Sensor broken",
    ]);
    // The bands lie below the chart: the power's, which is on at the end, ends with it.
    const alphas = await eventually(
      () =>
        timeline.evaluate((container) => {
          const canvas = container.querySelector(".bands");
          const over = container.querySelector(".u-over").getBoundingClientRect();
          const end = over.right - canvas.getBoundingClientRect().left;
          const alpha = (x) => canvas.getContext("2d").getImageData(x * devicePixelRatio, 11, 1, 1).data[3];
          return [alpha(end - 2), alpha(end + 3)];
        }),
      ([inside, outside]) => inside === 255 && outside === 0,
    );
    assert.deepEqual(alphas, [255, 0]);
  });

  test("follow the configuration", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    const values = page.getByTestId("capture-row").first().locator(".says");
    assert.match(await eventualText(values, /temperature/), /target=40 temperature=92.4/);
    await typeConfiguration(page, KETTLE.replace('"addition": -20', '"addition": 0'));
    assert.match(await eventualText(values, /112/), /target=40 temperature=112.4/);
    assert.deepEqual(await page.getByTestId("capture-rows").getByRole("columnheader").allInnerTexts(), [
      "Line",
      "Time",
      "Command",
      "Packet",
      "Values",
      "Notes",
    ]);
  });

  test("wait for a configuration that can be read", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    await page.getByTestId("capture-row").first().waitFor();
    await page.getByTestId("open").setInputFiles(fileWith("broken.json", '{"entities": ['));
    const summary = page.getByTestId("capture-summary");
    assert.match(await eventualText(summary, /as soon as/), /log.txt is read as soon as/);
    assert.equal(await page.getByTestId("capture-row").first().isVisible(), false);
    await openConfiguration(page, pathOf("examples/kettle.json"));
    assert.match(await eventualText(summary, /4 packets/), /log.txt: 4 packets/);
    await page.getByTestId("capture-row").first().waitFor();
    // A text that is broken while somebody types is told as such.
    await typeConfiguration(page, KETTLE.slice(0, -3));
    await page.getByText("Not up to date").waitFor();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    assert.match(await eventualText(summary, /not JSON/), /log.txt: 0 packets; configuration:\d+:\d+: not JSON/);
  });

  test("are read by a pattern of one's own, and bad ones are told", async () => {
    const page = await openPage();
    await page
      .getByTestId("capture")
      .setInputFiles(fileWith("own.log", "t=1.5 data=04000004640000;\nt=2.5 data=04010004640000;\n"));
    await eventualText(page.getByTestId("capture-summary"), /without/);
    assert.match(await page.getByTestId("pattern-preview").innerText(), /None of these lines is read as a packet/);
    await page.getByTestId("pattern").fill("t=(?P<time>\\S+) data=(?P<packet>[0-9a-f]+)");
    // The preview follows as somebody types.
    const taken = /^1\.504 00 00 04 64 00 00/;
    assert.match(await eventualText(page.getByTestId("pattern-preview"), taken), taken);
    await page.getByTestId("pattern").press("Enter");
    assert.match(await eventualText(page.getByTestId("capture-summary"), /2 packets/), /2 packets$/);
    await page.getByTestId("pattern").fill("(unclosed");
    await page.getByTestId("pattern").press("Enter");
    assert.match(await eventualText(page.getByTestId("pattern-preview"), /unclosed/), /missing|unclosed/);
  });

  test("show the packet of a moment that is clicked in the timeline", async () => {
    const page = await openPage();
    await page.getByTestId("capture").setInputFiles(fileWith("log.txt", LINES.join("\n")));
    const over = page.getByTestId("timeline").locator(".u-over");
    await over.waitFor();
    await over.scrollIntoViewIfNeeded();
    const { width, height } = await over.boundingBox();
    await over.click({ position: { x: width - 2, y: height / 2 } });
    const packet = await eventually(
      () => page.getByTestId("packet").inputValue(),
      (text) => text.endsWith("00 01"),
    );
    assert.equal(packet, "04 05 5a 04 64 00 01");
    assert.equal(await eventualText(page.getByTestId("decoded-low_water"), "false"), "false");
    // Also one that the filter leaves out.
    await page.getByTestId("capture-filter").fill("tx");
    await eventualText(page.getByTestId("filter-count"), "1 row");
    await over.click({ position: { x: 2, y: height / 2 } });
    const shown = await eventually(
      () => page.getByTestId("packet").inputValue(),
      (text) => text === "04 00 00 04 64 00 00",
    );
    assert.equal(shown, "04 00 00 04 64 00 00");
    assert.equal(await page.locator(".capture-row.chosen").count(), 0);
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
    assert.equal(await page.getByTestId("cancel").isVisible(), true);
    await eventually(
      () => page.getByTestId("cancel").isVisible(),
      (isVisible) => !isVisible,
      60_000,
    );
    assert.match(await page.getByTestId("capture-summary").innerText(), /large.log: 200,000 packets/);
    const longest = await page.evaluate(() => window.longest);
    assert.ok(longest < 1000, `the page stood still for ${longest} ms`);
    // The table holds only what is visible.
    assert.ok((await page.getByTestId("capture-row").count()) < 60);
    await page.getByTestId("capture-rows").evaluate((rows) => (rows.scrollTop = rows.scrollHeight));
    await eventually(
      () => page.getByTestId("capture-row").last().innerText(),
      (text) => text.startsWith("200000"),
    );
    await page.getByTestId("capture-row").last().click();
    assert.equal(await eventualText(page.getByTestId("decoded-power"), "true"), "true");
    // Again, and cancelled.
    await page.getByTestId("capture").setInputFiles(file);
    await page.getByTestId("cancel").click();
    const summary = await eventualText(page.getByTestId("capture-summary"), /cancelled/);
    assert.match(summary, /cancelled$/);
    assert.doesNotMatch(summary, /200,000/);
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
  await page.getByTestId("change").first().waitFor();
  const { findings } = JSON.parse(dp4("compare", "--format", "json", "examples/kettle.json", next));
  const changes = await page
    .getByTestId("change")
    .evaluateAll((items) => items.map((item) => [item.dataset.rule, item.querySelector("strong").textContent]));
  assert.deepEqual(
    changes,
    findings.map(({ rule, message }) => [rule, message]),
  );
  assert.ok(changes.length > 0);
  const rows = (id) => page.locator(`#${id} .row`).count();
  assert.equal(
    await eventually(
      () => rows("picture-after"),
      (count) => count === 8,
    ),
    8,
  );
  assert.equal(await rows("picture-before"), 7);
  assert.match(
    await page.locator(".summary").innerText(),
    /^kettle.json → next.json: 2 changes break devices in the field, 0 break applications, 1 breaks nobody$/,
  );
  // Each change leads to its place.
  const moved = page.getByTestId("change").filter({ hasText: "'target'" }).first();
  const line = KETTLE.split("\n").findIndex((text) => text.includes('"byte_offset": 1, "bit_offset": 0')) + 1;
  assert.match(await moved.innerText(), new RegExp(`line ${line} → ${line} · place-changed`));
  await moved.locator("button").click();
  assert.match(await eventualText(page.locator(".cm-activeLine"), /position/), /"position": \{"byte_offset": 1,/);
  await page.locator('[data-testid="field-target"].chosen').waitFor();
  // What was compared with stays until it is the same.
  await typeConfiguration(page, readFileSync(next, "utf8"));
  assert.match(await eventualText(page.locator(".summary"), /no changes/), /next.json: no changes$/);
});

test("comparing matches entities by their names, and tells which configuration is broken", async () => {
  const page = await openPage();
  await openConfiguration(page, pathOf("examples/gateway.json"));
  const gateway = JSON.parse(textOf("examples/gateway.json"));
  const [first, second] = gateway.entities;
  const opened = async (entities) =>
    page.getByTestId("compare").setInputFiles(fileWith("next.json", JSON.stringify({ ...gateway, entities })));
  await opened([second, first]);
  const firstNames = (id) =>
    eventually(
      async () => (await page.locator(`#${id} .name`).allInnerTexts()).filter((name) => name !== "").join(),
      (names) => names !== "",
    );
  const names = await firstNames("picture-before");
  assert.match(names, new RegExp(first.attrs[0].name));
  assert.equal(await firstNames("picture-after"), names);
  await page.getByTestId("entity").selectOption("1");
  await eventualText(page.locator("#picture-before"), new RegExp(second.attrs[0].name));
  await opened([first]); // the second is gone
  assert.equal(await eventualText(page.locator("#no-picture-after:visible"), /no/), "It has no such entity.");
  await page.getByTestId("entity").selectOption("0");
  await page.locator("#picture-after").waitFor();
  await opened([second]); // now the first is; the second is not compared with it
  assert.equal(await eventualText(page.locator("#no-picture-after:visible"), /no/), "It has no such entity.");
  await page.getByTestId("compare").setInputFiles(fileWith("broken.json", "{\n  1"));
  assert.match(await eventualText(page.getByTestId("compare-result"), /not JSON/), /^next version:2:3: not JSON/);
  assert.equal(await page.locator("#pictures").isVisible(), false);
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
    assert.equal(await page.getByTestId("export-command").innerText(), "dp4 layout kettle.json --svg kettle.svg");
    assert.equal(await shown("vectors", "kettle.vectors.json"), dp4("vectors", "examples/kettle.json"));
    const folder = fileWith("x", "").replace(/\/x$/, "");
    dp4("generate", "c", "examples/kettle.json", "--output", folder);
    for (const name of ["kettle.h", "kettle.c", "kettle_test.c"]) {
      assert.equal(await shown("c", name), readFileSync(`${folder}/${name}`, "utf8"));
    }
    assert.equal(await page.getByTestId("export-command").innerText(), "dp4 generate c kettle.json");
    dp4("generate", "wireshark", "examples/kettle.json", "--udp", "12416", "--output", folder);
    assert.equal(await shown("wireshark", "kettle.lua"), readFileSync(`${folder}/kettle.lua`, "utf8"));
  });

  test("of the packet follow the values", async () => {
    const page = await openPage();
    await page.getByTestId("packet").fill("01 07 05 5a");
    await eventualText(page.getByTestId("write-packet"), "01 07 05 5a");
    await page.getByTestId("export").click();
    await page.getByTestId("export-c-array").check();
    const command = await eventualText(page.getByTestId("export-command"), /encode/);
    assert.equal(command, "dp4 encode kettle.json --set power=true --set program=2 --set target=85 --output c-array");
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
    assert.equal(await page.locator(".export-file pre").textContent(), text);
  });
});

test("copying tells whether it was done", async () => {
  const page = await openPage();
  await page.getByTestId("packet").fill("01 07 05 5a");
  await eventualText(page.getByTestId("write-packet"), "01 07 05 5a");
  const copy = page.locator("#copy-write");
  await page.evaluate(() => {
    window.copied = [];
    Object.defineProperty(navigator, "clipboard", { value: undefined, configurable: true }); // as on plain HTTP
    document.addEventListener("copy", () => window.copied.push(String(document.activeElement.value)));
  });
  await copy.click();
  assert.equal(await eventualText(copy, "Copied"), "Copied");
  await page.getByTestId("share").click();
  await page.locator("#copy-link").click();
  assert.equal(await eventualText(page.locator("#copy-link"), "Copied"), "Copied");
  assert.deepEqual(await page.evaluate(() => window.copied), [
    "01 07 05 5a",
    await page.getByTestId("share-link").inputValue(),
  ]);
  await page.evaluate(() => (document.execCommand = () => false));
  await page.locator("#copy-link").click();
  assert.match(await eventualText(page.locator("#copy-link"), /not/), /did not copy/);
  assert.deepEqual(page.problems, []);
});

test("a link carries configuration and packet", async () => {
  const page = await openPage();
  const text = KETTLE.replace("Kettle K1", "Wasserkocher ☕");
  await typeConfiguration(page, text);
  await page.getByTestId("packet").fill("04 01 00 00 00 00 00");
  await eventualText(page.getByTestId("decoded-program"), "boil");
  await page.getByTestId("share").click();
  const link = await eventually(
    () => page.getByTestId("share-link").inputValue(),
    (value) => value !== "",
  );
  assert.ok(link.length < 1500, `${link.length} characters`);
  const other = await openPage({ hash: link.slice(link.indexOf("#")) });
  assert.equal(await other.getByTestId("packet").inputValue(), "04 01 00 00 00 00 00");
  assert.equal(await configurationOf(other), text);
  // It carries what is to be written as well.
  await page.keyboard.press("Escape");
  await page.getByTestId("value-target").fill("60");
  await page.getByTestId("sub-device").fill("7");
  await eventualText(page.getByTestId("write-packet"), "01 07 00 00 00 07 01 28");
  await page.getByTestId("share").click();
  const next = await eventually(
    () => page.getByTestId("share-link").inputValue(),
    (value) => value !== link,
  );
  const third = await openPage({ hash: next.slice(next.indexOf("#")) });
  assert.equal(await eventualText(third.getByTestId("write-packet"), /28$/), "01 07 00 00 00 07 01 28");
  assert.equal(await third.getByTestId("packet").inputValue(), "04 01 00 00 00 00 00");
  assert.match(await third.locator("#layout-packet").innerText(), /write packet/);
  const broken = await openPage({ hash: "#s=AAAA" });
  assert.match(await broken.getByTestId("status").innerText(), /link could not be read/);
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
    assert.equal(await page.evaluate(() => document.activeElement.id), "layout-section");
    await page.waitForTimeout(300); // for what must not happen
    assert.equal(await configurationOf(page), text);
    await page.getByTestId("packet").fill("04 00 00 00 00 00 00");
    await eventualText(page.locator('[data-bit="0"]'), "0");
    await page.locator('[data-bit="0"]').focus();
    await page.keyboard.press("ArrowRight");
    await page.keyboard.press("ArrowDown");
    assert.equal(await page.evaluate(() => document.activeElement.dataset.bit), "9");
    await page.keyboard.press("Enter");
    assert.equal(await eventualText(page.getByTestId("decoded-target"), "72"), "72");
    assert.equal(await page.evaluate(() => document.activeElement.dataset.bit), "9");
    // Choosing does not lose the focus.
    for (const list of ["#write-explanation", "#received"]) {
      const button = page.locator(`${list} .part button`).first();
      await button.focus();
      for (const name of ["power", "program"]) {
        await page.keyboard.press("Enter");
        assert.match(await eventualText(page.getByTestId("chosen"), new RegExp(`\\(${name}\\)`)), new RegExp(name));
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
      const packet = () => page.getByTestId("packet").inputValue();
      assert.equal(await eventually(packet, (text) => text === lines[line]), lines[line], key);
    }
    await page.locator(".cm-content").focus();
    await page.keyboard.press("Escape");
    await page.keyboard.press("Tab");
    assert.equal(await page.evaluate(() => document.activeElement.closest(".cm-editor")), null);
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
    assert.equal(await page.getByTestId("share-note").isVisible(), false); // the link is good everywhere
    assert.deepEqual(page.problems, []);
    assert.deepEqual(requests, ["/any/studio.html"]);
    server.close();
    server.closeAllConnections();
  });
});

describe("hostile input", () => {
  async function isAlive(page) {
    await openConfiguration(page, pathOf("examples/kettle.json"));
    await page.getByTestId("packet").fill("04 05 5a 04 64 01 01");
    return (await eventualText(page.getByTestId("decoded-target"), "85")) === "85";
  }

  test("of 50 MB is told, and the text is kept", async () => {
    const page = await openPage();
    await page.getByTestId("open").setInputFiles(fileWith("huge.json", " ".repeat(50 << 20)));
    assert.match(
      await eventualText(page.getByTestId("status"), /MB/),
      /huge.json has 50.0 MB; the studio opens configurations up to 8 MB/,
    );
    assert.equal(await configurationOf(page), KETTLE);
    assert.ok(await isAlive(page));
    // Pasted, it is in the editor.
    await page.locator(".cm-content").click();
    await page.evaluate(() => {
      const clipboardData = new DataTransfer();
      clipboardData.setData("text/plain", '{"a": "0123456789"},\n'.repeat(2_500_000));
      document
        .querySelector(".cm-content")
        .dispatchEvent(new ClipboardEvent("paste", { clipboardData, bubbles: true, cancelable: true }));
    });
    const told = await eventually(
      () => page.getByTestId("findings").innerText(),
      (text) => text.includes("bytes"),
      20_000,
    );
    assert.match(told, /the configuration has \d+ bytes; expected at most 8388608/);
    assert.ok(await isAlive(page));
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
    assert.match(await eventualText(page.locator("#packet-problem"), /column/), /column 4: /);
    await page.getByTestId("packet").fill("04".repeat(40_000));
    assert.match(await eventualText(page.locator("#packet-problem"), /too long/), /too long/);
    assert.ok(await isAlive(page));
    assert.deepEqual(page.problems, []);
  });

  test("in a capture, such as a line of 40 MB, is passed over", async () => {
    const page = await openPage();
    const text = ["04 00 00 04 64 00 00", "x".repeat(40 << 20), "\0\0", "04 01 00 04 64 00 00"].join("\n");
    await page.getByTestId("capture").setInputFiles(fileWith("long.log", text));
    const summary = await eventually(
      () => page.getByTestId("capture-summary").innerText(),
      (shown) => shown.includes("2 packets"),
      20_000,
    );
    assert.equal(summary, "long.log: 2 packets, 1 line without a valid packet, 1 line that the pattern does not match");
    const lines = await page.getByTestId("capture-row").locator(".line").allInnerTexts();
    assert.deepEqual(lines, ["1", "3", "4"]);
    assert.ok(await isAlive(page));
  });

  test("that crashes or blocks the WebAssembly restarts it, with the text kept", async () => {
    const page = await openPage();
    const text = KETTLE.replace("Kettle K1", "Kettle K3");
    await typeConfiguration(page, text);
    await eventually(
      () => page.workers().length,
      (count) => count > 0,
    );
    // No known input makes it trap, so the worker gets something that does what a trap does.
    await page.workers()[0].evaluate(() => {
      JSON.stringify = () => {
        throw new WebAssembly.RuntimeError("unreachable");
      };
    });
    await page.getByTestId("packet").fill("04 00 00 00 00 00 00");
    const told = await eventualText(page.getByTestId("status"), /restarted/);
    assert.match(told, /The analysis was restarted: RuntimeError: unreachable. Your text is kept/);
    assert.equal(await configurationOf(page), text);
    assert.ok(await isAlive(page));
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
    await eventually(
      () => page.getByTestId("status").innerText(),
      (status) => status.includes("too long"),
      15_000,
    );
    assert.match(await page.getByTestId("status").innerText(), /restarted: it took too long. Your text is kept/);
    assert.equal(await configurationOf(page), KETTLE);
    assert.ok(await isAlive(page));
  });
});

test("the findings of all of tests/lint and of the examples are those of dp4", async () => {
  const page = await openPage();
  const files = readdirSync(pathOf("tests/lint"))
    .filter((name) => name.endsWith(".json"))
    .map((name) => `tests/lint/${name}`);
  for (const path of [...files, ...EXAMPLES.map((name) => `examples/${name}.json`)]) {
    await openConfiguration(page, pathOf(path));
    const shown = (await shownFindings(page)).map(({ rule, line }) => `${line} ${rule}`);
    // A page cannot hold bytes that are not UTF-8; it tells so, and shows the rest.
    const text = new TextDecoder().decode(readFileSync(pathOf(path)));
    const isText = Buffer.from(text).equals(readFileSync(pathOf(path)));
    assert.equal((await page.getByTestId("status").innerText()).includes("not UTF-8"), !isText, path);
    // Errors come first.
    const findings = findingsOfDp4(isText ? path : fileWith("replaced.json", text));
    const expected = ["error", "warning", "info"].flatMap((kind) =>
      findings.filter(({ severity }) => severity === kind).map(({ rule, line }) => `${line} ${rule}`),
    );
    assert.deepEqual(shown, expected.slice(0, 200), path);
  }
});
