// The editor of the configuration, with findings at their places and the chosen attribute marked.

import { autocompletion, closeBrackets, closeBracketsKeymap, completionKeymap } from "@codemirror/autocomplete";
import {
  defaultKeymap,
  history,
  historyKeymap,
  indentWithTab,
  invertedEffects,
  isolateHistory,
  undoDepth,
} from "@codemirror/commands";
import { json } from "@codemirror/lang-json";
import {
  bracketMatching,
  ensureSyntaxTree,
  foldGutter,
  foldKeymap,
  HighlightStyle,
  indentOnInput,
  indentUnit,
  syntaxHighlighting,
} from "@codemirror/language";
import type { Diagnostic } from "@codemirror/lint";
import { lintGutter, lintKeymap, setDiagnostics } from "@codemirror/lint";
import { highlightSelectionMatches, searchKeymap } from "@codemirror/search";
import { EditorState, StateEffect, StateField } from "@codemirror/state";
import type { DecorationSet } from "@codemirror/view";
import {
  Decoration,
  drawSelection,
  EditorView,
  highlightActiveLine,
  highlightActiveLineGutter,
  hoverTooltip,
  keymap,
  lineNumbers,
} from "@codemirror/view";
import { tags } from "@lezer/highlight";
import { byId, element } from "./dom";
import type { Finding, Site } from "./forms";
import { itemsOf, nodeAt, pathTo } from "./pointer";
import { complete, hover, itemExamples } from "./schema";
import type { Studio } from "./studio";

const TYPING_PAUSE_MS = 150;
const MOST_MARKS = 1000;
const MOST_PARSING_MS = 300;

const colors = HighlightStyle.define([
  { tag: tags.propertyName, color: "var(--code-name)" },
  { tag: tags.string, color: "var(--code-string)" },
  { tag: [tags.number, tags.bool, tags.null], color: "var(--code-number)" },
]);

const markAttribute = StateEffect.define<{ from: number; to: number } | null>();

const attributeMark = StateField.define<DecorationSet>({
  create: () => Decoration.none,
  update(marks, transaction) {
    marks = marks.map(transaction.changes);
    for (const effect of transaction.effects) {
      if (effect.is(markAttribute)) marks = linesOf(transaction.state, effect.value);
    }
    return marks;
  },
  provide: (field) => EditorView.decorations.from(field),
});

// The name of the file that the text came from. Undo and redo set it as they set the text.
const setName = StateEffect.define<string>();

const fileName = StateField.define<string>({
  create: () => "",
  update: (name, { effects }) => effects.find((effect) => effect.is(setName))?.value ?? name,
});

const undoneName = invertedEffects.of(({ effects, startState }) =>
  effects.some((effect) => effect.is(setName)) ? [setName.of(startState.field(fileName))] : [],
);

function linesOf(state: EditorState, range: { from: number; to: number } | null): DecorationSet {
  if (range === null) return Decoration.none;
  const first = state.doc.lineAt(range.from).number;
  const last = state.doc.lineAt(range.to).number;
  const marks = [];
  for (let line = first; line <= last; ++line) {
    marks.push(Decoration.line({ class: "cm-chosen" }).range(state.doc.line(line).from));
  }
  return Decoration.set(marks);
}

// Columns of findings count bytes.
function offsetOf(state: EditorState, line: number, column: number): number {
  const { from, text } = state.doc.line(Math.min(Math.max(line, 1), state.doc.lines));
  const bytes = new TextEncoder().encode(text).slice(0, column - 1);
  return Math.min(from + new TextDecoder().decode(bytes).length, state.doc.length);
}

function rangeOf(state: EditorState, site: Site): { from: number; to: number } {
  const from = offsetOf(state, site.line, site.column);
  const node = nodeAt(state, site.pointer);
  if (node === null || node.from !== from) return { from, to: Math.min(from + 1, state.doc.length) };
  // Of a value of many lines, only the first is marked.
  return { from, to: Math.min(node.to, state.doc.lineAt(from).to) };
}

function diagnosticOf(state: EditorState, finding: Finding): Diagnostic {
  return {
    ...rangeOf(state, finding),
    severity: finding.severity,
    message: finding.message,
    renderMessage: () =>
      element(
        "div",
        { class: "hint" },
        element("strong", {}, finding.message),
        element("p", {}, element("b", {}, "Effect: "), finding.effect),
        element("p", {}, element("b", {}, "Fix: "), finding.fix),
      ),
  };
}

export class Editor {
  readonly #view: EditorView;
  #timer = 0;
  #isOpening = false;
  #lineBreak = "\n"; // of the file, to be saved again

