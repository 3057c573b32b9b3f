// Completion and hover texts from the schema of configurations.

import type { Completion, CompletionContext, CompletionResult } from "@codemirror/autocomplete";
import { syntaxTree } from "@codemirror/language";
import type { EditorState } from "@codemirror/state";
import type { Tooltip } from "@codemirror/view";
import type { EditorView } from "@codemirror/view";
import type { SyntaxNode } from "@lezer/common";
import document_ from "../../schemas/product-configuration.schema.json";
import { element } from "./dom";
import { newProduct } from "./examples";
import { itemsOf, nameOf, pathTo } from "./pointer";

interface Schema {
  $ref?: string;
  title?: string;
  description?: string;
  type?: string | string[];
  enum?: unknown[];
  const?: unknown;
  examples?: unknown[];
  required?: string[];
  properties?: Record<string, Schema>;
  items?: Schema;
  $defs?: Record<string, Schema>;
  allOf?: Schema[];
  anyOf?: Schema[];
  oneOf?: Schema[];
  if?: Schema;
  then?: Schema;
  else?: Schema;
}

const root = document_ as unknown as Schema;

// The schema and all that it refers to or is combined of, its own words first.
function partsOf(schema: Schema): Schema[] {
  const referred = schema.$ref === undefined ? undefined : root.$defs?.[schema.$ref.replace("#/$defs/", "")];
  const combined = [...(schema.allOf ?? []), ...(schema.anyOf ?? []), ...(schema.oneOf ?? [])];
  const others = [referred, ...combined, schema.then, schema.else];
  return [schema, ...others.flatMap((other) => (other === undefined ? [] : partsOf(other)))];
}

function schemasAt(path: (string | number)[]): Schema[] {
  let schemas = partsOf(root);
  for (const step of path) {
    const next = schemas.map((schema) => (typeof step === "number" ? schema.items : schema.properties?.[step]));
    schemas = next.flatMap((schema) => (schema === undefined ? [] : partsOf(schema)));
  }
  return schemas;
}

function describe(schemas: Schema[]): HTMLElement | undefined {
  const described = schemas.find((schema) => schema.description !== undefined);
  if (described === undefined) return undefined;
  const title = schemas.find((schema) => schema.title !== undefined)?.title ?? "";
  return element("div", { class: "hint" }, element("strong", {}, title), element("p", {}, described.description!));
}

type Example = Record<string, unknown>;

function examplesOf(schemas: Schema[]): Example[] {
  const examples = schemas.flatMap((schema) => schema.examples ?? []);
  return examples.filter((one): one is Example => typeof one === "object" && one !== null && !Array.isArray(one));
}

function inline(value: unknown): string {
  if (Array.isArray(value)) return `[${value.map(inline).join(", ")}]`;
  if (typeof value !== "object" || value === null) return JSON.stringify(value);
  return `{${Object.entries(value)
    .map(([name, one]) => `${JSON.stringify(name)}: ${inline(one)}`)
    .join(", ")}}`;
}

// An object with a member a line, each line after the first indented.
function multiline(example: Example, indent: string): string {
  const members = Object.entries(example).map(
    ([name, value]) => `${indent}  ${JSON.stringify(name)}: ${inline(value)}`,
  );
  return `{\n${members.join(",\n")}\n${indent}}`;
}

// Examples of what an array at this path holds, each with a title made of its own words.
export function itemExamples(
  path: (string | number)[],
): { title: string; text(index: number, indent: string): string }[] {
  return examplesOf(schemasAt([...path, 0])).map((example) => ({
    title: Object.values(example)
      .filter((value) => typeof value === "string" && value !== "")
      .slice(1)
      .join(", "),
    text: (index, indent) => multiline("id" in example ? { ...example, id: index } : example, indent),
  }));
}

// A value to start a member with.
function skeletonOf(schemas: Schema[]): string {
  const example = examplesOf(schemas)[0];
  if (example !== undefined) return inline(example);
  const words = schemas.flatMap((schema) => schema.enum ?? []);
  if (words.length > 0) return '""';
  const type = schemas.flatMap((schema) => schema.type ?? [])[0];
  const skeletons: Record<string, string> = { array: "[]", object: "{}", string: '""', boolean: "false" };
  return skeletons[type ?? ""] ?? "0";
}

// What a completion replaces: with what was typed, the quotation marks around it.
function rangeOf(state: EditorState, from: number, to: number): { from: number; to: number } {
  const isOpen = state.sliceDoc(from - 1, from) === '"';
  const isClosed = isOpen && state.sliceDoc(to, to + 1) === '"';
  return { from: isOpen ? from - 1 : from, to: isClosed ? to + 1 : to };
}

