// The package in JavaScript's own terms, and the golden results of the examples.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import test from "node:test";
import { bytes, digits, errorOf, load, PACKAGE, ProtocolError, read, readJson } from "./support.mjs";

const notification = bytes("04055a04640101");
const kettleText = read("examples/kettle.json");
const protocol = await load();

for (const product of ["kettle", "air_conditioner", "gateway", "power_meter"]) {
  test(`the golden results of the ${product} hold`, () => {
    const entity = protocol.open(read(`examples/${product}.json`), product === "gateway" ? product : undefined);
    const packet = bytes(read(`examples/${product}.notify.hex`));
    const golden = (name) => readJson(`tests/golden/${product}.${name}.json`);
    assert.deepEqual(entity.decode(packet), golden("decoded"));
    const { document, ...active } = entity.receive(packet);
    assert.deepEqual(JSON.parse(document), golden("flat"));
    assert.deepEqual(active, golden("active"));
    const write = entity.encode(readJson(`examples/${product}.values.json`));
    assert.deepEqual(write, bytes(read(`tests/golden/${product}.write.hex`)));
    entity.close();
  });
}

test("the golden write to a sub-device holds", () => {
  const thermostat = protocol.open(read("examples/gateway.json"), "thermostat");
  const write = thermostat.encode(readJson("examples/gateway.values.json"), { command: 7, subDevice: 0x0a0b0c0d });
  assert.deepEqual(write, bytes(read("tests/golden/gateway.subdevice.write.hex")));
  thermostat.close();
});

test("it is loaded from bytes or a module, too", async () => {
  const file = await readFile(new URL("morvix_protocol.wasm", PACKAGE));
  const buffer = file.buffer.slice(file.byteOffset, file.byteOffset + file.byteLength);
  for (const source of [file, new Uint8Array(file), buffer, await WebAssembly.compile(file)]) {
    assert.equal(digits((await load(source)).request(2)), "02");
  }
  await assert.rejects(load(Uint8Array.of(1, 2, 3)), WebAssembly.CompileError);
});

test("where there is no process, as in a browser, it is fetched", async () => {
  const { fetch, process } = globalThis;
  const file = await readFile(new URL("morvix_protocol.wasm", PACKAGE));
  const asked = [];
  globalThis.fetch = async (url) => {
    asked.push(String(url));
    return new Response(file);
  };
  delete globalThis.process;
  try {
    assert.equal(digits((await load()).request(2)), "02");
  } finally {
    Object.assign(globalThis, { fetch, process });
  }
  // The package may be a link, which the name of its file resolves.
  assert.equal(asked.length, 1);
  assert.match(asked[0], /^file:.*\/morvix_protocol\.wasm$/);
});

test("the version is the module's", async () => {
  const header = read("Protocol/AllVersions/v4/ProtocolInternal_v4.0.h");
  assert.ok(header.includes(`#define MORVIX_PROTOCOL_VERSION "${protocol.version}"`));
  assert.equal(JSON.parse(await readFile(new URL("package.json", PACKAGE))).version, protocol.version);
});

test("packets may be in a Uint8Array, a Buffer, part of one, or an ArrayBuffer", () => {
  const kettle = protocol.open(kettleText);
  const expected = kettle.receive(notification);
  const longer = Uint8Array.of(9, 9, ...notification, 9);
  for (const packet of [Buffer.from(notification), longer.subarray(2, 9), notification.buffer]) {
    assert.deepEqual(kettle.receive(packet), expected);
  }
  for (const wrong of ["04055a", 7, null, undefined, [4, 5]]) {
    assert.match(errorOf(() => kettle.decode(wrong)).message, /is not a Uint8Array/);
  }
  kettle.close();
});

test("configurations may be strings or bytes", () => {
  assert.equal(protocol.entities(Buffer.from(kettleText))[0].name, "kettle");
  for (const wrong of [7, null, {}]) assert.ok(errorOf(() => protocol.open(wrong)) instanceof ProtocolError);
});

test("a closed entity refuses every call", () => {
  const kettle = protocol.open(kettleText);
  kettle.close();
  for (const call of ["describe", "encode", "decode", "receive", "close"]) {
    const error = errorOf(() => kettle[call](notification));
    assert.ok(error instanceof ProtocolError);
    assert.equal(error.message, "the entity is closed");
  }
});

