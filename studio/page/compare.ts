// A second configuration beside the first: what it breaks, and both pictures.

import { byId, count, element, takeFiles } from "./dom";
import type { Change, Changes, Entities, Entity, Site } from "./forms";
import { isFailure } from "./forms";
import { Picture } from "./picture";
import type { Studio } from "./studio";

export class CompareView {
  readonly #result = byId("compare-result");
  readonly #before = new Picture(byId("picture-before"), undefined, false);
  readonly #after = new Picture(byId("picture-after"), undefined, false);
  #file: { name: string; text: string } | undefined;

  #turn = 0;

  constructor(
    private readonly studio: Studio,
    private readonly goTo: (site: Site) => void,
  ) {
    takeFiles(byId<HTMLInputElement>("compare"), byId("compare-section"), (file) => {
      void file.text().then((text) => {
        this.#file = { name: file.name, text };
        void this.#draw();
      });
    });
    studio.on("entity", () => void this.#draw());
  }

  async #draw(): Promise<void> {
    if (this.#file === undefined) return;
    const { name, text } = this.#file;
    const turn = ++this.#turn;
    const { configuration } = this.studio;
    const [changes, after] = await Promise.all([
      this.studio.ask<Changes>({ ask: "compare", configuration, after: text }),
      this.#entityIn(text),
    ]);
    if (turn !== this.#turn) return;
    byId("pictures").hidden = isFailure(changes);
    if (isFailure(changes)) {
      this.#result.replaceChildren(element("p", { class: "problem" }, changes.error));
      return;
    }
    this.#result.replaceChildren(
      element("p", { class: "summary" }, `${this.studio.fileName} → ${name}: ${summaryOf(changes)}`),
      element("ul", { class: "changes" }, ...changes.findings.map((change) => this.#itemOf(change))),
    );
    byId("picture-before").hidden = this.studio.entity === undefined;
    if (this.studio.entity !== undefined) this.#before.draw(this.studio.entity);
    byId("picture-after").hidden = after === undefined;
    byId("no-picture-after").hidden = after !== undefined;
    if (after !== undefined) this.#after.draw(after);
  }

  // The entity of the next version that has the name of the chosen one, or else a new name in its place.
  async #entityIn(text: string): Promise<Entity | undefined> {
    const all = await this.studio.ask<Entities>({ ask: "entities", configuration: text });
    if (isFailure(all)) return undefined;
    const { entities, entityIndex } = this.studio;
    const same = all.entities.findIndex(({ name }) => name === entities[entityIndex]?.name);
    const inPlace = all.entities[entityIndex]?.name;
    if (same === -1 && entities.some(({ name }) => name === inPlace)) return undefined;
    const entity = same === -1 ? entityIndex : same;
    const after = await this.studio.ask<Entity>({ ask: "entity", configuration: text, entity });
    return isFailure(after) ? undefined : after;
  }

  #itemOf(change: Change): HTMLElement {
    const { old, new: next } = change;
    const lines = [old, next].map((site) => (site === undefined ? "–" : String(site.line)));
    const packetLine = (title: string, shown: Change["before"]): HTMLElement | false =>
      shown !== undefined &&
      element(
        "span",
        { class: "detail" },
        element("b", {}, `${title} `),
        shown.packet !== undefined && element("code", {}, shown.packet),
        ` ${shown.meaning ?? ""}`,
      );
    return element(
      "li",
      { class: change.severity, "data-testid": "change", "data-rule": change.rule },
      element(
        "button",
        { type: "button", disabled: old === undefined, onclick: () => old !== undefined && this.goTo(old) },
        element("span", { class: `badge ${change.severity}` }, WHO[change.severity]),
        " ",
        element("strong", {}, change.message),
        element("span", { class: "where" }, ` line ${lines.join(" → ")} · ${change.rule}`),
        element("span", { class: "detail" }, element("b", {}, "Effect "), change.effect),
        packetLine("Before", change.before),
        packetLine("After", change.after),
        element("span", { class: "detail" }, element("b", {}, "Fix "), change.fix),
      ),
    );
  }
}

function summaryOf({ counts, findings }: Changes): string {
  if (findings.length === 0) return "no changes";
  const { error, warning, info } = counts;
  const breaks = (number: number): string => (number === 1 ? "breaks" : "break");
  return (
    `${count(error, "change")} ${breaks(error)} devices in the field, ` +
    `${warning} ${breaks(warning)} applications, ${info} ${breaks(info)} nobody`
  );
}

const WHO = { error: "breaks devices", warning: "breaks applications", info: "breaks nobody" };
