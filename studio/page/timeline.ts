// Chosen attributes of a capture over time: numbers as lines, bools and enums as bands, alerts and faults as marks.

import uPlot from "uplot";
import type { Rows } from "./capture";
import { element } from "./dom";
import type { Attribute } from "./forms";
import { TIME_STEPS, timeAxisOf, timeText } from "./time";

const LINE_COLORS = 6; // --line0 and so on
const CHART_HEIGHT = 200;
const AXIS_FONT = "12px system-ui, sans-serif";
const WIDTH_OF_MORE_AXES = 800;
const MOST_MORE_AXES = 3;
const MORE_AXIS_WIDTH = 44;
const BAND_HEIGHT = 22;
const CHARACTER_WIDTH = 7;
const LEAST_LABEL_WIDTH = 60;
const MOST_LABEL_WIDTH = 150;
const MOST_CHOSEN_AT_FIRST = 8;

type Kind = "line" | "band" | "mark";

function kindOf(attribute: Attribute): Kind | undefined {
  if (attribute.group === "alert" || attribute.group === "fault") return "mark";
  if (attribute.type === "bool" || attribute.type === "enum") return "band";
  return attribute.type === "binary" ? undefined : "line";
}

interface Track {
  attribute: Attribute;
  index: number; // of its column
  kind: Kind;
}

