// A link that carries the configuration and the packets, compressed, in its fragment. Servers never see a fragment.

import type { Values } from "./forms";
import type { Write } from "./studio";

export interface Shared {
  file: string;
  configuration: string;
  entity: number;
  packet: string;
  write?: Write | undefined;
}

const PREFIX = "#s=";
const MOST_CHARACTERS = 16 << 20; // a short link could unpack to anything

async function through(
  bytes: Uint8Array<ArrayBuffer>,
  transform: GenericTransformStream,
): Promise<Uint8Array<ArrayBuffer>> {
  const reader = new Blob([bytes])
    .stream()
    .pipeThrough(transform as TransformStream<Uint8Array, Uint8Array>)
    .getReader();
  const pieces: Uint8Array<ArrayBuffer>[] = [];
  let size = 0;
  for (;;) {
    const { done, value } = await reader.read();
    if (done) break;
    size += value.length;
    if (size > MOST_CHARACTERS) throw new Error("the link holds too much");
    pieces.push(value as Uint8Array<ArrayBuffer>);
  }
  return new Uint8Array(await new Blob(pieces).arrayBuffer());
}

export async function fragmentOf(shared: Shared): Promise<string> {
  const text = new TextEncoder().encode(JSON.stringify(shared));
  const packed = await through(text, new CompressionStream("deflate-raw"));
  let characters = "";
  for (const byte of packed) characters += String.fromCharCode(byte);
  return PREFIX + btoa(characters).replace(/\+/g, "-").replace(/\//g, "_").replace(/=+$/, "");
}

// What a fragment carries; undefined when it is no link of ours. Throws when it is a broken one.
export async function sharedIn(fragment: string): Promise<Shared | undefined> {
  if (!fragment.startsWith(PREFIX)) return undefined;
  const text = atob(fragment.slice(PREFIX.length).replace(/-/g, "+").replace(/_/g, "/"));
  const packed = Uint8Array.from(text, (character) => character.charCodeAt(0));
  const unpacked = await through(packed, new DecompressionStream("deflate-raw"));
  return sharedOf(JSON.parse(new TextDecoder().decode(unpacked)));
}

function valuesOf(values: unknown): Values {
  const isValue = (one: unknown): boolean => ["boolean", "number", "string"].includes(typeof one);
  return Object.fromEntries(Object.entries(values ?? {}).filter(([, one]) => isValue(one))) as Values;
}

function writeOf(value: unknown): Write | undefined {
  if (typeof value !== "object" || value === null) return undefined;
  const { values, command, subDevice, others, isShown } = value as Partial<Write>;
  return {
    values: valuesOf(values),
    command: String(command ?? "write"),
    subDevice: Number.isInteger(Number(subDevice)) ? String(subDevice ?? "").trim() : "",
    others: Object.fromEntries(Object.entries(others ?? {}).map(([index, one]) => [index, valuesOf(one)])),
    isShown: isShown !== false,
  };
}

// What somebody has shared or kept, whatever else it is.
export function sharedOf(value: unknown): Shared {
  const shared = (value ?? {}) as Partial<Shared>;
  return {
    file: String(shared.file ?? "shared.json"),
    configuration: String(shared.configuration ?? ""),
    entity: Number.isInteger(shared.entity) && shared.entity! >= 0 ? shared.entity! : 0,
    packet: String(shared.packet ?? ""),
    write: writeOf(shared.write),
  };
}
