// What a call costs in WebAssembly, without JavaScript's part in it, beside the same call of the native library, which
// the program MORVIX_NATIVE_COST times. 40 attributes: bools, enums, numbers, alerts, faults and two binaries.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import test from "node:test";
import { setFlagsFromString } from "node:v8";
import { PACKAGE } from "./support.mjs";

// A module is optimised in the background, sooner or later. Here it is from the start.
setFlagsFromString("--no-liftoff");

const BAR = 3.5;
// The best of many short spans: other work on the machine, which takes turns of some milliseconds, spares one of them.
const CALLS = 200;
const SPANS = 100;
const RUNS = 25;

function configuration() {
  const attrs = [];
  let offset = 0;
  const add = (kind, type, dataType, unit, len, more = {}) => {
    const name = `${kind}_${attrs.length}`;
    const position = { byte_offset: offset, bit_offset: 0, unit, len };
    attrs.push({ id: attrs.length, name, display_name: name, desc: "", type, data_type: dataType, position, ...more });
    offset += unit === "bit" ? 1 : len;
  };
  const scaled = (max, ratio) => ({ uint_spec: { min: 0, max, ratio, addition: 0 } });
  for (let i = 0; i < 10; ++i) add("switch", "status_writable", "bool", "bit", 1);
  for (let i = 0; i < 4; ++i) add("mode", "status_writable", "enum", "bit", 2, { enum: ["a", "b", "c", "d"] });
  for (let i = 0; i < 6; ++i) add("level", "status_writable", "uint8", "byte", 1, scaled(255, 1));
  for (let i = 0; i < 6; ++i) add("heat", "status_readonly", "uint16", "byte", 2, scaled(65535, 0.1));
  for (let i = 0; i < 4; ++i) add("count", "status_readonly", "uint32", "byte", 4, scaled(4294967295, 1));
  for (let i = 0; i < 2; ++i) add("key", "status_readonly", "binary", "byte", 16);
  for (let i = 0; i < 4; ++i) add("alert", "alert", "bool", "bit", 1);
  for (let i = 0; i < 4; ++i) add("fault", "fault", "bool", "bit", 1);
  assert.equal(attrs.length, 40);
  const packet = Uint8Array.from({ length: 1 + offset }, (_, i) => (i === 0 ? 4 : (i * 7) & 0xff));
  return [JSON.stringify({ entities: [{ id: 0, name: "box", display_name: "Box", attrs }] }), packet];
}

// The exports, called as they are.
function receiver(text, packet) {
  const module = new WebAssembly.Module(readFileSync(new URL("morvix_protocol.wasm", PACKAGE)));
  const needed = {};
  for (const { module: from, name } of WebAssembly.Module.imports(module)) (needed[from] ??= {})[name] = () => 0;
  const { exports } = new WebAssembly.Instance(module, needed);
  exports._initialize();
  const put = (data) => {
    const address = exports.malloc(data.length);
    new Uint8Array(exports.memory.buffer, address, data.length).set(data);
    return address;
  };
  const word = (address) => new DataView(exports.memory.buffer).getUint32(address, true);
  const bytes = new TextEncoder().encode(text);
  const outputs = exports.malloc(24);
  assert.equal(exports.morvix_entity_open(put(bytes), bytes.length, 0, outputs, 0), 0);
  const entity = word(outputs);
  const address = put(packet);
  return () => {
    const status = exports.morvix_receive(entity, address, packet.length, outputs, outputs + 8, 0);
    if (status !== 0) throw new Error(`status ${status}`);
    exports.morvix_free(word(outputs));
    exports.morvix_free(word(outputs + 8));
  };
}

test("a call costs at most 3.5 times what it costs natively", (context) => {
  const [text, packet] = configuration();
  const folder = mkdtempSync(join(tmpdir(), "morvix-cost-"));
  try {
    const files = [join(folder, "configuration"), join(folder, "packet")];
    writeFileSync(files[0], text);
    writeFileSync(files[1], packet);
    const receive = receiver(text, packet);
    let best = Infinity;
    let native = Infinity;
    for (let run = 0; run < RUNS; ++run) {
      for (let span = 0; span < SPANS; ++span) {
        const start = process.hrtime.bigint();
        for (let i = 0; i < CALLS; ++i) receive();
        best = Math.min(best, Number(process.hrtime.bigint() - start) / CALLS);
      }
      native = Math.min(native, Number(execFileSync(process.env.MORVIX_NATIVE_COST, [...files, String(CALLS)])));
    }
    const ratio = best / native;
    context.diagnostic(`${best.toFixed(0)} ns, native ${native.toFixed(0)} ns: ${ratio.toFixed(2)}, at most ${BAR}`);
    assert.ok(ratio <= BAR, `${ratio}`);
  } finally {
    rmSync(folder, { recursive: true });
  }
});
