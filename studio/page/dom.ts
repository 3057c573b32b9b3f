// Elements of the page.

type Child = Node | string | undefined | false;
type Properties = Record<string, string | number | boolean | ((event: never) => void) | undefined>;

const COPY_NOTE_MS = 2000;

// An element with attributes, listeners ("onclick") and children. `true` sets an attribute without a value; `false` and
// undefined leave it out.
export function element<K extends keyof HTMLElementTagNameMap>(
  tag: K,
  properties: Properties = {},
  ...children: Child[]
): HTMLElementTagNameMap[K] {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (typeof value === "function") {
      made.addEventListener(name.slice(2), value as EventListener);
    } else if (value !== undefined && value !== false) {
      made.setAttribute(name, value === true ? "" : String(value));
    }
  }
  made.append(...children.filter((child): child is Node | string => child !== undefined && child !== false));
  return made;
}

export function byId<T extends HTMLElement>(id: string): T {
  return document.getElementById(id) as T;
}

// Scrolls inside the nearest scrolling parent only, never the page.
export function reveal(target: HTMLElement, scroller: HTMLElement): void {
  const inner = target.getBoundingClientRect();
  const outer = scroller.getBoundingClientRect();
  if (inner.top < outer.top) scroller.scrollTop -= outer.top - inner.top + 8;
  if (inner.bottom > outer.bottom) scroller.scrollTop += inner.bottom - outer.bottom + 8;
}

export function count(number: number, noun: string): string {
  return `${number.toLocaleString("en")} ${noun}${number === 1 ? "" : "s"}`;
}

// Gives a file to the user.
export function download(name: string, text: string): void {
  const url = URL.createObjectURL(new Blob([text], { type: "text/plain" }));
  element("a", { href: url, download: name }).click();
  window.setTimeout(() => URL.revokeObjectURL(url), 1000);
}

// Copies a text. A browser may refuse it; on pages that are not served securely, it only knows the old way.
async function isCopied(text: string): Promise<boolean> {
  try {
    await navigator.clipboard.writeText(text);
    return true;
  } catch {
    const area = element("textarea", { readonly: true, "aria-hidden": "true" });
    area.value = text;
    (document.querySelector("dialog[open]") ?? document.body).append(area); // all else is inert while a dialog is open
    area.select();
    const isDone = document.execCommand("copy");
    area.remove();
    return isDone;
  }
}

// Lets a button copy a text, and tell for a moment what became of it.
export function copyOnClick(button: HTMLButtonElement, text: () => string): void {
  const label = button.textContent;
  button.addEventListener("click", async () => {
    button.textContent = (await isCopied(text())) ? "Copied" : "The browser did not copy it";
    button.focus();
    window.setTimeout(() => (button.textContent = label), COPY_NOTE_MS);
  });
}

// Takes files from a file input, and those dropped on an element.
export function takeFiles(
  input: HTMLInputElement,
  target: HTMLElement,
  take: (file: File) => void,
  takeDropped = take,
): void {
  input.addEventListener("change", () => {
    const file = input.files?.[0];
    if (file !== undefined) take(file);
    input.value = "";
  });
  target.addEventListener("dragover", (event) => {
    event.preventDefault();
    target.classList.add("dropping");
  });
  target.addEventListener("dragleave", () => target.classList.remove("dropping"));
  target.addEventListener("drop", (event) => {
    event.preventDefault();
    event.stopPropagation();
    target.classList.remove("dropping");
    const file = event.dataTransfer?.files[0];
    if (file !== undefined) takeDropped(file);
  });
}
