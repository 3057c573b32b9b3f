// Times of captures, in whatever form the lines have them, as seconds.

const CLOCK = /^(\d{1,2}):(\d{2}):(\d{2}(?:[.,]\d+)?)$/;

const MOST_SECONDS = 1e11; // the year 5138

// A time of seconds, milliseconds, microseconds or nanoseconds.
function inSeconds(time: number): number {
  let seconds = time;
  while (seconds > MOST_SECONDS) seconds /= 1000;
  return seconds;
}

// Seconds since 1970, midnight or the start of the capture; NaN for anything else.
export function secondsOf(text: string): number {
  const plain = text.trim().replace(/^[[(]|[\])]$/g, "");
  if (plain === "") return NaN;
  if (/^\d+(\.\d+)?$/.test(plain)) return inSeconds(Number(plain));
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

// The x axis of a capture: its times where all rows have one that does not go back, otherwise the line numbers.
export function timeAxisOf(seconds: Float64Array, lines: Float64Array): { x: Float64Array; isTime: boolean } {
  let isTime = seconds.length > 0 && Number.isFinite(seconds[0]);
  for (let i = 1; isTime && i < seconds.length; ++i) isTime = seconds[i]! >= seconds[i - 1]!;
  return { x: isTime ? seconds : lines, isTime };
}
