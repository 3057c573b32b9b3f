// Times of captures, in whatever form the lines have them, as seconds.

const CLOCK = /^(\d{1,2}):(\d{2}):(\d{2}(?:[.,]\d+)?)$/;

// Seconds since 1970, midnight or the start of the capture, or a smaller unit; NaN for anything else.
export function secondsOf(text: string): number {
  const plain = text.trim().replace(/^[[(]|[\])]$/g, "");
  if (plain === "") return NaN;
  if (/^\d+(\.\d+)?$/.test(plain)) return Number(plain);
  const clock = CLOCK.exec(plain);
  if (clock !== null) return Number(clock[1]) * 3600 + Number(clock[2]) * 60 + Number(clock[3]!.replace(",", "."));
  return Date.parse(plain.replace(",", ".").replace(/^(\d{4}-\d{2}-\d{2}) /, "$1T")) / 1000;
}

const SECONDS_OF_YEARS = 1e8; // more than any clock shows that starts at midnight or with the device

// A time for people; with its date where it has one.
export function timeText(seconds: number): string {
  const hasDate = seconds > SECONDS_OF_YEARS;
  const local = hasDate ? seconds - new Date(1000 * seconds).getTimezoneOffset() * 60 : seconds;
  const text = new Date(1000 * local).toISOString();
  const clock = text.slice(11, Number.isInteger(seconds) ? 19 : 23);
  return hasDate ? `${text.slice(0, 10)} ${clock}` : clock;
}

const DAY = 86400;

// Distances of marks on an axis of times, in seconds, that fall on round times.
export const TIME_STEPS = [
  ...[0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30],
  ...[1, 2, 5, 10, 15, 30].map((minutes) => 60 * minutes),
  ...[1, 2, 3, 6, 12].map((hours) => 3600 * hours),
  ...[1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000].map((days) => DAY * days),
];

const MOST_SECONDS = 1e11; // the year 5138

// The x axis of a capture: its times in seconds where all rows have one that does not go back, otherwise the line
// numbers. Times that are too large for seconds are of milliseconds, microseconds or nanoseconds.
export function timeAxisOf(times: Float64Array, lines: Float64Array): { x: Float64Array; isTime: boolean } {
  let isTime = times.length > 0 && times.every((time) => Number.isFinite(time));
  for (let i = 1; isTime && i < times.length; ++i) isTime = times[i]! >= times[i - 1]!;
  if (!isTime) return { x: lines, isTime };
  let unit = 1;
  while (times[times.length - 1]! > MOST_SECONDS * unit) unit *= 1000;
  return { x: unit === 1 ? times : times.map((time) => time / unit), isTime };
}
