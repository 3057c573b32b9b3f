// What the tests share: the package under test and the repository's files.

import { readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

const ROOT = new URL("../../../", import.meta.url);
export const PACKAGE = new URL(process.env.MORVIX_PACKAGE ?? "build/js/package/", ROOT);

export const pathOf = (name) => fileURLToPath(new URL(name, ROOT));
export const read = (name) => readFileSync(new URL(name, ROOT), "utf8");
export const readJson = (name) => JSON.parse(read(name));
export const bytes = (digits) => Uint8Array.from(Buffer.from(digits.replace(/\s/g, ""), "hex"));
export const digits = (packet) => Buffer.from(packet).toString("hex");

export const { load, ProtocolError } = await import(new URL("index.js", PACKAGE).href);

// The error of a call that is to fail.
export function errorOf(call) {
  try {
    call();
  } catch (error) {
    return error;
  }
  throw new Error("the call did not fail");
}
