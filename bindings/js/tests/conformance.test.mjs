// The cases that every language runs.

import assert from "node:assert/strict";
import test from "node:test";
import { bytes, digits, errorOf, load, ProtocolError, read, readJson } from "./support.mjs";

const table = readJson("tests/conformance.json");
const cases = table.cases.filter(({ languages }) => (languages ?? ["js"]).includes("js"));
const protocol = await load();

function configurationOf(given) {
  const configuration = table.configurations[given.configuration];
  if (configuration.file !== undefined) return read(configuration.file);
  if (configuration.json !== undefined) return JSON.stringify(configuration.json);
  return configuration.text ?? bytes(configuration.hex);
}

function withEntity(given, work) {
  const entity = protocol.open(configurationOf(given), given.entity);
  try {
    return work(entity);
  } finally {
    entity.close();
  }
}

function packetOf(given) {
  const packet = bytes(given.packet);
  const padded = new Uint8Array(given.size ?? packet.length);
  padded.set(packet);
  return padded;
}

const calls = {
  entities: (given) => protocol.entities(configurationOf(given)),
  open: (given) => withEntity(given, (entity) => assert.equal(entity.warnings.join("\n"), given.message ?? "")),
  describe: (given) => withEntity(given, (entity) => entity.describe()),
  encode: (given) => {
    const { values, command, subDevice } = given;
    return withEntity(given, (entity) => digits(entity.encode(values, { command, subDevice })));
  },
  request: (given) => digits(protocol.request(given.command, given.subDevice)),
  decode: (given) => withEntity(given, (entity) => entity.decode(packetOf(given))),
  receive: (given) =>
    withEntity(given, (entity) => {
      const received = entity.receive(packetOf(given));
      assert.equal((received.warnings ?? []).join("\n"), given.message ?? "");
      return received;
    }),
};

for (const given of cases) {
  test(given.name, () => {
    if ((given.status ?? "ok") === "ok") {
      assert.deepEqual(calls[given.call](given), given.result);
      return;
    }
    const error = errorOf(() => calls[given.call](given));
    assert.ok(error instanceof ProtocolError, error.stack);
    assert.equal(error.message, given.message);
  });
}

test("most cases are for JavaScript", () => assert.ok(cases.length > 50));
