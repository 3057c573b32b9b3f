// What the filter of a capture says: a part of a row, and values that attributes have.

import type { Attribute } from "./forms";

interface Condition {
  index: number; // of the attribute's column
  holds(value: number): boolean;
}

interface Filter {
  text: string; // what a row contains, in lower case
  conditions: Condition[];
  problems: string[]; // conditions that no row can be asked
}

// A value of a column of a capture, for people.
export function valueText({ type, items }: Attribute, value: number): string {
  return type === "bool" ? String(value !== 0) : (items?.[value] ?? String(value));
}

// Numbers are equal; words and items begin with what was typed.
function conditionOf(attribute: Attribute, index: number, wanted: string): Condition {
  const isWord = attribute.type === "bool" || attribute.items !== undefined;
  const holds = (value: number): boolean =>
    wanted === "" ||
    value === Number(wanted) ||
    (isWord && valueText(attribute, value).toLowerCase().startsWith(wanted));
  return { index, holds: (value) => !Number.isNaN(value) && holds(value) };
}

// Of "notify power=true program=keep warm": the text before the first condition, and two conditions.
export function conditionsOf(filter: string, attributes: Attribute[]): Filter {
  const all = filter.trim().toLowerCase();
  const first = all.search(/[^\s=]+=/);
  const found: Filter = { text: (first === -1 ? all : all.slice(0, first)).trim(), conditions: [], problems: [] };
  if (first === -1) return found;
  for (const [, name, wanted] of all.slice(first).matchAll(/([^\s=]+)=(.*?)(?=\s+[^\s=]+=|$)/g)) {
    const index = attributes.findIndex((attribute) => attribute.name.toLowerCase() === name);
    const attribute = attributes[index];
    if (attribute === undefined) found.problems.push(`there is no attribute ${name}`);
    else if (attribute.type === "binary") found.problems.push(`${name} is binary: filter for bytes alone`);
    else found.conditions.push(conditionOf(attribute, index, wanted!.trim()));
  }
  return found;
}
