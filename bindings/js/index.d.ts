/** What is refused, and why. The message names the attribute, the value and what is expected. */
export class ProtocolError extends Error {}

/** Bytes of a packet; Node's Buffer is one. */
export type Bytes = Uint8Array | ArrayBuffer;

/** A usable entity of a configuration. */
export interface EntityInfo {
  id: number;
  name: string;
  displayName: string;
}

/** Bits of a payload, counted from the most significant bit of its first byte. */
export interface Place {
  firstBit: number;
  bits: number;
}

export type Group = "status_writable" | "status_readonly" | "alert" | "fault";
export type DataType = "bool" | "enum" | "binary" | "uint8" | "uint16" | "uint32" | "uint64";

/** An attribute, as its configuration describes it. Members that mean nothing for its type or group are missing. */
export interface Attribute {
  name: string;
  displayName: string;
  description: string;
  id: number;
  group: Group;
  type: DataType;
  /** Of writable attributes: the bit in the flag bitmap of a write. */
  flag?: number;
  /** Where it lies in a payload of all attributes. */
  place?: Place;
  /** Where it lies in the payload of a write, if that is another place. */
  writePlace?: Place;
  /** Of numbers: the smallest raw value. */
  min?: number;
  /** Of numbers: the largest raw value. */
  max?: number;
  /** Of numbers: the value in user units is raw * ratio + addition. Missing when it is not finite. */
  ratio?: number;
  addition?: number;
  /** Of enums: the texts of the values 0, 1, ... */
  items?: string[];
}

/** What an entity means to a device. */
export interface Description {
  name: string;
  displayName: string;
  id: number;
  /** The bytes of a payload that holds all attributes. */
  payloadBytes: number;
  /** The bytes of the payload of a write. */
  writeBytes: number;
  attributes: Attribute[];
  /** Elements of "attrs" that the protocol module drops, and the member for which it does. */
  dropped: { index: number; name?: string; member: string }[];
}

/**
 * Values to write: by entity and attribute name. What is undefined is not written. A received document has the number
 * `version` beside its entities.
 */
export type Values = Record<string, Record<string, boolean | number | string | undefined> | number | undefined>;

/** A decoded document: by entity name and key, which is the display name for alerts and faults. */
export type Decoded = Record<string, Record<string, { type: 1 | 2 | 4 | 8; value: boolean | string }>>;

/** An alert or fault that is active now; the value is never 0. */
export interface Active {
  name: string;
  value: number;
}

/** What an application is given of a packet. */
export interface Received {
  /** The application's document: JSON text with a line end, as the protocol module writes it. */
  document: string;
  alerts: Active[];
  faults: Active[];
  /**
   * What the protocol module has to say about the packet, where there is anything: for one, that it is too short. It is
   * no enumerable property, so that comparing, copying and printing a result pass over it.
   */
  readonly warnings?: string[];
}

export interface WriteOptions {
  /** 1, or 7 for a write to a sub-device. 1 by default. */
  command?: number;
  /** An id of 32 bits to insert. None by default. */
  subDevice?: number;
}

/** One entity, ready for use. It holds memory until it is closed. Every call may throw a ProtocolError. */
export class Entity {
  private constructor();
  /** What the protocol module has to say about the configuration. */
  readonly warnings: readonly string[];
  describe(): Description;
  /**
   * The packet of a write. Bools and enums take an integer, true, false or decimal text; numbers a number in user units
   * or the text of one; binaries base64 text. Text is read as far as it is a number: "79,5" is 79, "" is 0. Other
   * entities in `values` are passed over. What is not writable is refused.
   */
  encode(values: Values, options?: WriteOptions): Uint8Array;
  /**
   * The decoded document of a read response (3) or notification (4). It is empty where the packet does not have what
   * the entity needs; `receive` has the warnings.
   */
  decode(packet: Bytes): Decoded;
  /** What an application is given of a read response (3) or notification (4). */
  receive(packet: Bytes): Received;
  /** Releases its memory. Every later call is a ProtocolError. */
  close(): void;
}

/** An instance of the protocol module, with memory of its own. */
export class Protocol {
  private constructor();
  /** "major.minor.patch" */
  readonly version: string;
  /** The usable entities of a configuration. */
  entities(configuration: string | Uint8Array): EntityInfo[];
  /** Opens an entity by its name, or the only one. */
  open(configuration: string | Uint8Array, name?: string): Entity;
  /**
   * The packet of a request without values: 2 (read), 11 (let a sub-device join), 13 (list the sub-devices); with the
   * id of a sub-device 8 (read it), 12 (remove it).
   */
  request(command: number, subDevice?: number): Uint8Array;
}

/**
 * A fresh instance. Without a source, Node reads the WebAssembly file beside this one and browsers fetch it; otherwise
 * its bytes or the compiled module are given.
 */
export function load(source?: Bytes | WebAssembly.Module): Promise<Protocol>;
