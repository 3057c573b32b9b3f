// The C interface, as WebAssembly, for JavaScript.

const ABI = 1;
const OK = 0;

// Addresses of outputs in a block that every instance allocates once: two pointers with sizes, a message, an id.
const OUTPUT = 0;
const SECOND_OUTPUT = 8;
const MESSAGE = 16;
const SUB_DEVICE = 20;
const BLOCK_SIZE = 24;

const encoder = new TextEncoder();
const decoder = new TextDecoder();

export class ProtocolError extends Error {
  constructor(message) {
    super(message);
    this.name = "ProtocolError";
  }
}

function bytesOf(data) {
  if (data instanceof Uint8Array) return data;
  if (data instanceof ArrayBuffer) return new Uint8Array(data);
  throw new ProtocolError("the packet is not a Uint8Array or ArrayBuffer");
}

function textBytes(text) {
  if (typeof text === "string") return encoder.encode(text);
  if (text instanceof Uint8Array) return text;
  throw new ProtocolError("the configuration is not a string or Uint8Array");
}

function nameBytes(name) {
  if (typeof name === "string" && !name.includes("\0")) return encoder.encode(name);
  throw new ProtocolError("the name of the entity is not a string, or contains a NUL");
}

// What JSON would silently change or leave out. Called by JSON.stringify with the object that has the value as `this`.
function checkValue(name, value) {
  if (typeof value !== "object" && typeof this[name] === "object") {
    throw new ProtocolError(`'${name}': an object is not taken; expected a boolean, number or string`);
  }
  if (typeof value === "number" && !Number.isFinite(value)) {
    throw new ProtocolError(`'${name}': ${value} is not a finite number`);
  }
  if (["bigint", "function", "symbol"].includes(typeof value)) {
    throw new ProtocolError(`'${name}': a ${typeof value} is not taken; expected a boolean, number or string`);
  }
  return value;
}

function valuesText(values) {
  try {
    return JSON.stringify(values, checkValue) ?? "null";
  } catch (error) {
    if (error instanceof ProtocolError) throw error;
    throw new ProtocolError(`the values cannot be written as JSON: ${error.message}`);
  }
}

function checkInteger(value, name, min, max) {
  if (Number.isInteger(value) && value >= min && value <= max) return;
  const given = typeof value === "string" ? JSON.stringify(value) : String(value);
  throw new ProtocolError(`${name} ${given} is out of range; expected an integer from ${min} to ${max}`);
}

function checkCommand(command) {
  checkInteger(command, "command", -(2 ** 31), 2 ** 31 - 1);
}

// The instance's memory, and calls of its functions.
class Native {
  constructor(instance) {
    this.exports = instance.exports;
    this.memory = instance.exports.memory;
    this.exports._initialize();
    this.block = this.exports.malloc(BLOCK_SIZE);
    if (this.exports.morvix_abi() !== ABI) throw new ProtocolError("the WebAssembly file is of another version");
  }

  // The memory can grow, and then is another buffer.
  view() {
    const { buffer } = this.memory;
    if (this.data === undefined || this.data.buffer !== buffer) this.data = new DataView(buffer);
    return this.data;
  }

  word(offset) {
    return this.view().getUint32(this.block + offset, true);
  }

  slice(address, size) {
    return new Uint8Array(this.memory.buffer, address, size).slice();
  }

  text(address, size) {
    return decoder.decode(new Uint8Array(this.memory.buffer, address, size));
  }

  stringAt(address) {
    const bytes = new Uint8Array(this.memory.buffer);
    return this.text(address, bytes.indexOf(0, address) - address);
  }

  // Calls `work` with the address of a copy of the bytes, which ends with a 0.
  withBytes(bytes, work) {
    const address = this.exports.malloc(bytes.length + 1);
    if (address === 0) throw new ProtocolError("out of memory");
    try {
      const copy = new Uint8Array(this.memory.buffer, address, bytes.length + 1);
      copy.set(bytes);
      copy[bytes.length] = 0;
      return work(address, bytes.length);
    } finally {
      this.exports.morvix_free(address);
    }
  }

  // The warnings of a call. Throws when it failed.
  check(status) {
    const address = this.word(MESSAGE);
    const message = address === 0 ? "" : this.stringAt(address);
    this.exports.morvix_free(address);
    if (status !== OK) throw new ProtocolError(message || "out of memory");
    return message;
  }

  take(offset, read) {
    const address = this.word(offset);
    const result = read.call(this, address, this.word(offset + 4));
    this.exports.morvix_free(address);
    return result;
  }

  takeBytes(offset = OUTPUT) {
    return this.take(offset, this.slice);
  }

  takeText(offset = OUTPUT) {
    return this.take(offset, this.text);
  }

  takeJson(offset = OUTPUT) {
    return JSON.parse(this.takeText(offset));
  }

  // The address of a sub-device id, or 0 for none. Ids may be given signed or unsigned.
  subDevice(id) {
    if (id === undefined || id === null) return 0;
    checkInteger(id, "sub-device", -(2 ** 31), 2 ** 32 - 1);
    this.view().setInt32(this.block + SUB_DEVICE, id | 0, true);
    return this.block + SUB_DEVICE;
  }

