// The state of the page, and the questions that keep it up to date. Views draw it and listen for changes.

import { Asker } from "./asker";
import type { Answer, Attribute, Entities, Entity, Finding, Findings, Reading, Value, Values, Written } from "./forms";
import { isFailure } from "./forms";

// What is to be written, and how.
export interface Write {
  values: Values;
  command: string;
  subDevice: string;
  others: Record<string, Values>; // of the other entities, by their indexes
  isShown: boolean; // in the picture, instead of the packet that was typed
}

// The gravest ones come first, each kind in the order of the text.
const rankOf = ({ severity }: Finding): number => ["error", "warning", "info"].indexOf(severity);

type Topic = "configuration" | "name" | "findings" | "entity" | "selection" | "packets" | "status";

export class Studio {
  fileName = "configuration.json";
  configuration = "";
  entities: Entities["entities"] = [];
  entityIndex = 0;
  entity: Entity | undefined;
  findings: Findings | undefined;
  problem = ""; // why there is no entity
  status = ""; // what the user has to be told
  selected: number | undefined; // an attribute's element

  values: Values = {};
  command = "write";
  subDevice = "";
  written: Answer<Written> | undefined;
  packetText = "";
  received: Answer<Reading> | undefined;
  isReceivedShown = false; // in the picture, instead of the write

  readonly #listeners = new Map<Topic, (() => void)[]>();
  readonly #asker = new Asker((reason) => this.tell(`The analysis was restarted: ${reason}. Your text is kept.`));
  #otherValues: Record<string, Values> = {}; // of the other entities, by their indexes
  #isPacketNew = false; // its command and sub-device are not yet taken
  #configurationTurn = 0;
  #packetTurn = 0;

  on(topic: Topic, listener: () => void): void {
    this.#listeners.set(topic, [...(this.#listeners.get(topic) ?? []), listener]);
  }

  #changed(...topics: Topic[]): void {
    for (const topic of topics) for (const listener of this.#listeners.get(topic) ?? []) listener();
  }

  ask<T>(request: Record<string, unknown>): Promise<Answer<T>> {
    return this.#asker.ask<T>(request);
  }

  // A request about the chosen entity.
  askEntity<T>(request: Record<string, unknown>): Promise<Answer<T>> {
    return this.ask<T>({ configuration: this.configuration, entity: this.entityIndex, ...request });
  }

  tell(status: string): void {
    this.status = status;
    this.#changed("status");
  }

