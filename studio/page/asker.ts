// Asks the WebAssembly, which runs in a worker so that the page stays alive whatever the input is.

import type { Answer } from "./forms";
import type { CapturePiece, FromWorker, ToWorker } from "./messages";

const PATIENCE_MS = 10_000;

// The WebAssembly and the worker's script are parts of the page.
async function unpackedModule(): Promise<WebAssembly.Module> {
  const text = document.getElementById("module")!.textContent!.trim();
  const bytes = Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("gzip"));
  return WebAssembly.compile(await new Response(stream).arrayBuffer());
}

const module = unpackedModule();
const workerUrl = URL.createObjectURL(
  new Blob([document.getElementById("worker")!.textContent!], { type: "text/javascript" }),
);

async function startedWorker(): Promise<Worker> {
  const worker = new Worker(workerUrl);
  worker.postMessage({ module: await module } satisfies ToWorker);
  return worker;
}

interface Waiting {
  resolve(answer: unknown): void;
  timer: number;
}

export class Asker {
  #worker: Promise<Worker> | undefined;
  #waiting = new Map<number, Waiting>();
  #next = 1;

  // onRestart is told why the worker had to be started again.
  constructor(private readonly onRestart: (reason: string) => void) {}

  async ask<T>(request: Record<string, unknown>): Promise<Answer<T>> {
    const worker = await this.#running();
    const id = this.#next++;
    return new Promise((resolve) => {
      const timer = window.setTimeout(() => this.#restart("it took too long"), PATIENCE_MS);
      this.#waiting.set(id, { resolve: resolve as (answer: unknown) => void, timer });
      worker.postMessage({ id, request } satisfies ToWorker);
    });
  }

  // The worker; while one is waited for, it may be given up for another.
  async #running(): Promise<Worker> {
    for (;;) {
      const starting = (this.#worker ??= this.#start());
      const worker = await starting;
      if (starting === this.#worker) return worker;
    }
  }

  async #start(): Promise<Worker> {
    const worker = await startedWorker();
    worker.onmessage = ({ data }: MessageEvent<FromWorker>) => {
      if ("crash" in data) return this.#restart(data.crash);
      if ("answer" in data) this.#settle(data.id, data.answer);
    };
    worker.onerror = (event) => this.#restart(event.message);
    return worker;
  }

  #settle(id: number, answer: unknown): void {
    const waiting = this.#waiting.get(id);
    if (waiting === undefined) return;
    window.clearTimeout(waiting.timer);
    this.#waiting.delete(id);
    waiting.resolve(answer);
  }

  #restart(reason: string): void {
    void this.#worker?.then((worker) => worker.terminate());
    this.#worker = undefined;
    for (const id of [...this.#waiting.keys()]) {
      this.#settle(id, { error: `this could not be worked out: ${reason}` });
    }
    this.onRestart(reason);
  }
}

interface CaptureListener {
  onPiece(piece: CapturePiece, taken: number, unmatched: number): void;
  onEnd(problem: string | undefined): void;
}

// Reads a capture in a worker of its own. Returns what cancels it.
export function readCapture(
  file: Blob,
  request: Record<string, unknown>,
  attributes: number,
  listener: CaptureListener,
): () => void {
  let isOver = false;
  const started = startedWorker();
  const end = (problem: string | undefined): void => {
    if (isOver) return;
    isOver = true;
    void started.then((worker) => worker.terminate());
    listener.onEnd(problem);
  };
  void started.then((worker) => {
    worker.onmessage = ({ data }: MessageEvent<FromWorker>) => {
      if (isOver) return;
      if ("piece" in data) listener.onPiece(data.piece, data.taken, data.unmatched);
      if ("done" in data) end(undefined);
      if ("crash" in data) end(data.crash);
    };
    worker.onerror = (event) => end(event.message);
    worker.postMessage({ id: 0, file, request, attributes } satisfies ToWorker);
  });
  return () => end("cancelled");
}