  address(offset) {
    return this.block + offset;
  }
}

export class Entity {
  #native;
  #handle;

  constructor(native, handle, warnings) {
    this.#native = native;
    this.#handle = handle;
    this.warnings = warnings;
  }

  #open() {
    if (this.#handle === 0) throw new ProtocolError("the entity is closed");
    return this.#native;
  }

  describe() {
    const native = this.#open();
    const status = native.exports.morvix_entity_describe(this.#handle, native.address(OUTPUT));
    if (status !== OK) throw new ProtocolError("out of memory");
    return native.takeJson();
  }

  encode(values, options) {
    const { command = 1, subDevice } = options ?? {};
    checkCommand(command);
    const text = encoder.encode(valuesText(values)); // runs code of the caller, which may encode or close as well
    const native = this.#open();
    const id = native.subDevice(subDevice);
    return native.withBytes(text, (address, size) => {
      const { morvix_encode } = native.exports;
      const [output, message] = [native.address(OUTPUT), native.address(MESSAGE)];
      native.check(morvix_encode(this.#handle, address, size, command, id, output, message));
      return native.takeBytes();
    });
  }

  decode(packet) {
    const native = this.#open();
    return native.withBytes(bytesOf(packet), (address, size) => {
      const { morvix_decode } = native.exports;
      native.check(morvix_decode(this.#handle, address, size, native.address(OUTPUT), native.address(MESSAGE)));
      return native.takeJson();
    });
  }

  receive(packet) {
    const native = this.#open();
    return native.withBytes(bytesOf(packet), (address, size) => {
      const { morvix_receive } = native.exports;
      const [first, second, message] = [OUTPUT, SECOND_OUTPUT, MESSAGE].map((offset) => native.address(offset));
      const warnings = native.check(morvix_receive(this.#handle, address, size, first, second, message));
      const document = native.takeText();
      const received = { document, ...native.takeJson(SECOND_OUTPUT) };
      // Not enumerable: results of equal contents are equal, whatever there was to say about their packets.
      if (warnings !== "") Object.defineProperty(received, "warnings", { value: warnings.split("\n") });
      return received;
    });
  }

  close() {
    this.#open().exports.morvix_entity_close(this.#handle);
    this.#handle = 0;
  }
}

export class Protocol {
  #native;

  constructor(instance) {
    this.#native = new Native(instance);
    this.version = this.#native.stringAt(this.#native.exports.morvix_version());
  }

  entities(configuration) {
    const native = this.#native;
    return native.withBytes(textBytes(configuration), (address, size) => {
      const { morvix_entities } = native.exports;
      native.check(morvix_entities(address, size, native.address(OUTPUT), native.address(MESSAGE)));
      return native.takeJson();
    });
  }

  open(configuration, name) {
    const native = this.#native;
    const openNamed = (nameAddress) =>
      native.withBytes(textBytes(configuration), (address, size) => {
        const { morvix_entity_open } = native.exports;
        const [output, message] = [native.address(OUTPUT), native.address(MESSAGE)];
        const warnings = native.check(morvix_entity_open(address, size, nameAddress, output, message));
        return new Entity(native, native.word(OUTPUT), Object.freeze(warnings === "" ? [] : warnings.split("\n")));
      });
    return name === undefined || name === null ? openNamed(0) : native.withBytes(nameBytes(name), openNamed);
  }

  request(command, subDevice) {
    const native = this.#native;
    checkCommand(command);
    const id = native.subDevice(subDevice);
    const { morvix_request } = native.exports;
    native.check(morvix_request(command, id, native.address(OUTPUT), native.address(MESSAGE)));
    return native.takeBytes();
  }
}

// What the C library asks of its surroundings. There are no streams and no environment.
function imports(memory) {
  const NO_SYSTEM_CALL = 52;
  const none = () => NO_SYSTEM_CALL;
  return {
    env: { emscripten_notify_memory_growth() {} },
    wasi_snapshot_preview1: {
      proc_exit(code) {
        throw new ProtocolError(`the WebAssembly module ended with ${code}`);
      },
      environ_sizes_get(count, size) {
        const view = new DataView(memory().buffer);
        view.setUint32(count, 0, true);
        view.setUint32(size, 0, true);
        return 0;
      },
      environ_get: () => 0,
      fd_close: none,
      fd_write: none,
      fd_seek: none,
    },
  };
}

async function readModule() {
  const url = new URL("./morvix_protocol.wasm", import.meta.url);
  if (url.protocol !== "file:" || typeof process === "undefined") return (await fetch(url)).arrayBuffer();
  const { readFile } = await import("node:fs/promises");
  return readFile(url);
}

export async function load(source) {
  const given = source ?? (await readModule());
  const module = given instanceof WebAssembly.Module ? given : await WebAssembly.compile(given);
  const instance = await WebAssembly.instantiate(module, imports(() => instance.exports.memory));
  return new Protocol(instance);
}
