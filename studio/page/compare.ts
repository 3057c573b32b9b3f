// A second configuration beside the first: what it breaks, and both pictures.

import { byId, count, element, takeFiles } from "./dom";
import type { Change, Changes, Entity } from "./forms";
import { isFailure } from "./forms";
import { Picture } from "./picture";
import type { Studio } from "./studio";

export class CompareView {
  readonly #result = byId("compare-result");
  readonly #before = new Picture(byId("picture-before"), undefined, false);
  readonly #after = new Picture(byId("picture-after"), undefined, false);
  #file: { name: string; text: string } | undefined;

  constructor(private readonly studio: Studio) {
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
    const changes = await this.studio.ask<Changes>({
      ask: "compare",
      configuration: this.studio.configuration,
      after: text,
    });
    byId("pictures").hidden = isFailure(changes);
    if (isFailure(changes)) {
      this.#result.replaceChildren(element("p", { class: "problem" }, changes.error));
      return;
    }
    const { counts, findings } = changes;
    const broken = `${count(counts.error, "change")} for devices in the field, ${counts.warning} for applications`;
    const title = `${this.studio.fileName} → ${name}: ${broken}, ${counts.info} for nobody`;
    this.#result.replaceChildren(
      element("p", { class: "summary" }, title),
      element("ul", { class: "changes" }, ...findings.map((change) => this.#itemOf(change))),
    );
    await this.#drawPictures(text);
  }

  async #drawPictures(text: string): Promise<void> {
    const entity = this.studio.entityIndex;
    const after = await this.studio.ask<Entity>({ ask: "entity", configuration: text, entity });
    if (this.studio.entity !== undefined) this.#before.draw(this.studio.entity);
    if (!isFailure(after)) this.#after.draw(after);
  }

  #itemOf(change: Change): HTMLElement {
    const named = this.studio.entity?.attributes.find(({ name }) => change.attributes.includes(name));
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
        { type: "button", onclick: () => this.studio.select(named?.element) },
        element("span", { class: `badge ${change.severity}` }, WHO[change.severity]),
        element("strong", {}, change.message),
        element("span", { class: "detail" }, element("b", {}, "Effect "), change.effect),
        packetLine("Before", change.before),
        packetLine("After", change.after),
        element("span", { class: "detail" }, element("b", {}, "Fix "), change.fix),
      ),
    );
  }
}

const WHO = { error: "breaks devices", warning: "breaks applications", info: "breaks nobody" };
