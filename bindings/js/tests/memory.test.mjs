// Memory is freed: a million opens and decodes, successes and failures, leave the instance as large as it was.

import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import test from "node:test";
import { PACKAGE, ProtocolError } from "./support.mjs";

const text = JSON.stringify({
  entities: [
    {
      id: 0, name: "lamp", display_name: "Lamp",
      attrs: [
        {
          id: 0, name: "on", display_name: "On", desc: "", type: "status_writable", data_type: "bool",
          position: { byte_offset: 0, bit_offset: 0, unit: "bit", len: 1 },
        },
      ],
    },
  ],
});

// The memory of the instance that `load` makes next.
async function loadWithMemory() {
  const { load } = await import(new URL("index.js", PACKAGE).href);
  const instantiate = WebAssembly.instantiate;
  let memory;
  WebAssembly.instantiate = async (...given) => {
    const instance = await instantiate.apply(WebAssembly, given);
    memory = instance.exports.memory;
    return instance;
  };
  try {
    return [await load(await readFile(new URL("morvix_protocol.wasm", PACKAGE))), memory];
  } finally {
    WebAssembly.instantiate = instantiate;
  }
}

test("a million opens and decodes do not grow", async () => {
  const [protocol, memory] = await loadWithMemory();
  const round = (i) => {
    const lamp = protocol.open(text, "lamp");
    assert.equal(lamp.decode(Uint8Array.of(4, i & 1)).lamp.on.value, (i & 1) === 1);
    if (i % 100 === 0) {
      assert.throws(() => protocol.open(text, "pan"), ProtocolError);
      assert.throws(() => lamp.encode({ lamp: { on: [] } }), ProtocolError);
      assert.throws(() => lamp.decode(Uint8Array.of(1)), ProtocolError);
      lamp.receive(Uint8Array.of(4, 1));
      lamp.encode({ lamp: { on: true } });
      lamp.describe();
    }
    lamp.close();
  };
  for (let i = 0; i < 1000; ++i) round(i);
  const size = memory.buffer.byteLength;
  for (let i = 0; i < 1_000_000; ++i) round(i);
  assert.equal(memory.buffer.byteLength, size);
});
