// What can be written: a control for each writable attribute, and the write packet beside them.

import { explain, markChosen } from "./bytes";
import { byId, copyOnClick, element, reveal } from "./dom";
import type { Attribute, Control, Value } from "./forms";
import { isFailure } from "./forms";
import type { Studio } from "./studio";

const MOST_SLIDER_STEPS = 2000;
const NO_NUMBER = "?";

interface Row {
  attribute: Attribute;
  row: HTMLElement;
  isSent: HTMLInputElement;
  note: HTMLElement;
  show(value: Value | undefined): void;
}

// A control with its value shown, and read.
interface Made {
  elements: HTMLElement[];
  hint: string;
  show(value: Value | undefined): void;
  read(): Value | undefined;
}

type Changed = (value: Value | undefined) => void;

function switchFor(properties: Record<string, string>, changed: Changed): Made {
  const box = element("input", {
    ...properties,
    type: "checkbox",
    class: "switch",
    onchange: () => changed(box.checked),
  });
  const show = (value: Value | undefined): void => {
    box.checked = value === true;
  };
  return { elements: [box], hint: "", show, read: () => box.checked };
}

function choiceFor(items: string[], properties: Record<string, string>, changed: Changed): Made {
  const options = items.map((item, i) => element("option", { value: i }, item === "" ? `(item ${i})` : item));
  const read = (): number | undefined => (box.value === "" ? undefined : Number(box.value));
  const box = element("select", { ...properties, onchange: () => changed(read()) }, ...options);
  const show = (value: Value | undefined): void => {
    box.value = value === undefined ? "0" : String(value);
  };
  return { elements: [box], hint: "", show, read };
}

function numberFor(
  { min, max, step }: { min: string; max: string; step: string },
  properties: Record<string, string>,
  changed: Changed,
): Made {
  const limits = { min, max, step };
  const read = (): string | undefined => (box.value === "" ? undefined : box.value);
  const box = element("input", { ...properties, ...limits, type: "number", oninput: () => changed(read()) });
  const steps = (Number(max) - Number(min)) / Number(step);
  const slider = element("input", {
    ...limits,
    type: "range",
    "aria-label": `${properties["aria-label"] ?? ""}, slider`,
    oninput: () => {
      box.value = slider.value;
      changed(slider.value);
    },
  });
  const show = (value: Value | undefined): void => {
    if (document.activeElement !== box) box.value = value === undefined ? "" : String(value);
    slider.value = value === undefined ? min : String(value);
  };
  const elements = steps > 0 && steps <= MOST_SLIDER_STEPS ? [slider, box] : [box];
  const hint = min === "" ? "no value is accepted" : `${min} to ${max}${step === "1" ? "" : `, steps of ${step}`}`;
  return { elements, hint, show, read: () => read() ?? min };
}

// Base64 of hexadecimal digits; undefined when these are not whole bytes.
function base64Of(text: string): string | undefined {
  const digits = text.replace(/\b0x|[\s:,]/gi, "");
  if (digits === "" || !/^([0-9a-f]{2})*$/i.test(digits)) return undefined;
  return btoa(digits.replace(/../g, (byte) => String.fromCharCode(Number.parseInt(byte, 16))));
}

// Empty when the text is not base64, which a link can bring.
function hexOf(base64: string): string {
  if (!/^[\w+/]*={0,2}$/.test(base64) || base64.length % 4 !== 0) return "";
  return Array.from(atob(base64), (byte) => byte.charCodeAt(0).toString(16).padStart(2, "0")).join(" ");
}

function bytesFor(bytes: number, properties: Record<string, string>, changed: Changed): Made {
  const read = (): string | undefined => base64Of(box.value);
  const box = element("input", {
    ...properties,
    type: "text",
    spellcheck: "false",
    placeholder: "00 ff",
    oninput: () => {
      box.setAttribute("aria-invalid", String(box.value.trim() !== "" && read() === undefined));
      changed(read());
    },
  });
  const show = (value: Value | undefined): void => {
    if (document.activeElement === box) return;
    box.value = value === undefined ? "" : hexOf(String(value));
    box.setAttribute("aria-invalid", "false");
  };
  const zeros = btoa("\0".repeat(bytes));
  return { elements: [box], hint: `${bytes} bytes, in hexadecimal`, show, read: () => read() ?? zeros };
}

function makeControl(control: Control, properties: Record<string, string>, changed: Changed): Made {
  switch (control.kind) {
    case "switch":
      return switchFor(properties, changed);
    case "choice":
      return choiceFor(control.items, properties, changed);
    case "number":
      return numberFor(control, properties, changed);
    case "bytes":
      return bytesFor(control.bytes, properties, changed);
  }
}

