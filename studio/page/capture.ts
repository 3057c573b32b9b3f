// A capture: read in a worker, shown as a table of which only the visible rows exist.

import { readCapture } from "./asker";
import { byId, count, element, takeFiles } from "./dom";
import type { Attribute, Match } from "./forms";
import { isFailure } from "./forms";
import type { CapturePiece } from "./messages";
import { conditionsOf, valueText } from "./filter";
import type { Studio } from "./studio";
import { Timeline } from "./timeline";

const ROW_HEIGHT = 26;
const HEAD_BYTES = 1 << 16;
const HEAD_LINES = 64; // what a log begins with, such as its title, is no packet
const PREVIEW_LINES = 4;
const FILTER_PAUSE_MS = 120;
const REREAD_PAUSE_MS = 800;
const PATTERN_HELP =
  "None of these lines is read as a packet. Write a pattern of them into “Lines”, with (?P<packet>...) around the " +
  "packet and (?P<time>...) around the time, for example (?P<time>\\S+) .*data=(?P<packet>[0-9a-f ]+)";
const COLUMNS = { line: "Line", time: "Time", command: "Command", packet: "Packet", says: "Values", problem: "Notes" };

// All rows of a capture, as columns that grow.
export class Rows {
  lines = new Float64Array(0);
  seconds = new Float64Array(0);
  times: string[] = [];
  others: string[] = [];
  packets: string[] = [];
  commands: string[] = [];
  notes: string[] = [];
  values: Float64Array[];
  active: Uint8Array[];
  refused = 0;
  #capacity = 0;

  constructor(attributes: number) {
    this.values = Array.from({ length: attributes }, () => new Float64Array(0));
    this.active = Array.from({ length: attributes }, () => new Uint8Array(0));
  }

  get size(): number {
    return this.packets.length;
  }

  add(piece: CapturePiece): void {
    const at = this.size;
    const size = at + piece.packets.length;
    if (size > this.#capacity) this.#grow(Math.max(size, 2 * this.#capacity));
    this.lines.set(piece.lines, at);
    this.seconds.set(piece.seconds, at);
    piece.values.forEach((column, a) => this.values[a]!.set(column, at));
    piece.active.forEach((column, a) => this.active[a]!.set(column, at));
    for (const name of ["times", "others", "packets", "commands", "notes"] as const) {
      for (const text of piece[name]) this[name].push(text);
    }
    this.refused += piece.refused.reduce((sum, one) => sum + one, 0);
  }

  #grow(capacity: number): void {
    const grown = <T extends Float64Array | Uint8Array>(old: T, made: T): T => {
      made.set(old);
      return made;
    };
    this.lines = grown(this.lines, new Float64Array(capacity));
    this.seconds = grown(this.seconds, new Float64Array(capacity));
    this.values = this.values.map((old) => grown(old, new Float64Array(capacity)));
    this.active = this.active.map((old) => grown(old, new Uint8Array(capacity)));
    this.#capacity = capacity;
  }

  textOf(row: number): string {
    return `${this.times[row]} ${this.others[row]} ${this.commands[row]} ${this.packets[row]} ${this.notes[row]}`;
  }

  // "power=true program=boil"
  valuesOf(row: number, attributes: Attribute[]): string {
    const texts = attributes.map((attribute, a) => {
      const value = this.values[a]![row]!;
      return Number.isNaN(value) ? "" : `${attribute.name}=${valueText(attribute, value)} `;
    });
    return texts.join("").trimEnd();
  }
}

async function headOf(file: File): Promise<string> {
  return (await file.slice(0, HEAD_BYTES).text()).split(/\r?\n/).slice(0, HEAD_LINES).join("\n");
}

function isJson(text: string): boolean {
  try {
    JSON.parse(text);
    return true;
  } catch {
    return false;
  }
}

