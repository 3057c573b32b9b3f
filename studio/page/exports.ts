// Files to take away, each with the command line that makes the same.

import { byId, copyOnClick, download, element } from "./dom";
import type { Exported } from "./forms";
import { isFailure } from "./forms";
import type { Studio } from "./studio";

const FORMS = [
  ["svg", "Picture (SVG)"],
  ["c", "Device code (C)"],
  ["vectors", "Test vectors (JSON)"],
  ["wireshark", "Wireshark dissector"],
  ["c-array", "Packet as a C array"],
] as const;

export class ExportView {
  readonly #dialog = byId<HTMLDialogElement>("export-dialog");
  readonly #body = byId("export-body");
  #turn = 0;

  constructor(private readonly studio: Studio) {
    const forms = byId("export-forms");
    FORMS.forEach(([form, title], i) => {
      const radio = element("input", {
        type: "radio",
        name: "export-form",
        value: form,
        "data-testid": `export-${form}`,
        checked: i === 0,
        onchange: () => void this.#show(form),
      });
      forms.append(element("label", {}, radio, title));
    });
    byId("export").addEventListener("click", () => {
      this.#dialog.showModal();
      const chosen = forms.querySelector<HTMLInputElement>("input:checked");
      void this.#show(chosen?.value ?? "svg");
    });
  }

  async #show(form: string): Promise<void> {
    const { fileName: file, written } = this.studio;
    const packet = written === undefined || isFailure(written) ? "" : (written.reading?.packet ?? "");
    const turn = ++this.#turn;
    const request = { ask: "export", form, file, packet, ...this.studio.writeRequest() };
    const exported = await this.studio.askEntity<Exported>(request);
    if (turn !== this.#turn) return;
    if (isFailure(exported)) {
      this.#body.replaceChildren(element("p", { class: "problem" }, exported.error));
      return;
    }
    const { command, files } = exported;
    const copy = element("button", { type: "button" }, "Copy");
    copyOnClick(copy, () => command);
    this.#body.replaceChildren(
      element("p", { class: "command-line" }, element("code", { "data-testid": "export-command" }, command), copy),
      ...files.map(({ name, text }) =>
        element(
          "section",
          { class: "export-file" },
          element(
            "p",
            {},
            element("b", {}, name),
            element(
              "button",
              { type: "button", "data-testid": `download-${name}`, onclick: () => download(name, text) },
              "Download",
            ),
          ),
          element("pre", { tabindex: "0", "aria-label": name }, text),
        ),
      ),
    );
  }
}
