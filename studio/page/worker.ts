// The worker: answers requests with an instance of its own, and reads captures piece by piece.

import type { CaptureRow, CaptureRows } from "./forms";
import { isFailure } from "./forms";
import { Instance } from "./instance";
import type { CapturePiece, FromWorker, ToWorker } from "./messages";
import { secondsOf } from "./time";

const PIECE_CHARACTERS = 1 << 18;
const MOST_LINE_CHARACTERS = 1 << 20; // far more than a packet has

let instance: Instance | undefined;

function post(message: FromWorker, transfer: Transferable[] = []): void {
  (self as unknown as Worker).postMessage(message, transfer);
}

function columnsOf(rows: CaptureRow[], attributes: number): CapturePiece {
  const piece: CapturePiece = {
    lines: Float64Array.from(rows, (row) => row.line),
    times: rows.map((row) => row.time ?? ""),
    seconds: Float64Array.from(rows, (row) => secondsOf(row.time ?? "")),
    others: rows.map((row) => row.others ?? ""),
    packets: rows.map((row) => row.packet ?? ""),
    commands: rows.map((row) => row.command ?? ""),
    notes: rows.map((row) => row.error ?? row.notes ?? ""),
    refused: Uint8Array.from(rows, (row) => (row.error === undefined ? 0 : 1)),
    values: Array.from({ length: attributes }, () => new Float64Array(rows.length).fill(NaN)),
    active: Array.from({ length: attributes }, () => new Uint8Array(rows.length)),
  };
  rows.forEach((row, i) => {
    row.values?.forEach((value, a) => {
      if (value !== null) piece.values[a]![i] = value;
    });
    for (const a of row.active ?? []) piece.active[a]![i] = 1;
  });
  return piece;
}

function countLines(text: string): number {
  let lines = 0;
  for (let at = text.indexOf("\n"); at !== -1; at = text.indexOf("\n", at + 1)) ++lines;
  return lines;
}

async function readCapture(
  id: number,
  file: Blob,
  request: Record<string, unknown>,
  attributes: number,
): Promise<void> {
  const reader = file.stream().getReader();
  const decoder = new TextDecoder();
  let rest = "";
  let first = 1;
  let taken = 0;
  let unmatched = 0;
  const decode = (text: string): void => {
    if (text === "") return;
    const answer = instance!.ask({ ...request, ask: "capture", text, first });
    if (isFailure(answer)) {
      post({ id, crash: answer.error });
      return;
    }
    const { rows, unmatched: more } = answer as CaptureRows;
    first += countLines(text);
    unmatched += more;
    const piece = columnsOf(rows, attributes);
    const buffers = [...piece.values, ...piece.active].map((column) => column.buffer as ArrayBuffer);
    post({ id, piece, taken: taken / Math.max(file.size, 1), unmatched }, buffers);
  };
  let isInLongLine = false;
  for (;;) {
    const { done, value } = await reader.read();
    if (done) break;
    taken += value.length;
    rest += decoder.decode(value, { stream: true });
    if (isInLongLine) {
      const end = rest.indexOf("\n");
      rest = end === -1 ? "" : rest.slice(end + 1);
      if (end === -1) continue;
      isInLongLine = false;
      ++first;
    }
    while (rest.length > PIECE_CHARACTERS) {
      const end = rest.lastIndexOf("\n", PIECE_CHARACTERS);
      const next = end === -1 ? rest.indexOf("\n") : end;
      if (next === -1) break;
      decode(rest.slice(0, next + 1));
      rest = rest.slice(next + 1);
    }
    if (rest.length > MOST_LINE_CHARACTERS) {
      isInLongLine = true;
      ++unmatched;
      rest = "";
    }
  }
  decode(rest + decoder.decode());
  post({ id, done: true });
}

self.onmessage = async ({ data }: MessageEvent<ToWorker>): Promise<void> => {
  if ("module" in data) {
    instance = new Instance(data.module);
    return;
  }
  const { id } = data;
  try {
    if ("file" in data) {
      await readCapture(id, data.file, data.request, data.attributes);
    } else {
      post({ id, answer: instance!.ask(data.request) });
    }
  } catch (error) {
    // The instance cannot be trusted after a trap, so the page starts another worker.
    post({ id, crash: String(error) });
  }
};
