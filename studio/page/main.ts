// The page: connects the views with the state.

import { CaptureView } from "./capture";
import { CompareView } from "./compare";
import { byId, copyOnClick, download, element, takeFiles } from "./dom";
import { Editor } from "./editor";
import { examples } from "./examples";
import { ExportView } from "./exports";
import { FindingsView } from "./findings";
import type { Entity } from "./forms";
import { keep, kept } from "./keep";
import { Picture } from "./picture";
import { ReceivedView } from "./received";
import { itemExamples } from "./schema";
import { fragmentOf, sharedIn } from "./share";
import type { Shared } from "./share";
import { Studio } from "./studio";
import { ValuesView } from "./values";

const MOST_FILE_BYTES = 8 << 20;
const KEEP_PAUSE_MS = 300;
const NO_ENTITY: Entity = { summary: "", remarks: [], rows: [], attributes: [] };

const studio = new Studio();

const editor = new Editor(studio);

function current(): Shared {
  const { fileName: file, entityIndex: entity, packetText: packet } = studio;
  return { file, configuration: editor.text(), entity, packet, write: studio.write() };
}

function isUtf8(bytes: ArrayBuffer): boolean {
  try {
    new TextDecoder("utf-8", { fatal: true }).decode(bytes);
    return true;
  } catch {
    return false;
  }
}

async function openFile(file: File): Promise<void> {
  if (file.size > MOST_FILE_BYTES) {
    const size = (file.size / (1 << 20)).toFixed(1);
    studio.tell(`${file.name} has ${size} MB; the studio opens configurations up to 8 MB. Your text is kept.`);
    return;
  }
  const bytes = await file.arrayBuffer();
  await studio.open(file.name, new TextDecoder().decode(bytes));
  const isText = isUtf8(bytes);
  studio.tell(
    `${file.name} is open.${isText ? "" : " It is not UTF-8: what could not be read was replaced by \ufffd."}`,
  );
}

// What is dropped outside the panels is a capture or a configuration.
async function openDropped(file: File): Promise<void> {
  if (!(await capture.openIfCapture(file))) return openFile(file);
  studio.tell(`${file.name} has packets in its lines: it is read as a capture, below.`);
}

function setUpFiles(): void {
  const open = (file: File): void => void openFile(file);
  takeFiles(byId<HTMLInputElement>("open"), document.body, open, (file) => void openDropped(file));
  const select = byId<HTMLSelectElement>("examples");
  select.append(...examples.map(({ title }, i) => element("option", { value: i }, title)));
  select.addEventListener("change", () => {
    const example = examples[Number(select.value)];
    select.value = "";
    if (example !== undefined) void studio.open(example.file, example.configuration, example.packet);
  });
  const save = (): void => download(studio.fileName, editor.text());
  byId("save").addEventListener("click", save);
  document.addEventListener("keydown", (event) => {
    if (event.key.toLowerCase() !== "s" || !(event.ctrlKey || event.metaKey) || event.shiftKey || event.altKey) return;
    event.preventDefault(); // of the page itself
    save();
  });
  const name = byId("file-name");
  studio.on("name", () => (name.textContent = studio.fileName));
}

function setUpInserting(): void {
  const select = byId<HTMLSelectElement>("insert");
  const options = itemExamples(["entities", 0, "attrs"]).map(({ title }, i) => element("option", { value: i }, title));
  select.append(...options);
  select.addEventListener("change", () => {
    editor.insert(Number(select.value));
    select.value = "";
  });
}

function setUpEntity(): void {
  const select = byId<HTMLSelectElement>("entity");
  select.addEventListener("change", () => void studio.chooseEntity(Number(select.value)));
  studio.on("entity", () => {
    const options = studio.entities.map(({ name, displayName }, i) =>
      element("option", { value: i }, displayName === "" || displayName === name ? name : `${displayName} (${name})`),
    );
    select.replaceChildren(...options);
    select.value = String(studio.entityIndex);
  });
}