function memberCompletions(state: EditorState, object: SyntaxNode, current: SyntaxNode | null): Completion[] {
  const schemas = schemasAt(pathTo(state, object));
  const present = new Set(
    object
      .getChildren("Property")
      .filter((property) => property.from !== current?.from)
      .map((property) => nameOf(state, property)),
  );
  const hasValue = current !== null && current.getChild("PropertyName")?.nextSibling != null;
  const required = new Set(schemas.flatMap((schema) => schema.required ?? []));
  const names = new Set(schemas.flatMap((schema) => Object.keys(schema.properties ?? {})));
  return [...names]
    .filter((name) => !present.has(name))
    .map((name) => {
      const member = schemasAt([...pathTo(state, object), name]);
      const value = hasValue ? "" : `: ${skeletonOf(member)}`;
      return {
        label: name,
        type: "property",
        detail: member.find((schema) => schema.title !== undefined)?.title ?? "",
        info: () => describe(member) ?? null,
        boost: required.has(name) ? 1 : 0,
        apply: (view, _completion, from, to) => {
          const range = rangeOf(view.state, from, to);
          const insert = `${JSON.stringify(name)}${value}`;
          const inside = /["\]}]$/.test(value) ? 1 : 0;
          view.dispatch({ changes: { ...range, insert }, selection: { anchor: range.from + insert.length - inside } });
        },
      };
    });
}

function valueCompletions(state: EditorState, node: SyntaxNode): Completion[] {
  const schemas = schemasAt(pathTo(state, node));
  const words = schemas.flatMap((schema) => [
    ...(schema.enum ?? []),
    ...(schema.const === undefined ? [] : [schema.const]),
    ...(schema.examples ?? []).filter((example) => typeof example !== "object"),
  ]);
  return [...new Set(words)].map((word, i) => ({
    label: String(word),
    type: "enum",
    boost: -i, // in their order
    apply: (view: EditorView, _completion: Completion, from: number, to: number) => {
      const range = rangeOf(view.state, from, to);
      const insert = JSON.stringify(word);
      view.dispatch({ changes: { ...range, insert }, selection: { anchor: range.from + insert.length } });
    },
  }));
}

// What a cursor is in: brackets and commas are not places of their own.
function placeAt(state: EditorState, pos: number): SyntaxNode {
  const node = syntaxTree(state).resolveInner(pos, -1);
  const isToken = node.type.isError || !/^[A-Z]/.test(node.name);
  const around = isToken ? (node.parent ?? node) : node;
  const isAfter = node.name === "]" || node.name === "}";
  return isAfter ? (around.parent ?? around) : around;
}

export function complete(context: CompletionContext): CompletionResult | null {
  const { state, pos } = context;
  const node = placeAt(state, pos);
  const word = context.matchBefore(/[\w$]*/)!; // that is typed without quotation marks
  const isOpen = state.sliceDoc(node.from, node.from + 1) === '"';
  const isClosed = isOpen && node.to > node.from + 1 && state.sliceDoc(node.to - 1, node.to) === '"';
  const begin = node.from + (isOpen ? 1 : 0);
  const end = node.to - (isClosed ? 1 : 0);
  if (node.name === "PropertyName" && pos >= begin && pos <= end) {
    const property = node.parent!;
    return { from: begin, to: end, options: memberCompletions(state, property.parent!, property) };
  }
  if ((node.name === "String" || node.name === "Number") && pos >= begin && pos <= end) {
    const options = valueCompletions(state, node);
    return options.length === 0 ? null : { from: Math.min(begin, word.from), to: end, options };
  }
  if (!context.explicit && word.text === "") return null;
  return optionsOf(state, node, word.from);
}

function optionsOf(state: EditorState, node: SyntaxNode, from: number): CompletionResult | null {
  switch (node.name) {
    case "JsonText":
      return { from, options: [{ label: "product", detail: "with one attribute", apply: newProduct }] };
    case "Array": {
      const indent = /^\s*/.exec(state.doc.lineAt(from).text)![0];
      const examples = itemExamples(pathTo(state, node));
      const options = examples.map(({ title, text }, i) => ({
        label: title,
        boost: -i, // in their order
        apply: text(itemsOf(node), indent),
      }));
      return { from, options };
    }
    case "Object":
      return { from, options: memberCompletions(state, node, null) };
    case "Property":
      return { from, options: valueCompletions(state, node) };
    default:
      return null;
  }
}

export function hover(view: EditorView, pos: number, side: -1 | 1): Tooltip | null {
  const node = syntaxTree(view.state).resolveInner(pos, side);
  if (node.name !== "PropertyName" && node.parent?.name !== "Property") return null;
  const shown = describe(schemasAt(pathTo(view.state, node)));
  if (shown === undefined) return null;
  return { pos: node.from, end: node.to, above: true, create: () => ({ dom: shown }) };
}
