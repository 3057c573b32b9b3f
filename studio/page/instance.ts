// One instance of the WebAssembly, which answers requests.

interface Exports {
  memory: WebAssembly.Memory;
  _initialize(): void;
  malloc(size: number): number;
  free(address: number): void;
  studio_ask(request: number, size: number): number;
  studio_size(): number;
}

const NO_SYSTEM_CALL = 52;

// What the C library asks of its surroundings: there are no streams, files, clocks or environment.
function imports(module: WebAssembly.Module, memory: () => WebAssembly.Memory): WebAssembly.Imports {
  const all: WebAssembly.Imports = {};
  for (const { module: from, name } of WebAssembly.Module.imports(module)) {
    (all[from] ??= {})[name] = () => NO_SYSTEM_CALL;
  }
  all.env = { ...all.env, emscripten_notify_memory_growth: () => undefined };
  all.wasi_snapshot_preview1 = {
    ...all.wasi_snapshot_preview1,
    proc_exit: (code: number) => {
      throw new Error(`the WebAssembly ended with ${code}`);
    },
    environ_get: () => 0,
    environ_sizes_get: (count: number, size: number) => {
      const view = new DataView(memory().buffer);
      view.setUint32(count, 0, true);
      view.setUint32(size, 0, true);
      return 0;
    },
  };
  return all;
}

export class Instance {
  readonly #exports: Exports;

  constructor(module: WebAssembly.Module) {
    const instance: WebAssembly.Instance = new WebAssembly.Instance(
      module,
      imports(module, () => (instance.exports as unknown as Exports).memory),
    );
    this.#exports = instance.exports as unknown as Exports;
    this.#exports._initialize();
  }

  ask(request: unknown): unknown {
    const { memory, malloc, free, studio_ask, studio_size } = this.#exports;
    // Half a surrogate pair, which a string of JavaScript can hold, is no text for others.
    const text = JSON.stringify(request).replace(/(?<!\\)((?:\\\\)*)\\ud[89a-f][0-9a-f]{2}/g, "$1\ufffd");
    const bytes = new TextEncoder().encode(text);
    const address = malloc(bytes.length);
    if (address === 0) return { error: "out of memory" };
    try {
      new Uint8Array(memory.buffer).set(bytes, address);
      const answer = studio_ask(address, bytes.length);
      return JSON.parse(new TextDecoder().decode(new Uint8Array(memory.buffer, answer, studio_size())));
    } finally {
      free(address);
    }
  }
}