function setUpPicture(): void {
  const container = byId("layout");
  const picture = new Picture(container, {
    onSelect: (chosen) => studio.select(chosen),
    onFlip: (bit) => void studio.flip(bit),
  });
  let drawn: unknown;
  studio.on("entity", () => {
    const { entity = NO_ENTITY, problem } = studio;
    const isOld = problem !== "" && studio.entity !== undefined;
    byId("layout-problem").textContent = isOld ? `Not up to date: ${problem}` : problem;
    byId("layout-title").textContent = entity.summary;
    byId("remarks").replaceChildren(...entity.remarks.map((remark) => element("li", {}, remark)));
    const now = JSON.stringify([entity.rows, entity.attributes]);
    if (now !== drawn) picture.draw(entity); // so that the focus stays while nothing changes
    drawn = now;
    picture.showBits(studio.shownReading());
    picture.showChosen(studio.selected, false);
  });
  studio.on("packets", () => {
    const shown = studio.shownReading();
    picture.showBits(shown);
    byId("layout-packet").textContent =
      shown === undefined
        ? "Bits appear with a value or a packet."
        : `Bits of the ${studio.isReceivedShown ? "packet below" : "write packet"}; click one to invert it.`;
  });
  studio.on("selection", () => picture.showChosen(studio.selected, true));
}

function setUpChosen(): void {
  const line = byId("chosen");
  const show = (): void => {
    const attribute = studio.attribute(studio.selected);
    const { label, name, group, type, place, description } = attribute ?? {};
    const text = attribute === undefined ? "" : `${label} (${name}): ${group} ${type} at ${place}. ${description}`;
    line.textContent = text;
  };
  studio.on("selection", show);
  studio.on("entity", show);
}

function setUpKeeping(): void {
  let timer = 0;
  const later = (): void => {
    window.clearTimeout(timer);
    timer = window.setTimeout(() => {
      if (!keep(current())) studio.tell("The browser has no room to keep this text over a reload.");
    }, KEEP_PAUSE_MS);
  };
  studio.on("findings", later);
  studio.on("packets", later);
  window.addEventListener("pagehide", () => keep(current()));
}

function setUpSharing(): void {
  byId("share").addEventListener("click", async () => {
    const url = location.href.replace(/#.*$/, "") + (await fragmentOf(current()));
    const field = byId<HTMLInputElement>("share-link");
    field.value = url;
    byId<HTMLDialogElement>("share-dialog").showModal();
    field.select();
  });
  copyOnClick(byId<HTMLButtonElement>("copy-link"), () => byId<HTMLInputElement>("share-link").value);
  byId("share-note").hidden = location.protocol !== "file:";
}

async function linked(): Promise<Shared | undefined> {
  try {
    const shared = await sharedIn(location.hash);
    if (shared !== undefined) history.replaceState(null, "", location.pathname + location.search);
    return shared;
  } catch {
    studio.tell("The link could not be read; it may have been cut off.");
    return undefined;
  }
}

async function openShared({ file, configuration, packet, entity, write }: Shared): Promise<void> {
  await studio.open(file, configuration, packet, entity, write);
}

async function start(): Promise<void> {
  const [shared, last, first] = [await linked(), kept(), examples[0]!];
  if (shared === undefined || last !== undefined) {
    await openShared(last ?? { ...first, entity: 0, packet: first.packet ?? "" });
  }
  if (shared === undefined) return;
  await openShared(shared);
  if (last !== undefined) {
    studio.tell("The link is open; undo in the editor (Ctrl+Z) brings back the text that was there.");
  }
}

// Other fragments, such as that of the link over the editor, open nothing.
async function followLink(): Promise<void> {
  const shared = await linked();
  if (shared !== undefined) await openShared(shared);
}

for (const button of document.querySelectorAll<HTMLButtonElement>("dialog .close")) {
  button.addEventListener("click", () => button.closest("dialog")?.close());
}
studio.on("status", () => (byId("status").textContent = studio.status));
new FindingsView(studio, (site) => editor.goTo(site));
new ValuesView(studio);
new ReceivedView(studio);
const capture = new CaptureView(studio);
new CompareView(studio, (site) => editor.goTo(site));
new ExportView(studio);
setUpFiles();
setUpInserting();
setUpEntity();
setUpPicture();
setUpChosen();
setUpKeeping();
setUpSharing();
window.addEventListener("hashchange", () => void followLink());
void start();
