// The picture: the payload as rows of eight bits, with the fields that lie in them.

import { element, reveal } from "./dom";
import type { Attribute, Entity, FieldValue, Piece, Reading, Row } from "./forms";

interface PictureEvents {
  onSelect(element: number): void;
  onFlip(bit: number): void;
}

const LETTERS: Record<string, string> = { writable: "W", "read-only": "R", alert: "A", fault: "F" };

// The payload's bits of a packet, as text of 0 and 1.
function bitsOf(reading: Reading | undefined): string {
  if (reading?.payloadAt === undefined) return "";
  const bytes = reading.packet.split(" ").slice(reading.payloadAt, reading.payloadAt + (reading.payloadBytes ?? 0));
  return bytes.map((byte) => Number.parseInt(byte, 16).toString(2).padStart(8, "0")).join("");
}

// A name that breaks at its underscores where it has to.
function breakable(name: string): (Node | string)[] {
  return name.split(/(?<=_)/).flatMap((part, i) => (i === 0 ? [part] : [element("wbr"), part]));
}

export class Picture {
  #entity: Entity | undefined;
  #bits: HTMLButtonElement[] = [];
  #focused = 0;
  #chosen: number | undefined;

  constructor(
    private readonly container: HTMLElement,
    private readonly events: PictureEvents | undefined,
    private readonly testids = true,
  ) {
    container.addEventListener("keydown", (event) => this.#move(event));
  }

  draw(entity: Entity): void {
    this.#entity = entity;
    this.#bits = [];
    const seen = new Set<number>();
    const head = element(
      "div",
      { class: "row head", "aria-hidden": "true" },
      element("span", { class: "byte" }, "byte"),
    );
    const numbers = element("div", { class: "pieces" });
    for (let bit = 7; bit >= 0; --bit) numbers.append(element("span", {}, String(bit)));
    head.append(numbers);
    const rows = entity.rows.map((row) => this.#rowOf(row, seen));
    this.container.replaceChildren(head, ...rows);
    if (entity.rows.length === 0) {
      this.container.replaceChildren(element("p", { class: "empty" }, "This entity has no payload yet."));
    }
    const first = this.#bits[0];
    if (first !== undefined) first.tabIndex = 0;
    this.#focused = 0;
  }

  #attribute(index: number): Attribute | undefined {
    return this.#entity?.attributes.find((attribute) => attribute.element === index);
  }

  #rowOf(row: Row, seen: Set<number>): HTMLElement {
    const pieces = element("div", { class: "pieces" });
    const made = element(
      "div",
      { class: `row${row.endsWrite === true ? " ends-write" : ""}` },
      element("span", { class: "byte" }, row.leftOut === undefined ? String(row.byte) : "…"),
      pieces,
    );
    for (const piece of row.pieces) pieces.append(this.#pieceOf(row, piece, seen));
    return made;
  }

  #pieceOf(row: Row, piece: Piece, seen: Set<number>): HTMLElement {
    const attributes = piece.elements.map((index) => this.#attribute(index)).filter((one) => one !== undefined);
    const first = attributes[0];
    const kind = first === undefined ? "gap" : attributes.length > 1 ? "overlap" : first.group;
    const [named, ...alsoNew] = piece.elements.filter((index) => !seen.has(index));
    const isNew = named !== undefined;
    piece.elements.forEach((index) => seen.add(index));
    const made = element("div", {
      class: `piece ${kind}${piece.columns === 1 ? " narrow single" : piece.columns === 2 ? " narrow" : ""}`,
      style: `grid-column: ${piece.column + 1} / span ${piece.columns}`,
      "data-elements": piece.elements.join(" "),
      "data-testid": this.testids && isNew ? `field-${this.#attribute(named)?.name ?? ""}` : undefined,
      title: attributes.map((attribute) => `${attribute.label} (${attribute.type}, ${attribute.group})`).join(" + "),
    });
    const label = piece.text + (piece.valueBits === "" ? "" : ` ${piece.valueBits}`);
    const text = row.leftOut ?? (label === "" ? (first?.name ?? "") : label);
    const letter = isNew && first !== undefined ? LETTERS[first.group] : undefined;
    if (first === undefined || this.events === undefined) {
      made.append(element("span", { class: "name" }, ...breakable(first === undefined ? (row.leftOut ?? "") : text)));
    } else {
      made.append(
        element(
          "button",
          {
            type: "button",
            class: "name",
            tabindex: isNew ? "0" : "-1",
            onclick: (event: Event) => {
              event.stopPropagation();
              this.#choose(piece);
            },
          },
          letter !== undefined && element("span", { class: "letter", "aria-hidden": "true" }, letter),
          ...breakable(text),
        ),
      );
      made.addEventListener("click", () => this.#choose(piece));
      made.append(...alsoNew.map((index) => this.#nameOf(index)));
    }
    if (row.leftOut === undefined) made.append(this.#bitsOf(row, piece));
    return made;
  }

  // A field that lies nowhere but in a piece that another one has named.
  #nameOf(index: number): HTMLElement {
    const name = this.#attribute(index)?.name ?? "";
    const onclick = (event: Event): void => {
      event.stopPropagation();
      this.events?.onSelect(index);
    };
    return element(
      "button",
      { type: "button", class: "name", "data-testid": `field-${name}`, onclick },
      ...breakable(name),
    );
  }

  // Where fields overlap, each click takes the next one.
  #choose({ elements }: Piece): void {
    const next = elements[(elements.indexOf(this.#chosen ?? -1) + 1) % elements.length];
    if (next !== undefined) this.events?.onSelect(next);
  }

  #bitsOf(row: Row, piece: Piece): HTMLElement {
    const bits = element("div", { class: "bits" });
    if (this.events === undefined) return bits;
    for (let i = 0; i < piece.columns; ++i) {
      const bit = 8 * row.byte + piece.column + i;
      const made = element("button", {
        type: "button",
        class: "bit",
        tabindex: "-1",
        "data-bit": bit,
        onclick: () => this.events?.onFlip(bit),
        onfocus: () => this.#focus(this.#bits.indexOf(made)),
      });
      this.#bits.push(made);
      bits.append(made);
    }
    return bits;
  }

  // Of all bits, one takes part in the order of Tab; the arrow keys move between them.
  #focus(index: number): void {
    const now = this.#bits[index];
    if (now === undefined) return;
    const last = this.#bits[this.#focused];
    if (last !== undefined) last.tabIndex = -1;
    now.tabIndex = 0;
    this.#focused = index;
  }

  #move(event: KeyboardEvent): void {
    const steps: Record<string, number> = { ArrowLeft: -1, ArrowRight: 1, ArrowUp: -8, ArrowDown: 8 };
    const step = steps[event.key];
    const at = this.#bits.indexOf(event.target as HTMLButtonElement);
    const next = step === undefined || at === -1 ? undefined : this.#bits[at + step];
    if (next === undefined) return;
    event.preventDefault();
    next.focus();
  }

  // The bits of a packet, each with its value; without one they are empty.
  showBits(reading: Reading | undefined): void {
    const bits = bitsOf(reading);
    const unset = unsetBits(reading);
    for (const button of this.#bits) {
      const bit = Number(button.dataset["bit"]);
      const value = bits[bit] ?? "";
      const { byte, column } = { byte: bit >> 3, column: 7 - (bit & 7) };
      button.textContent = value === "" ? "·" : value;
      button.disabled = value === "";
      button.classList.toggle("one", value === "1");
      button.classList.toggle("unset", unset.has(bit));
      button.setAttribute("aria-label", `Bit ${column} of byte ${byte}: ${value === "" ? "no packet" : value}`);
    }
  }

  showChosen(chosen: number | undefined, isRevealed: boolean): void {
    this.#chosen = chosen;
    let isFirst = true;
    for (const piece of this.container.querySelectorAll<HTMLElement>(".piece")) {
      const isChosen = chosen !== undefined && piece.dataset["elements"]!.split(" ").includes(String(chosen));
      piece.classList.toggle("chosen", isChosen);
      if (isChosen && isFirst && isRevealed) reveal(piece, this.container);
      isFirst &&= !isChosen;
    }
  }
}

// Bits of attributes that a write does not set.
function unsetBits(reading: Reading | undefined): Set<number> {
  const unset = new Set<number>();
  const isUnset = (value: FieldValue): boolean => value.bits === undefined && value.place !== undefined;
  for (const { place } of reading?.values?.filter(isUnset) ?? []) {
    for (let i = 0; i < place!.bits; ++i) unset.add(place!.firstBit + i);
  }
  return unset;
}
