// What the page and its workers send to each other.

export type ToWorker =
  | { module: WebAssembly.Module }
  | { id: number; request: Record<string, unknown> }
  | { id: number; file: Blob; request: Record<string, unknown>; attributes: number };

// Rows of a capture as columns; values and active have one for each attribute of the entity.
export interface CapturePiece {
  lines: Float64Array;
  times: string[];
  seconds: Float64Array; // the times; NaN where there is none
  others: string[];
  packets: string[];
  commands: string[];
  notes: string[];
  refused: Uint8Array;
  values: Float64Array[]; // NaN where there is none
  active: Uint8Array[];
}

export type FromWorker =
  | { id: number; answer: unknown }
  | { id: number; crash: string }
  | { id: number; piece: CapturePiece; taken: number; unmatched: number }
  | { id: number; done: true };