function color(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

// Rows with one value after each other.
interface Run {
  first: number;
  last: number;
  value: number;
}

// `told` has NaN where a packet does not tell the attribute.
function runsOf(column: Float64Array | Uint8Array, told: Float64Array, size: number): Run[] {
  const runs: Run[] = [];
  for (let i = 0; i < size; ++i) {
    const value = column[i]!;
    const run = runs[runs.length - 1];
    if (Number.isNaN(told[i])) continue;
    if (run !== undefined && run.value === value) run.last = i;
    else {
      if (run !== undefined) run.last = i;
      runs.push({ first: i, last: i, value });
    }
  }
  return runs;
}

// Whether a column tells something that a single value would not.
function isOfInterest({ kind, index }: Track, rows: Rows): boolean {
  if (kind === "mark") return rows.active[index]!.subarray(0, rows.size).includes(1);
  const column = rows.values[index]!.subarray(0, rows.size);
  const first = column.find((value) => !Number.isNaN(value));
  return column.some((value) => !Number.isNaN(value) && value !== first);
}

export class Timeline {
  #plot: uPlot | undefined;
  #tracks: Track[] = [];
  #chosen = new Set<number>();
  #rows: Rows | undefined;
  #x: Float64Array = new Float64Array(0);
  #isTime = false;
  #runs = new Map<number, Run[]>();
  readonly #canvas = element("canvas", { class: "bands", "aria-hidden": "true" });
  readonly #chart = element("div", { class: "chart" });
  readonly #choice = element("fieldset", { class: "tracks" }, element("legend", {}, "Shown over time"));

  constructor(
    private readonly container: HTMLElement,
    private readonly onChoose: (row: number) => void,
  ) {
    container.append(this.#choice, this.#chart, this.#canvas);
    this.#canvas.addEventListener("click", (event) => this.#chooseAt(event.offsetX));
    new ResizeObserver(() => this.#resize()).observe(this.container);
    window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.#draw());
  }

  show(rows: Rows, attributes: Attribute[]): void {
    this.#rows = rows;
    const { x, isTime } = timeAxisOf(rows.seconds.subarray(0, rows.size), rows.lines.subarray(0, rows.size));
    this.#x = x;
    this.#isTime = isTime;
    this.#runs.clear();
    this.#tracks = attributes.flatMap((attribute, index) => {
      const kind = kindOf(attribute);
      return kind === undefined ? [] : [{ attribute, index, kind }];
    });
    const ofInterest = this.#tracks.filter((track) => isOfInterest(track, rows));
    const atFirst = (ofInterest.length > 0 ? ofInterest : this.#tracks).slice(0, MOST_CHOSEN_AT_FIRST);
    this.#chosen = new Set(atFirst.map(({ index }) => index));
    this.#drawChoice();
    this.#draw();
  }

  // Moves the cursor to a row.
  mark(row: number): void {
    const plot = this.#plot;
    if (plot === undefined) return;
    const x = this.#x[row]!;
    const { min, max } = plot.scales["x"]!;
    if (x < min! || x > max!) plot.setScale("x", { min: x - (max! - min!) / 2, max: x + (max! - min!) / 2 });
    plot.setCursor({ left: plot.valToPos(x, "x"), top: 0 }, false);
  }

  #drawChoice(): void {
    const boxes = this.#tracks.map(({ attribute, index }) =>
      element(
        "label",
        {},
        element("input", {
          type: "checkbox",
          checked: this.#chosen.has(index),
          onchange: () => {
            if (!this.#chosen.delete(index)) this.#chosen.add(index);
            this.#draw();
          },
        }),
        attribute.label,
      ),
    );
    this.#choice.replaceChildren(element("legend", {}, "Shown over time"), ...boxes);
  }

  #chosenTracks(isLine: boolean): Track[] {
    return this.#tracks.filter(({ index, kind }) => this.#chosen.has(index) && (kind === "line") === isLine);
  }

  #draw(): void {
    this.#plot?.destroy();
    this.#plot = undefined;
    if (this.#rows === undefined || this.#x.length === 0) return;
    const lines = this.#chosenTracks(true);
    const grid = { stroke: color("--line"), width: 1 };
    const size = this.#rows.size;
    const columns = lines.map(({ index }) => this.#rows!.values[index]!.subarray(0, size));
    const axis = { stroke: color("--text"), grid, ticks: grid, font: AXIS_FONT };
    const lineColor = (i: number): string => color(`--line${i % LINE_COLORS}`);
    const xText = (x: number | null): string => (x === null ? "" : this.#isTime ? timeText(x) : String(x));
    const longest = Math.max(...this.#chosenTracks(false).map(({ attribute }) => attribute.label.length), 0);
    const labelWidth = Math.min(Math.max(CHARACTER_WIDTH * longest + 12, LEAST_LABEL_WIDTH), MOST_LABEL_WIDTH);
    // Each line has a scale of its own, so that an axis belongs to one line and has its color.
    const axisOf = (track: Track, i: number): uPlot.Axis => ({
      ...axis,
      scale: `y${i}`,
      side: i === 0 ? 3 : 1,
      size: i === 0 ? labelWidth : MORE_AXIS_WIDTH,
      grid: { ...grid, show: i === 0 },
      stroke: lineColor(i),
      label: track.attribute.label,
      labelFont: AXIS_FONT,
      labelSize: 16,
    });
    const moreAxes = this.container.clientWidth < WIDTH_OF_MORE_AXES ? 0 : MOST_MORE_AXES;
    const lineAxes = lines.slice(0, 1 + moreAxes).map(axisOf);
    this.#plot = new uPlot(
      {
        width: this.container.clientWidth,
        height: CHART_HEIGHT,
        scales: { x: { time: false } },
        axes: [
          {
            ...axis,
            space: 170,
            ...(this.#isTime ? { incrs: TIME_STEPS } : {}),
            values: (_plot: uPlot, splits: number[]) => splits.map(xText),
          },
          ...lineAxes,
        ],
        ...(lines.length > 0 ? {} : { padding: [null, null, null, labelWidth] }), // room for the labels of bands
        series: [
          { label: this.#isTime ? "Time" : "Line", value: (_plot: uPlot, x: number | null) => xText(x) },
          ...lines.map(({ attribute }, i) => ({
            label: attribute.label,
            scale: `y${i}`,
            stroke: lineColor(i),
            width: 1.5,
            spanGaps: true,
            points: { show: size < 200 },
          })),
        ],
        cursor: { y: false, drag: { x: true, y: false } },
        hooks: {
          draw: [() => this.#drawBands()], // when it is known where the chart begins and ends
          ready: [
            (plot: uPlot) =>
              plot.over.addEventListener("click", (event) => this.#chooseAt(event.offsetX + this.#left())),
          ],
        },
      },
      [this.#x, ...columns] as unknown as uPlot.AlignedData,
      this.#chart,
    );
  }

  #left(): number {
    return this.#plot === undefined ? 0 : this.#plot.bbox.left / devicePixelRatio;
  }

  // `left` counts from the left end of the chart.
  #chooseAt(left: number): void {
    const plot = this.#plot;
    if (plot === undefined) return;
    this.onChoose(plot.posToIdx(left - this.#left()));
  }

  #resize(): void {
    this.#plot?.setSize({ width: this.container.clientWidth, height: CHART_HEIGHT });
  }

  #runsOf(track: Track): Run[] {
    const known = this.#runs.get(track.index);
    if (known !== undefined) return known;
    const { active, values, size } = this.#rows!;
    const told = values[track.index]!;
    const runs = runsOf(track.kind === "mark" ? active[track.index]! : told, told, size);
    this.#runs.set(track.index, runs);
    return runs;
  }

  #drawBands(): void {
    const plot = this.#plot;
    const tracks = this.#chosenTracks(false);
    const width = this.container.clientWidth;
    const height = tracks.length * BAND_HEIGHT;
    this.#canvas.width = width * devicePixelRatio;
    this.#canvas.height = height * devicePixelRatio;
    this.#canvas.style.height = `${height}px`;
    const context = this.#canvas.getContext("2d");
    if (plot === undefined || context === null) return;
    context.scale(devicePixelRatio, devicePixelRatio);
    context.font = AXIS_FONT;
    context.textBaseline = "middle";
    tracks.forEach((track, i) => this.#drawTrack(context, plot, track, i * BAND_HEIGHT));
  }

  #drawTrack(context: CanvasRenderingContext2D, plot: uPlot, track: Track, top: number): void {
    const { group, items, label } = track.attribute;
    const colors = track.kind === "mark" ? [color(`--${group}`)] : [0, 1, 2, 3].map((i) => color(`--band${i}`));
    const [text, off] = [color("--text"), color("--line")];
    let painted = -Infinity;
    const left = this.#left();
    const end = left + plot.bbox.width / devicePixelRatio;
    for (const { first, last, value } of this.#runsOf(track)) {
      if (track.kind === "mark" && value === 0) continue;
      const from = Math.max(left + plot.valToPos(this.#x[first]!, "x"), left);
      const to = Math.min(left + plot.valToPos(this.#x[last]!, "x"), end);
      if (to < left || from > end || to <= painted) continue; // not visible, or in a pixel that is taken
      const length = Math.max(to - from, 1);
      painted = from + length;
      const isOff = track.kind === "band" && items === undefined && value === 0;
      context.fillStyle = isOff ? off : colors[value % colors.length]!;
      context.fillRect(from, top + (isOff ? 12 : 3), length, isOff ? 2 : BAND_HEIGHT - 6);
      if (track.kind === "mark") this.#drawMark(context, from, top);
      if (items === undefined || length < 30) continue;
      context.save();
      context.beginPath();
      context.rect(from, top, length, BAND_HEIGHT);
      context.clip();
      context.fillStyle = text;
      context.fillText(items[value] ?? String(value), from + 4, top + BAND_HEIGHT / 2);
      context.restore();
    }
    context.fillStyle = text;
    context.textAlign = "left";
    context.fillText(label, 2, top + BAND_HEIGHT / 2, left - 8);
  }

  #drawMark(context: CanvasRenderingContext2D, x: number, top: number): void {
    context.beginPath();
    context.moveTo(x - 5, top + 2);
    context.lineTo(x + 5, top + 2);
    context.lineTo(x, top + 11);
    context.fill();
  }
}