export class ValuesView {
  readonly #list = byId("values");
  readonly #packet = byId("write-packet");
  readonly #explanation = byId("write-explanation");
  readonly #problems = byId("write-problems");
  readonly #command = byId<HTMLSelectElement>("write-command");
  readonly #subDevice = byId<HTMLInputElement>("sub-device");
  readonly #copy = byId<HTMLButtonElement>("copy-write");
  #rows: Row[] = [];
  #drawn = "";

  constructor(private readonly studio: Studio) {
    studio.on("entity", () => this.#draw());
    studio.on("packets", () => this.#show());
    studio.on("selection", () => this.#showChosen());
    const change = (): void => void studio.setCommand(this.#command.value, this.#subDeviceText());
    this.#command.addEventListener("change", change);
    this.#subDevice.addEventListener("input", change);
    copyOnClick(this.#copy, () => this.#packet.textContent ?? "");
  }

  #draw(): void {
    const writable = this.studio.entity?.attributes.filter((one) => one.control !== undefined) ?? [];
    const drawn = JSON.stringify(
      writable.map(({ element, name, label, description, control }) => [element, name, label, description, control]),
    );
    if (drawn === this.#drawn) return; // so that nobody's typing is disturbed
    this.#drawn = drawn;
    this.#rows = writable.map((attribute) => this.#rowOf(attribute));
    this.#list.replaceChildren(...this.#rows.map(({ row }) => row));
    if (writable.length === 0) {
      this.#list.replaceChildren(element("p", { class: "empty" }, "This entity has no writable attributes."));
    }
  }

  #rowOf(attribute: Attribute): Row {
    const { name, label } = attribute;
    const changed = (value: Value | undefined): void => void this.studio.setValue(name, value);
    const properties = { "data-testid": `value-${name}`, "aria-label": label };
    const made = makeControl(attribute.control!, properties, changed);
    const isSent = element("input", {
      type: "checkbox",
      "aria-label": `Send ${label}`,
      title: "Part of the write packet",
      onchange: () => changed(isSent.checked ? made.read() : undefined),
    });
    const note = element("span", { class: "note" });
    const row = element(
      "div",
      { class: "value-row", onfocusin: () => this.studio.select(attribute.element) },
      isSent,
      element(
        "button",
        {
          type: "button",
          class: "label",
          title: attribute.description,
          onclick: () => this.studio.select(attribute.element),
        },
        label,
      ),
      element("span", { class: "control" }, ...made.elements),
      element("span", { class: "limits" }, made.hint),
      note,
    );
    return { attribute, row, isSent, note, show: made.show };
  }

  #show(): void {
    const { values, written, command, subDevice } = this.studio;
    const encoding = written === undefined || isFailure(written) ? undefined : written.encoding;
    for (const row of this.#rows) {
      const value = Object.hasOwn(values, row.attribute.name) ? values[row.attribute.name] : undefined;
      row.show(value);
      row.isSent.checked = value !== undefined;
      row.row.classList.toggle("sent", value !== undefined);
      const note = encoding?.attributes.find(({ name }) => name === row.attribute.name)?.note ?? "";
      const isBad = /^(refused|cut|overwritten|left out|mixed)/.test(note);
      row.note.textContent = value !== undefined && (isBad || row.attribute.control?.kind !== "choice") ? note : "";
      row.note.classList.toggle("bad", isBad);
    }
    if (document.activeElement !== this.#subDevice && this.#subDeviceText() !== subDevice) {
      this.#subDevice.value = subDevice;
    }
    this.#command.value = command;
    const reading = written === undefined || isFailure(written) ? undefined : written.reading;
    this.#packet.textContent = reading?.packet ?? "";
    this.#copy.disabled = reading === undefined;
    this.#problems.textContent = this.#problemText();
    this.#explanation.replaceChildren(...(reading === undefined ? [] : [explain(this.studio, reading)]));
  }

  // A browser gives nothing for what is no number, such as "1e"; that must not pass for no sub-device.
  #subDeviceText(): string {
    return this.#subDevice.validity.badInput ? NO_NUMBER : this.#subDevice.value;
  }

  #problemText(): string {
    const { written } = this.studio;
    if (written === undefined) return "Set a value, and the packet that writes it stands here.";
    if (isFailure(written)) return written.error;
    return written.reading === undefined ? written.encoding.problems.join("\n") : "";
  }

  #showChosen(): void {
    for (const { row, attribute } of this.#rows) {
      const isChosen = attribute.element === this.studio.selected;
      row.classList.toggle("chosen", isChosen);
      if (isChosen) reveal(row, this.#list);
    }
    for (const list of this.#explanation.querySelectorAll<HTMLElement>(".parts")) {
      markChosen(list, this.studio.selected);
    }
  }
}