test("sub-devices are of 32 bits, signed or unsigned", () => {
  const kettle = protocol.open(kettleText);
  const write = (subDevice) => digits(kettle.encode({ kettle: { power: true } }, { subDevice }));
  assert.equal(write(-2), "01feffffff010100");
  assert.equal(write(0xfffffffe), "01feffffff010100");
  for (const wrong of [2 ** 32, -(2 ** 31) - 1, 1.5, NaN, "5"]) {
    assert.match(errorOf(() => write(wrong)).message, /^sub-device .* is out of range/);
    assert.match(errorOf(() => protocol.request(8, wrong)).message, /^sub-device .* is out of range/);
  }
  for (const wrong of [2 ** 31, -(2 ** 31) - 1, 0.5, "1"]) {
    assert.match(errorOf(() => protocol.request(wrong)).message, /^command .* is out of range/);
    assert.match(errorOf(() => kettle.encode({}, { command: wrong })).message, /^command .* is out of range/);
  }
  const expected = "expected an integer from -2147483648 to 2147483647";
  assert.equal(errorOf(() => protocol.request("2")).message, `command "2" is out of range; ${expected}`);
  kettle.close();
});

test("what the values run on their way to JSON can encode as well", () => {
  const kettle = protocol.open(kettleText);
  const values = {
    get kettle() {
      kettle.encode({ kettle: { power: false } }, { command: 7, subDevice: 99 });
      return { power: true };
    },
  };
  assert.equal(digits(kettle.encode(values, { command: 7, subDevice: 5 })), "0705000000010100");
  kettle.close();
});

test("what the values run on their way to JSON can close the entity", () => {
  const kettle = protocol.open(kettleText);
  const values = {
    get kettle() {
      kettle.close();
      return { power: true };
    },
  };
  assert.equal(errorOf(() => kettle.encode(values)).message, "the entity is closed");
});

test("values that JSON cannot express are refused", () => {
  const kettle = protocol.open(kettleText);
  const circle = {};
  circle.kettle = circle;
  for (const wrong of [undefined, null, circle]) {
    assert.ok(errorOf(() => kettle.encode(wrong)) instanceof ProtocolError);
  }
  const refusal = (value) => {
    const error = errorOf(() => kettle.encode({ kettle: { power: true, target: value } }));
    assert.ok(error instanceof ProtocolError);
    return error.message;
  };
  assert.equal(refusal(NaN), "'target': NaN is not a finite number");
  assert.equal(refusal(-Infinity), "'target': -Infinity is not a finite number");
  assert.equal(refusal(85n), "'target': a bigint is not taken; expected a boolean, number or string");
  assert.equal(
    refusal(() => 85),
    "'target': a function is not taken; expected a boolean, number or string",
  );
  // JSON has a date as text that begins with its year.
  assert.equal(refusal(new Date(0)), "'target': an object is not taken; expected a boolean, number or string");
  assert.match(refusal(Buffer.of(85)), /^'target': an object is of a kind that it does not take/);
  assert.equal(digits(kettle.encode({ kettle: { power: true, target: undefined } }, null)), "01010100");
  kettle.close();
});

test("a packet that is too short has a warning", () => {
  const kettle = protocol.open(kettleText);
  const short = bytes("04055a04");
  assert.deepEqual(kettle.decode(short), {});
  const received = kettle.receive(short);
  assert.deepEqual(received, { document: '{"version":4.0}\n', alerts: [], faults: [] });
  assert.deepEqual(Object.keys(received), ["document", "alerts", "faults"]);
  assert.deepEqual(received.warnings, ["Decode value is invalid."]);
  assert.equal("warnings" in kettle.receive(notification), false);
  kettle.close();
});

test("the name of an entity is a string without NUL, or none", () => {
  for (const wrong of [7, {}, "kettle\0"]) {
    const { message } = errorOf(() => protocol.open(kettleText, wrong));
    assert.equal(message, "the name of the entity is not a string, or contains a NUL");
  }
  for (const none of [undefined, null]) protocol.open(kettleText, none).close();
});

test("names of entities are compared as UTF-8", () => {
  const text = JSON.stringify({ entities: [{ id: 0, name: "Küche 🍳", display_name: "", attrs: [] }] });
  const entity = protocol.open(text, "Küche 🍳");
  assert.equal(entity.describe().name, "Küche 🍳");
  entity.close();
  const { message } = errorOf(() => protocol.open(text, "K\n"));
  assert.equal(message, "no entity has the name 'K\\x0a'; expected one of: 'Küche 🍳'");
});

test("deep nesting is refused or read, and does not end the instance", () => {
  for (const depth of [500, 900, 1100, 100000]) {
    const text = `{"entities":[],"x":${"[".repeat(depth)}${"]".repeat(depth)}}`;
    if (depth < 1000) assert.deepEqual(protocol.entities(text), []);
    else assert.equal(errorOf(() => protocol.entities(text)).message, "the configuration is nested too deep");
  }
});

test("instances are independent", async () => {
  const [one, other] = [await load(), await load()];
  const kettle = one.open(kettleText);
  const thermostat = other.open(read("examples/gateway.json"), "thermostat");
  const large = other.open(read("examples/air_conditioner.json"));
  assert.equal(kettle.describe().name, "kettle");
  thermostat.close();
  large.close();
  assert.equal(kettle.receive(notification).alerts[0].name, "Low water");
  kettle.close();
});
