// A received packet: its values, alerts and faults, the application's document, and notes.

import { explain, markChosen } from "./bytes";
import { byId, element } from "./dom";
import type { FieldValue, Reading } from "./forms";
import { isFailure } from "./forms";
import type { Studio } from "./studio";

const TITLES: Record<string, string> = { notify: "Notification", "read-response": "Read response", write: "Write" };

export class ReceivedView {
  readonly #input = byId<HTMLTextAreaElement>("packet");
  readonly #result = byId("received");
  readonly #document = byId("document");

  constructor(private readonly studio: Studio) {
    this.#input.addEventListener("input", () => void studio.setPacket(this.#input.value));
    studio.on("configuration", () => (this.#input.value = studio.packetText));
    studio.on("packets", () => this.#show());
    studio.on("selection", () => this.#showChosen());
  }

  #show(): void {
    const { received, packetText } = this.studio;
    if (document.activeElement !== this.#input && this.#input.value !== packetText) this.#input.value = packetText;
    const problem = received === undefined ? "" : isFailure(received) ? received.error : (received.refused ?? "");
    this.#input.setAttribute("aria-invalid", String(problem !== ""));
    byId("packet-problem").textContent = problem;
    const reading = received === undefined || isFailure(received) || problem !== "" ? undefined : received;
    this.#document.textContent = reading?.document?.trimEnd() ?? "";
    this.#result.replaceChildren(...(reading === undefined ? [] : this.#partsOf(reading)));
  }

  #partsOf(reading: Reading): HTMLElement[] {
    const title = TITLES[reading.command ?? ""] ?? `Request ${reading.command ?? ""}`;
    const subDevice = reading.subDevice === undefined ? "" : `, sub-device ${reading.subDevice}`;
    const active = (reading.values ?? []).filter((value) => value.active === true);
    const parts: HTMLElement[] = [element("h3", {}, `${title}${subDevice}`), explain(this.studio, reading)];
    if (active.length > 0) {
      const badges = active.map((value) => {
        const attribute = this.studio.attribute(value.element);
        const properties = {
          class: `badge ${attribute?.group ?? ""}`,
          type: "button",
          onclick: () => this.studio.select(value.element),
        };
        return element("button", properties, attribute?.label ?? "");
      });
      parts.push(element("p", { class: "badges" }, element("b", {}, "Active: "), ...badges));
    }
    const notes = [reading.failure, ...(reading.notes ?? [])].filter((note) => note !== undefined);
    if (notes.length > 0) {
      parts.push(
        element("ul", { class: "notes", "data-testid": "notes" }, ...notes.map((note) => element("li", {}, note))),
      );
    }
    if ((reading.values ?? []).length > 0) parts.push(this.#tableOf(reading.values!, reading.isWrite === true));
    return parts;
  }

  #tableOf(values: FieldValue[], isWrite: boolean): HTMLElement {
    const head = element(
      "tr",
      {},
      ...["Attribute", "Bits", "Value"].map((name) => element("th", { scope: "col" }, name)),
    );
    return element(
      "table",
      { class: "decoded" },
      element("thead", {}, head),
      element("tbody", {}, ...values.map((value) => this.#rowOf(value, isWrite))),
    );
  }

  // In a write, what has no bits was not set; in any other packet they are missing, and a note tells why.
  #rowOf(value: FieldValue, isWrite: boolean): HTMLElement {
    const attribute = this.studio.attribute(value.element);
    const shown = value.text ?? (isWrite && value.bits === undefined ? "not set" : "–");
    const label = attribute?.label ?? "";
    const group = attribute?.group ?? "";
    const isChosen = value.element === this.studio.selected;
    return element(
      "tr",
      {
        class: `${group}${value.active === true ? " active" : ""}${isChosen ? " chosen" : ""}`,
        "data-element": value.element,
        onclick: () => this.studio.select(value.element),
      },
      element("th", { scope: "row" }, element("button", { type: "button", class: "label" }, label)),
      element("td", {}, element("code", { class: "content" }, value.bits ?? "")),
      element(
        "td",
        {},
        element("span", { "data-testid": `decoded-${attribute?.name ?? ""}` }, shown),
        value.active === true && element("span", { class: `badge ${group}` }, "active"),
        value.note !== undefined && element("span", { class: "note" }, value.note),
      ),
    );
  }

  #showChosen(): void {
    const { selected } = this.studio;
    for (const row of this.#result.querySelectorAll<HTMLElement>("tr[data-element]")) {
      row.classList.toggle("chosen", row.dataset["element"] === String(selected));
    }
    for (const list of this.#result.querySelectorAll<HTMLElement>(".parts")) markChosen(list, selected);
  }
}
