// The answers of the WebAssembly, as far as the page reads them.

interface Failure {
  error: string;
}
export type Answer<T> = T | Failure;

export function isFailure(answer: unknown): answer is Failure {
  return typeof answer === "object" && answer !== null && "error" in answer;
}

export type Severity = "error" | "warning" | "info";

// A place in a configuration.
export interface Site {
  line: number;
  column: number; // in bytes of UTF-8
  pointer: string;
}

export interface Finding extends Site {
  rule: string;
  severity: Severity;
  message: string;
  effect: string;
  fix: string;
}

export interface Findings {
  findings: Finding[];
  counts: Record<Severity, number>;
}

export interface Entities {
  entities: { name: string; displayName: string }[];
}

export type Control =
  | { kind: "switch" }
  | { kind: "choice"; items: string[] }
  | { kind: "number"; min: string; max: string; step: string }
  | { kind: "bytes"; bytes: number };

export interface Attribute {
  element: number; // identifies it in all answers about the entity
  name: string;
  label: string;
  description: string;
  group: string;
  type: string;
  place: string;
  pointer: string;
  items?: string[];
  control?: Control; // of a writable one
}

export interface Piece {
  column: number;
  columns: number;
  text: string;
  valueBits: string;
  elements: number[];
}

export interface Row {
  byte: number;
  leftOut?: string;
  endsWrite?: boolean;
  pieces: Piece[];
}

export interface Entity {
  summary: string;
  remarks: string[];
  rows: Row[];
  attributes: Attribute[];
}

interface Place {
  firstBit: number;
  bits: number;
}

export type Value = boolean | number | string;
export type Values = Record<string, Value>;

export interface FieldValue {
  element: number;
  place?: Place;
  bits?: string;
  value?: Value;
  text?: string;
  active?: boolean;
  note?: string;
}

export interface Part {
  at: number;
  bytes: number;
  kind: string;
  text: string;
  elements: number[];
}

export interface Reading {
  packet: string;
  refused?: string;
  command?: string;
  isWrite?: boolean;
  subDevice?: number;
  payloadAt?: number;
  payloadBytes?: number;
  failure?: string;
  notes?: string[];
  parts?: Part[];
  document?: string;
  values?: FieldValue[];
}

export interface Written {
  encoding: {
    attributes: { name: string; note?: string }[];
    problems: string[];
  };
  reading?: Reading;
}

export interface CaptureRow {
  line: number;
  time?: string;
  others?: string;
  packet?: string;
  command?: string;
  error?: string;
  notes?: string;
  values?: (number | null)[]; // in the order of the entity's attributes
  active?: number[]; // indexes of those that are active
}

export interface CaptureRows {
  rows: CaptureRow[];
  unmatched: number;
}

export interface Match {
  line: string;
  lines: { text: string; time?: string; others?: string; packet?: string; error?: string }[];
}

export interface Change {
  rule: string;
  severity: Severity;
  message: string;
  effect: string;
  fix: string;
  old?: Site;
  new?: Site;
  before?: { packet?: string; meaning?: string };
  after?: { packet?: string; meaning?: string };
}

export interface Changes {
  findings: Change[];
  counts: Record<Severity, number>;
}

export interface Exported {
  command: string;
  files: { name: string; text: string }[];
}