// Whether a file begins as a configuration does, be it whole or not. Of JSON lines, the first one is whole, and there
// are others.
function isLikeConfiguration(head: string): boolean {
  const text = head.trim();
  if (!/^([{"]|\/[/*])/.test(text)) return false;
  const [first = "", ...others] = text.split("\n");
  return others.length === 0 ? !/"packet"\s*:/.test(first) : !isJson(first);
}

export class CaptureView {
  readonly #input = byId<HTMLInputElement>("capture");
  readonly #pattern = byId<HTMLInputElement>("pattern");
  readonly #filter = byId<HTMLInputElement>("capture-filter");
  readonly #progress = byId<HTMLProgressElement>("progress");
  readonly #cancel = byId<HTMLButtonElement>("cancel");
  readonly #summary = byId("capture-summary");
  readonly #table = byId("capture-rows");
  readonly #titles = element(
    "div",
    { class: "capture-row head", role: "row", "aria-rowindex": 1 },
    ...Object.entries(COLUMNS).map(([kind, name]) => element("span", { class: kind, role: "columnheader" }, name)),
  );
  readonly #timeline: Timeline;
  #file: File | undefined;
  #head = ""; // the file's first lines
  #line = "";
  #rows = new Rows(0);
  #attributes: Attribute[] = [];
  #shown: number[] | undefined; // rows that pass the filter; all of them when there is none
  #current = -1; // the chosen row, counted among the shown ones
  #unmatched = 0;
  #stop: (() => void) | undefined;
  #readWith = ""; // the entity, as it was when the capture was read
  #filterTimer = 0;
  #readTimer = 0;
  #previewTurn = 0;

  constructor(private readonly studio: Studio) {
    this.#timeline = new Timeline(byId("timeline"), (row) => this.#chooseMoment(row));
    takeFiles(this.#input, byId("capture-section"), (file) => void this.#open(file));
    this.#pattern.addEventListener("input", () => void this.#preview(this.#pattern.value));
    this.#pattern.addEventListener("change", () => void this.#preview(this.#pattern.value).then(() => this.#read()));
    this.#filter.addEventListener("input", () => {
      window.clearTimeout(this.#filterTimer);
      this.#filterTimer = window.setTimeout(() => this.#applyFilter(), FILTER_PAUSE_MS);
    });
    this.#cancel.addEventListener("click", () => this.#stop?.());
    this.#table.addEventListener("scroll", () => this.#drawRows());
    this.#table.addEventListener("keydown", (event) => this.#move(event));
    new ResizeObserver(() => this.#drawRows()).observe(this.#table);
    studio.on("entity", () => this.#followEntity());
  }

  // Reads the capture again when the entity has become another one.
  #followEntity(): void {
    const { entity, problem } = this.studio;
    if (entity === undefined) return this.#read();
    if (this.#file === undefined || problem !== "" || JSON.stringify(entity) === this.#readWith) return;
    window.clearTimeout(this.#readTimer);
    this.#readTimer = window.setTimeout(() => this.#read(), REREAD_PAUSE_MS);
  }

  // Opens a file that is no configuration and has packets in its first lines; false for any other.
  async openIfCapture(file: File): Promise<boolean> {
    const head = await headOf(file);
    if (isLikeConfiguration(head)) return false;
    const match = await this.studio.ask<Match>({ ask: "match", text: head });
    if (isFailure(match) || !match.lines.some(({ packet }) => packet !== undefined)) return false;
    await this.#open(file);
    return true;
  }

  async #open(file: File): Promise<void> {
    this.#file = file;
    this.#head = await headOf(file);
    this.#pattern.value = "";
    if (await this.#preview(undefined)) this.#read();
  }

  // How the pattern takes the first lines apart; without one, the ready-made pattern that fits best is taken.
  async #preview(line: string | undefined): Promise<boolean> {
    if (this.#file === undefined) return false;
    const turn = ++this.#previewTurn;
    const match = await this.studio.ask<Match>({
      ask: "match",
      text: this.#head,
      ...(line === undefined ? {} : { line }),
    });
    if (turn !== this.#previewTurn) return false;
    const preview = byId("pattern-preview");
    if (isFailure(match)) {
      preview.replaceChildren(element("p", { class: "problem" }, match.error));
      return false;
    }
    this.#line = match.line;
    if (line === undefined) this.#pattern.value = match.line;
    const firstPacket = match.lines.findIndex(({ packet }) => packet !== undefined);
    const hasPacket = firstPacket !== -1;
    const from = firstPacket < PREVIEW_LINES ? 0 : firstPacket;
    preview.replaceChildren(
      ...match.lines.slice(from, from + PREVIEW_LINES).map((one) =>
        element(
          "div",
          { class: "preview-line" },
          one.time !== undefined && element("span", { class: "tag" }, one.time),
          one.others !== undefined && element("span", { class: "tag" }, one.others),
          one.packet === undefined
            ? element("span", { class: "problem" }, `${one.text} – ${one.error ?? "does not match"}`)
            : element("code", {}, one.packet),
        ),
      ),
      ...(hasPacket ? [] : [element("p", { class: "tip" }, PATTERN_HELP)]),
    );
    return true;
  }

  #read(): void {
    const { entity } = this.studio;
    if (this.#file === undefined) return;
    window.clearTimeout(this.#readTimer);
    this.#stop?.();
    byId("capture-result").hidden = entity === undefined;
    if (entity === undefined) {
      this.#readWith = "";
      this.#summary.textContent = `${this.#file.name} is read as soon as the configuration has an entity to read it with`;
      return;
    }
    this.#readWith = JSON.stringify(entity);
    this.#attributes = entity.attributes;
    this.#rows = new Rows(this.#attributes.length);
    this.#shown = undefined;
    this.#current = -1;
    this.#unmatched = 0;
    this.#progress.value = 0;
    this.#progress.hidden = this.#cancel.hidden = false;
    const request = { configuration: this.studio.configuration, entity: this.studio.entityIndex, line: this.#line };
    this.#stop = readCapture(this.#file, request, this.#attributes.length, {
      onPiece: (piece, taken, unmatched) => {
        this.#rows.add(piece);
        this.#progress.value = taken;
        this.#unmatched = unmatched;
        this.#summarize("");
        this.#drawRows();
      },
      onEnd: (problem) => this.#end(problem),
    });
  }

  #end(problem: string | undefined): void {
    this.#stop = undefined;
    this.#progress.hidden = this.#cancel.hidden = true;
    this.#summarize(problem === undefined ? "" : `; ${problem}`);
    this.#applyFilter();
    this.#timeline.show(this.#rows, this.#attributes);
  }

  #summarize(end: string): void {
    const { size, refused } = this.#rows;
    const parts = [count(size - refused, "packet")];
    if (refused > 0) parts.push(`${count(refused, "line")} without a valid packet`);
    if (this.#unmatched > 0) parts.push(`${count(this.#unmatched, "line")} that the pattern does not match`);
    this.#summary.textContent = `${this.#file?.name ?? ""}: ${parts.join(", ")}${end}`;
  }

  #applyFilter(): void {
    const { text, conditions, problems } = conditionsOf(this.#filter.value, this.#attributes);
    this.#shown = undefined;
    if (text !== "" || conditions.length > 0 || problems.length > 0) {
      this.#shown = [];
      for (let row = 0; row < this.#rows.size && problems.length === 0; ++row) {
        const holds = conditions.every(({ index, holds }) => holds(this.#rows.values[index]![row]!));
        if (holds && (text === "" || this.#rows.textOf(row).toLowerCase().includes(text))) this.#shown.push(row);
      }
    }
    const parts = this.#shown === undefined ? [] : [count(this.#shown.length, "row"), ...problems];
    byId("filter-count").textContent = parts.join("; ");
    this.#table.scrollTop = 0;
    this.#current = -1;
    this.#drawRows();
  }

  #drawRows(): void {
    const size = this.#shown?.length ?? this.#rows.size;
    const first = Math.max(0, Math.floor(this.#table.scrollTop / ROW_HEIGHT) - 4);
    const last = Math.min(size, first + Math.ceil(this.#table.clientHeight / ROW_HEIGHT) + 8);
    const made = [];
    for (let i = first; i < last; ++i) made.push(this.#rowOf(i));
    const style = `transform: translateY(${first * ROW_HEIGHT}px)`;
    const visible = element("div", { class: "window", style, role: "presentation" }, ...made);
    const height = `height: ${size * ROW_HEIGHT}px`;
    this.#table.setAttribute("aria-rowcount", String(size + 1));
    this.#table.replaceChildren(
      this.#titles,
      element("div", { class: "all-rows", style: height, role: "presentation" }, visible),
    );
  }

  #rowOf(index: number): HTMLElement {
    const row = this.#shown?.[index] ?? index;
    const rows = this.#rows;
    const cell = (kind: string, text: string | undefined): HTMLElement =>
      element("span", { class: kind, role: "gridcell", title: text }, text ?? "");
    return element(
      "div",
      {
        class: `capture-row${index === this.#current ? " chosen" : ""}`,
        role: "row",
        "aria-rowindex": index + 2,
        "aria-selected": String(index === this.#current),
        "data-testid": "capture-row",
        onclick: () => this.#choose(index),
      },
      cell("line", String(rows.lines[row])),
      cell("time", `${rows.times[row]} ${rows.others[row]}`),
      cell("command", rows.commands[row]),
      cell("packet", rows.packets[row]),
      cell("says", rows.valuesOf(row, this.#attributes)),
      cell("problem", rows.notes[row]),
    );
  }

  // A packet that the filter leaves out is shown as well.
  #chooseMoment(row: number): void {
    const index = this.#shown === undefined ? row : this.#shown.indexOf(row);
    if (index !== -1) return this.#choose(index);
    this.#current = -1;
    this.#drawRows();
    this.#showPacket(row);
  }

  #showPacket(row: number): void {
    this.#timeline.mark(row);
    void this.studio.setPacket(this.#rows.packets[row] ?? "");
  }

  // Shows the packet of a row in the picture.
  #choose(index: number): void {
    const size = this.#shown?.length ?? this.#rows.size;
    if (index < 0 || index >= size) return;
    this.#current = index;
    const top = index * ROW_HEIGHT;
    const visible = this.#table.clientHeight - ROW_HEIGHT; // the head takes one
    if (top < this.#table.scrollTop || top + ROW_HEIGHT > this.#table.scrollTop + visible) {
      this.#table.scrollTop = top - this.#table.clientHeight / 2;
    }
    const row = this.#shown?.[index] ?? index;
    this.#drawRows();
    this.#showPacket(row);
  }

  #move(event: KeyboardEvent): void {
    const page = Math.floor(this.#table.clientHeight / ROW_HEIGHT) - 1;
    const size = this.#shown?.length ?? this.#rows.size;
    const steps: Record<string, number> = {
      ArrowUp: -1,
      ArrowDown: 1,
      PageUp: -page,
      PageDown: page,
      Home: -size,
      End: size,
    };
    const step = steps[event.key];
    if (step === undefined) return;
    event.preventDefault();
    this.#choose(Math.min(Math.max(this.#current + step, 0), size - 1));
  }
}
