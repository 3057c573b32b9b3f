// A packet byte by byte: what each part of it says.

import { element, reveal } from "./dom";
import type { Part, Reading } from "./forms";
import type { Studio } from "./studio";

const MOST_BYTES = 16;

function hexOf(reading: Reading, part: Part): string {
  const bytes = reading.packet.split(" ").slice(part.at, part.at + Math.min(part.bytes, MOST_BYTES));
  return bytes.join(" ") + (part.bytes > MOST_BYTES ? " …" : "");
}

function lineOf(studio: Studio, reading: Reading, index: number): HTMLElement | undefined {
  const attribute = studio.attribute(index);
  const value = reading.values?.find((one) => one.element === index);
  if (attribute === undefined || value === undefined) return undefined;
  const isSet = value.bits !== undefined;
  const text = isSet ? ` = ${value.text ?? "?"}` : " not set";
  return element("span", { class: isSet ? "says" : "says unset" }, attribute.name, text);
}

function partOf(studio: Studio, reading: Reading, part: Part): HTMLElement {
  const at = part.kind === "payload" ? part.at - (reading.payloadAt ?? 0) : undefined;
  const range = at === undefined ? part.kind : part.bytes === 1 ? `byte ${at}` : `bytes ${at}–${at + part.bytes - 1}`;
  const first = part.elements[0];
  const content = [
    element("span", { class: "kind" }, range),
    element("code", {}, hexOf(reading, part)),
    element("span", { class: "saying" }, part.text, ...part.elements.map((index) => lineOf(studio, reading, index))),
  ];
  if (first === undefined) return element("li", { class: `part ${part.kind}` }, element("div", {}, ...content));
  return element(
    "li",
    { class: `part ${part.kind}`, "data-elements": part.elements.join(" ") },
    element("button", { type: "button", onclick: () => studio.select(nextOf(part, studio.selected)) }, ...content),
  );
}

// Of several fields in one byte, each click takes the next one.
function nextOf(part: Part, selected: number | undefined): number {
  const at = selected === undefined ? -1 : part.elements.indexOf(selected);
  return part.elements[(at + 1) % part.elements.length]!;
}

export function explain(studio: Studio, reading: Reading): HTMLElement {
  const parts = (reading.parts ?? []).map((part) => partOf(studio, reading, part));
  const list = element("ol", { class: "parts" }, ...parts);
  markChosen(list, studio.selected);
  return list;
}

// Marks the parts that hold the chosen attribute.
export function markChosen(list: HTMLElement, chosen: number | undefined): void {
  for (const part of list.querySelectorAll<HTMLElement>(".part")) {
    const isChosen = (part.dataset["elements"] ?? "").split(" ").includes(String(chosen));
    part.classList.toggle("chosen", isChosen);
    if (isChosen) reveal(part, list);
  }
}