  constructor(private readonly studio: Studio) {
    this.#view = new EditorView({ parent: byId("configuration"), state: this.#stateOf("") });
    studio.on("configuration", () => this.#open());
    studio.on("findings", () => this.#showFindings());
    studio.on("entity", () => this.#followCursor());
    studio.on("selection", () => this.#showChosen());
  }

  // Puts the cursor on a place.
  goTo(site: Site): void {
    const { from } = rangeOf(this.#view.state, site);
    this.#view.focus(); // first, so that the attribute at the cursor is chosen
    this.#view.dispatch({ selection: { anchor: from }, effects: EditorView.scrollIntoView(from, { y: "center" }) });
  }

  // Appends an attribute like one of the schema's examples to the chosen entity.
  insert(example: number): void {
    const { state } = this.#view;
    ensureSyntaxTree(state, state.doc.length, MOST_PARSING_MS);
    const path = ["entities", this.studio.entityIndex, "attrs"];
    const array = nodeAt(state, `/${path.join("/")}`);
    if (array === null || array.name !== "Array") {
      return this.studio.tell('There is no array "attrs" to insert into. "Examples…" has a product to start from.');
    }
    const last = array.lastChild?.prevSibling ?? null;
    const items = itemsOf(array);
    const line = state.doc.lineAt(items === 0 ? array.from : last!.from);
    const indent = /^\s*/.exec(line.text)![0] + (items === 0 ? "  " : "");
    const from = items === 0 ? array.from + 1 : last!.to;
    const text = itemExamples(path)[example]?.text(items, indent) ?? "";
    const end = items === 0 ? `\n${indent.slice(2)}` : "";
    const insert = `${items === 0 ? "" : ","}\n${indent}${text}${end}`;
    this.#view.dispatch({
      changes: { from, insert },
      selection: { anchor: from + insert.length - end.length - 1 },
      scrollIntoView: true,
    });
    this.#view.focus();
  }

  // The text as it stands, also while somebody types.
  text(): string {
    const { doc } = this.#view.state;
    return doc.sliceString(0, doc.length, this.#lineBreak);
  }

  // Whether the studio's answers are about the text as it stands.
  #isCurrent(): boolean {
    const { state } = this.#view;
    return state.doc.eq(state.toText(this.studio.configuration));
  }

  #stateOf(text: string): EditorState {
    return EditorState.create({
      doc: text,
      extensions: [
        lineNumbers(),
        lintGutter(),
        foldGutter(),
        highlightActiveLine(),
        highlightActiveLineGutter(),
        history(),
        fileName.init(() => this.studio.fileName),
        undoneName,
        drawSelection(),
        indentUnit.of("  "),
        indentOnInput(),
        bracketMatching(),
        closeBrackets(),
        highlightSelectionMatches(),
        json(),
        EditorView.lineWrapping,
        syntaxHighlighting(colors),
        autocompletion({ override: [complete], icons: false }),
        hoverTooltip(hover),
        attributeMark,
        keymap.of([
          ...closeBracketsKeymap,
          ...completionKeymap,
          ...searchKeymap,
          ...historyKeymap,
          ...foldKeymap,
          ...lintKeymap,
          ...defaultKeymap,
          indentWithTab,
        ]),
        EditorView.contentAttributes.of({
          "aria-label": "Product configuration (JSON); Escape, then Tab leaves the editor",
          tabindex: "0",
        }),
        EditorView.updateListener.of((update) => {
          if (this.#isOpening) return;
          const name = update.state.field(fileName);
          if (name !== this.studio.fileName) this.studio.rename(name);
          if (update.docChanged) this.#edited();
          else if (update.selectionSet && update.view.hasFocus) this.#followCursor();
        }),
      ],
    });
  }

  #open(): void {
    this.#isOpening = true;
    window.clearTimeout(this.#timer);
    this.#lineBreak = this.studio.configuration.includes("\r\n") ? "\r\n" : "\n";
    const { doc } = this.#view.state;
    if (doc.length === 0 && undoDepth(this.#view.state) === 0) {
      this.#view.setState(this.#stateOf(this.studio.configuration));
    } else {
      // Undo brings the last text back.
      const changes = { from: 0, to: doc.length, insert: this.studio.configuration };
      this.#view.dispatch({
        changes,
        selection: { anchor: 0 },
        effects: setName.of(this.studio.fileName),
        annotations: isolateHistory.of("full"),
        scrollIntoView: true,
      });
    }
    this.#isOpening = false;
  }

  #edited(): void {
    this.studio.tell(""); // it has been read by now
    window.clearTimeout(this.#timer);
    this.#timer = window.setTimeout(() => {
      void this.studio.edit(this.text());
    }, TYPING_PAUSE_MS);
  }

  #showFindings(): void {
    const { state } = this.#view;
    if (!this.#isCurrent()) return;
    ensureSyntaxTree(state, state.doc.length, MOST_PARSING_MS);
    const findings = this.studio.findings?.findings.slice(0, MOST_MARKS) ?? [];
    const diagnostics = findings.map((finding) => diagnosticOf(state, finding));
    diagnostics.sort((one, other) => one.from - other.from);
    this.#view.dispatch(setDiagnostics(state, diagnostics));
  }

  // The entity and the attribute in which the cursor stands are the chosen ones.
  #followCursor(): void {
    if (!this.#view.hasFocus) return this.#showChosen();
    const { state } = this.#view;
    const tree = ensureSyntaxTree(state, state.selection.main.head, MOST_PARSING_MS);
    const node = tree?.resolveInner(state.selection.main.head, 1);
    const path = node === undefined ? [] : pathTo(state, node);
    const [entities, entity, attrs, index] = path;
    if (entities !== "entities" || typeof entity !== "number") return;
    if (entity !== this.studio.entityIndex) {
      // While the text is broken, or not yet looked at, nobody knows where an entity ends.
      const isKnown = this.studio.problem === "" && this.#isCurrent();
      if (isKnown) void this.studio.chooseEntity(entity); // and then follow the cursor again
      return;
    }
    if (attrs !== "attrs" || typeof index !== "number") return;
    const isShown = this.studio.attribute(index)?.pointer === `/entities/${entity}/attrs/${index}`;
    if (isShown) this.studio.select(index);
  }

  #showChosen(): void {
    const { state } = this.#view;
    ensureSyntaxTree(state, state.doc.length, MOST_PARSING_MS);
    const attribute = this.studio.attribute(this.studio.selected);
    const node = attribute === undefined ? null : nodeAt(state, attribute.pointer);
    const effects: StateEffect<unknown>[] = [markAttribute.of(node)];
    if (node !== null && !this.#view.hasFocus)
      effects.push(EditorView.scrollIntoView(node.from, { y: "start", yMargin: 40 }));
    this.#view.dispatch({ effects });
  }
}
