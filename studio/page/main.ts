// The page: connects the views with the state.

import { CaptureView } from "./capture";
import { CompareView } from "./compare";
import { byId, copyOnClick, download, element, takeFiles } from "./dom";
import { Editor } from "./editor";
import { examples } from "./examples";
import { ExportView } from "./exports";
import { FindingsView } from "./findings";
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

const studio = new Studio();

const editor = new Editor(studio);

function current(): Shared {
  const { fileName: file, entityIndex: entity, packetText: packet, values, command, subDevice } = studio;
  const write = studio.isReceivedShown ? undefined : { values, command, subDevice };
  return { file, configuration: editor.text(), entity, packet, write };
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

function setUpFiles(): void {
  takeFiles(byId<HTMLInputElement>("open"), document.body, (file) => void openFile(file));
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
  studio.on("configuration", () => (name.textContent = studio.fileName));
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
    const { entity, problem } = studio;
    byId("layout-problem").textContent = problem === "" ? "" : `Not up to date: ${problem}`;
    if (entity === undefined) return;
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

async function start(): Promise<void> {
  const first = examples[0]!;
  let shared = kept();
  try {
    const linked = await sharedIn(location.hash);
    if (linked !== undefined) history.replaceState(null, "", location.pathname + location.search);
    shared = linked ?? shared;
  } catch {
    studio.tell("The link could not be read; it may have been cut off.");
  }
  if (shared === undefined) return studio.open(first.file, first.configuration, first.packet);
  await studio.open(shared.file, shared.configuration, shared.packet, shared.entity, shared.write);
}

for (const button of document.querySelectorAll<HTMLButtonElement>("dialog .close")) {
  button.addEventListener("click", () => button.closest("dialog")?.close());
}
studio.on("status", () => (byId("status").textContent = studio.status));
new FindingsView(studio, (site) => editor.goTo(site));
new ValuesView(studio);
new ReceivedView(studio);
new CaptureView(studio);
new CompareView(studio, (site) => editor.goTo(site));
new ExportView(studio);
setUpFiles();
setUpInserting();
setUpEntity();
setUpPicture();
setUpChosen();
setUpKeeping();
setUpSharing();
window.addEventListener("hashchange", () => void start());
void start();