  // What is to be written, to be opened again.
  write(): Write {
    const { values, command, subDevice } = this;
    return { values, command, subDevice, others: this.#otherValues, isShown: !this.isReceivedShown };
  }

  // Opens another configuration: nothing of the last one remains.
  async open(fileName: string, configuration: string, packetText = "", entityIndex = 0, write?: Write): Promise<void> {
    this.fileName = fileName;
    this.configuration = configuration;
    this.entityIndex = entityIndex;
    this.entity = undefined;
    this.selected = undefined;
    this.values = write?.values ?? {};
    this.#otherValues = write?.others ?? {};
    this.command = write?.command ?? "write";
    this.subDevice = write?.subDevice ?? "";
    this.written = undefined;
    this.received = undefined;
    this.packetText = packetText;
    this.isReceivedShown = write?.isShown !== true && packetText !== "";
    this.#isPacketNew = write === undefined;
    this.#changed("configuration", "name", "selection");
    await this.#update();
  }

  // The text that is edited has the name of another file from now on, as after undoing that one was opened.
  rename(fileName: string): void {
    this.fileName = fileName;
    this.#changed("name");
  }

  async edit(configuration: string): Promise<void> {
    this.configuration = configuration;
    await this.#update();
  }

  async chooseEntity(index: number): Promise<void> {
    if (index === this.entityIndex) return;
    this.#otherValues = { ...this.#otherValues, [this.entityIndex]: this.values };
    this.entityIndex = index;
    this.entity = undefined;
    this.selected = undefined;
    this.values = this.#otherValues[index] ?? {};
    this.isReceivedShown = Object.keys(this.values).length === 0 && this.packetText !== "";
    this.#changed("selection");
    await this.#update();
  }

  async #update(): Promise<void> {
    const turn = ++this.#configurationTurn;
    const { configuration } = this;
    const [findings, entities] = await Promise.all([
      this.ask<Findings>({ ask: "lint", configuration }),
      this.ask<Entities>({ ask: "entities", configuration }),
    ]);
    if (turn !== this.#configurationTurn) return;
    if (!isFailure(findings)) findings.findings.sort((one, other) => rankOf(one) - rankOf(other));
    this.findings = isFailure(findings) ? undefined : findings;
    if (isFailure(findings)) this.problem = findings.error;
    this.#changed("findings");
    await this.#updateEntity(turn, entities);
  }

  // While the JSON is broken, the last whole entity remains in view, marked as outdated.
  async #updateEntity(turn: number, entities: Answer<Entities>): Promise<void> {
    if (isFailure(entities)) {
      this.problem = entities.error;
      if (this.entity === undefined) this.written = this.received = undefined;
      this.#changed("entity", "packets");
      return;
    }
    this.entities = entities.entities;
    this.entityIndex = Math.min(this.entityIndex, Math.max(this.entities.length - 1, 0));
    const entity = await this.askEntity<Entity>({ ask: "entity" });
    if (turn !== this.#configurationTurn) return;
    this.problem = isFailure(entity) ? entity.error : "";
    if (!isFailure(entity)) this.entity = entity;
    this.#changed("entity");
    await this.#read(++this.#packetTurn);
  }

  attribute(element: number | undefined): Attribute | undefined {
    return this.entity?.attributes.find((attribute) => attribute.element === element);
  }

  select(element: number | undefined): void {
    if (element === this.selected) return;
    this.selected = element;
    this.#changed("selection");
  }

  // The packet that the picture shows.
  shownReading(): Reading | undefined {
    const write = this.written === undefined || isFailure(this.written) ? undefined : this.written.reading;
    const received = this.received === undefined || isFailure(this.received) ? undefined : this.received;
    const shown = this.isReceivedShown ? received : write;
    return shown?.refused === undefined ? shown : undefined;
  }

  // Undefined takes the attribute out of the write.
  async setValue(name: string, value: Value | undefined): Promise<void> {
    const { [name]: _, ...others } = this.values;
    this.values = value === undefined ? others : { ...this.values, [name]: value };
    this.isReceivedShown = false;
    await this.#encode(++this.#packetTurn);
  }

  async setCommand(command: string, subDevice: string): Promise<void> {
    this.command = command;
    this.subDevice = subDevice;
    await this.#encode(++this.#packetTurn);
  }

  // What is to be written, as requests take it. A value of an unknown name waits until that is typed to its end.
  writeRequest(): Record<string, unknown> & { values: Values } {
    const isKnown = new Set(
      this.entity?.attributes.filter(({ control }) => control !== undefined).map(({ name }) => name),
    );
    const values = Object.fromEntries(Object.entries(this.values).filter(([name]) => isKnown.has(name)));
    const subDevice = this.subDevice === "" ? {} : { subDevice: Number(this.subDevice) };
    return { values, command: this.command, ...subDevice };
  }

  async #askWrite(): Promise<Answer<Written> | undefined> {
    const request = this.writeRequest();
    return Object.keys(request.values).length === 0 ? undefined : this.askEntity({ ask: "encode", ...request });
  }

  async #encode(turn: number): Promise<void> {
    const written = await this.#askWrite();
    if (turn !== this.#packetTurn) return;
    this.written = written;
    this.#changed("packets");
  }

  // A packet of any kind: what it says sets the values as well.
  async setPacket(text: string): Promise<void> {
    this.packetText = text;
    this.isReceivedShown = text.trim() !== "";
    this.#isPacketNew = true;
    await this.#read(++this.#packetTurn);
  }

  async #read(turn: number): Promise<void> {
    const packet = this.packetText;
    const received = packet.trim() === "" ? undefined : await this.askEntity<Reading>({ ask: "read", packet });
    if (turn !== this.#packetTurn) return;
    this.received = received;
    if (received !== undefined && this.isReceivedShown) this.#takeValues(received);
    await this.#encode(turn);
  }

  #takeValues(reading: Answer<Reading>): void {
    if (isFailure(reading) || reading.values === undefined || reading.values.length === 0) return;
    const values: [string, Values[string]][] = [];
    for (const { element, value } of reading.values) {
      const attribute = this.attribute(element);
      if (attribute?.control !== undefined && value !== undefined) values.push([attribute.name, value]);
    }
    this.values = Object.fromEntries(values);
    if (reading.isWrite && this.#isPacketNew) {
      this.command = reading.command ?? this.command;
      this.subDevice = reading.subDevice === undefined ? "" : String(reading.subDevice);
    }
    this.#isPacketNew = false;
  }

  // Inverts a bit of the payload that the picture shows.
  async flip(bit: number): Promise<void> {
    const shown = this.shownReading();
    if (shown === undefined) return;
    const turn = ++this.#packetTurn;
    const flipped = await this.askEntity<Reading>({ ask: "flip", packet: shown.packet, bit });
    if (turn !== this.#packetTurn || isFailure(flipped)) return;
    if (this.isReceivedShown) return this.setPacket(flipped.packet);
    this.#takeValues(flipped);
    const written = await this.#askWrite();
    if (turn !== this.#packetTurn) return;
    const packet = written === undefined || isFailure(written) ? undefined : written.reading?.packet;
    // A bit that no values give, such as one out of range, makes a packet of its own.
    if (packet !== flipped.packet) return this.setPacket(flipped.packet);
    this.written = written;
    this.#changed("packets");
  }
}
