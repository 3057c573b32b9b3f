// The list of findings, each with its effect and fix.

import { byId, count, element, reveal } from "./dom";
import type { Finding, Severity, Site } from "./forms";
import type { Studio } from "./studio";

const MOST_SHOWN = 200;

export class FindingsView {
  constructor(
    private readonly studio: Studio,
    private readonly goTo: (site: Site) => void,
  ) {
    studio.on("findings", () => this.#draw());
  }

  #draw(): void {
    const { findings, problem } = this.studio;
    const list = byId("findings");
    if (findings === undefined) {
      byId("finding-counts").textContent = "";
      list.replaceChildren(element("li", { class: "empty" }, problem));
      return;
    }
    const kinds = (["error", "warning", "info"] as const).filter((kind) => findings.counts[kind] > 0);
    const badges = kinds.map((kind) =>
      element(
        "button",
        { type: "button", class: `badge ${kind}`, onclick: () => this.#goToFirst(kind) },
        count(findings.counts[kind], kind),
      ),
    );
    byId("finding-counts").replaceChildren(...badges);
    const shown = findings.findings.slice(0, MOST_SHOWN).map((finding) => this.#itemOf(finding));
    if (shown.length === 0) shown.push(element("li", { class: "empty" }, "✓ No findings: every attribute works."));
    const more = findings.findings.length - MOST_SHOWN;
    if (more > 0) shown.push(element("li", { class: "empty" }, `and ${count(more, "more finding")}`));
    list.replaceChildren(...shown);
  }

  #goToFirst(severity: Severity): void {
    const first = byId("findings").querySelector<HTMLElement>(`li.${severity} button`);
    if (first === null) return;
    reveal(first, byId("findings"));
    first.focus();
  }

  #itemOf(finding: Finding): HTMLElement {
    return element(
      "li",
      { "data-testid": "finding", "data-rule": finding.rule, class: finding.severity },
      element(
        "button",
        { type: "button", onclick: () => this.goTo(finding) },
        element("span", { class: `badge ${finding.severity}` }, finding.severity),
        " ",
        element("strong", {}, finding.message),
        element("span", { class: "where" }, ` line ${finding.line} · ${finding.rule}`),
        element("span", { class: "detail" }, element("b", {}, "Effect "), finding.effect),
        element("span", { class: "detail" }, element("b", {}, "Fix "), finding.fix),
      ),
    );
  }
}
