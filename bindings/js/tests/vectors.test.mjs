// Test vectors that dp4 makes of the examples hold: MORVIX_VECTORS is a folder of PRODUCT.ENTITY.json.

import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import test from "node:test";
import { bytes, load, ProtocolError, read } from "./support.mjs";

const folder = process.env.MORVIX_VECTORS;
const protocol = await load();
const files = readdirSync(folder).filter((file) => file.endsWith(".json"));

test("there are vectors of every entity", () => assert.equal(files.length, 5));

for (const file of files) {
  const [product, name] = file.split(".");
  test(`the vectors of ${name} of ${product} hold`, () => {
    const entity = protocol.open(read(`examples/${product}.json`), name);
    const vectors = JSON.parse(readFileSync(join(folder, file), "utf8"));
    assert.equal(vectors.entity, name);
    assert.ok(vectors.writes.length > 0 && vectors.notifications.length > 0);
    for (const { values, packet } of vectors.writes) assert.deepEqual(entity.encode({ [name]: values }), bytes(packet));
    for (const { packet, document } of vectors.notifications) assert.deepEqual(entity.decode(bytes(packet)), document);
    for (const { values } of vectors.refused) {
      assert.throws(() => entity.encode({ [name]: values }), ProtocolError);
    }
    entity.close();
  });
}
