// What is kept over a reload, in the browser's local storage.

import type { Shared } from "./share";
import { sharedOf } from "./share";

const KEY = "morvix-studio";

// Undefined where nothing was kept or storage is not allowed.
export function kept(): Shared | undefined {
  try {
    const text = localStorage.getItem(KEY);
    return text === null ? undefined : sharedOf(JSON.parse(text));
  } catch {
    return undefined;
  }
}

// False when the browser has no room for it.
export function keep(state: Shared): boolean {
  try {
    localStorage.setItem(KEY, JSON.stringify(state));
    return true;
  } catch {
    return false;
  }
}
