// JSON pointers and the editor's syntax tree.

import { syntaxTree } from "@codemirror/language";
import type { EditorState } from "@codemirror/state";
import type { SyntaxNode } from "@lezer/common";

const VALUES = new Set(["Object", "Array", "String", "Number", "True", "False", "Null"]);

function valueIn(node: SyntaxNode): SyntaxNode | null {
  for (let child = node.firstChild; child !== null; child = child.nextSibling) {
    if (VALUES.has(child.name)) return child;
  }
  return null;
}

// The text of a string or member name.
export function textOf(state: EditorState, node: SyntaxNode): string {
  const text = state.sliceDoc(node.from, node.to);
  try {
    return String(JSON.parse(text));
  } catch {
    return text.replace(/^"|"$/g, "");
  }
}

export function nameOf(state: EditorState, property: SyntaxNode): string {
  const name = property.getChild("PropertyName");
  return name === null ? "" : textOf(state, name);
}

function memberOf(state: EditorState, object: SyntaxNode, name: string): SyntaxNode | null {
  // Of members that repeat, the last one counts.
  const found = object.getChildren("Property").filter((property) => nameOf(state, property) === name);
  return found.length === 0 ? null : valueIn(found[found.length - 1]!);
}

export function itemsOf(array: SyntaxNode): number {
  let items = 0;
  for (let child = array.firstChild; child !== null; child = child.nextSibling) {
    if (VALUES.has(child.name)) ++items;
  }
  return items;
}

function itemOf(array: SyntaxNode, index: number): SyntaxNode | null {
  let left = index;
  for (let child = array.firstChild; child !== null; child = child.nextSibling) {
    if (VALUES.has(child.name) && left-- === 0) return child;
  }
  return null;
}

// The value at a pointer; null when the text has none there.
export function nodeAt(state: EditorState, pointer: string): SyntaxNode | null {
  let node = valueIn(syntaxTree(state).topNode);
  for (const token of pointer.split("/").slice(1)) {
    if (node === null) return null;
    const name = token.replace(/~1/g, "/").replace(/~0/g, "~");
    node = node.name === "Array" ? itemOf(node, Number(name)) : memberOf(state, node, name);
  }
  return node;
}

// The names and indexes that lead to a place in the text.
export function pathTo(state: EditorState, node: SyntaxNode): (string | number)[] {
  const path: (string | number)[] = [];
  for (let child = node, parent = node.parent; parent !== null; child = parent, parent = parent.parent) {
    if (child.name === "Property") path.unshift(nameOf(state, child));
    if (parent.name !== "Array") continue;
    let index = 0;
    for (let before = child.prevSibling; before !== null; before = before.prevSibling) {
      if (VALUES.has(before.name)) ++index;
    }
    path.unshift(index);
  }
  return path;
}
