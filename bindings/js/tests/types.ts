// Compiled against the declarations, not run.

import { Active, Attribute, Description, Entity, EntityInfo, load, Protocol, ProtocolError } from "@morvix/protocol";

async function use(configuration: string, module: WebAssembly.Module): Promise<void> {
  const protocol: Protocol = await load();
  await load(module);
  await load(new Uint8Array(8));
  const infos: EntityInfo[] = protocol.entities(configuration);
  const kettle: Entity = protocol.open(configuration, infos[0].name);
  const packet: Uint8Array = kettle.encode({ kettle: { power: true } }, { command: 1, subDevice: 5 });
  const decoded = kettle.decode(packet);
  const value: boolean | string = decoded.kettle.power.value;
  const { document, alerts, faults } = kettle.receive(packet.buffer as ArrayBuffer);
  const text: string = document;
  const active: Active | undefined = [...alerts, ...faults].find((each) => each.value !== 0);
  const description: Description = kettle.describe();
  const writable: Attribute[] = description.attributes.filter((each) => each.group === "status_writable");
  const request: Uint8Array = protocol.request(8, 5);
  kettle.close();
  if (value === text && active?.name === writable[0].name) throw new ProtocolError(protocol.version);
  if (request.length !== 5) throw new ProtocolError("length");

  kettle.encode({ kettle: { power: true, target: undefined, program: "2" }, version: 4 });
  kettle.encode(JSON.parse(document));
  const warnings: string[] | undefined = kettle.receive(packet).warnings;
  if (warnings !== undefined) throw new ProtocolError(warnings[0]);

  // @ts-expect-error: the name of the entity is missing
  kettle.encode({ power: true });
  // @ts-expect-error: a number is not a bigint
  kettle.encode({ kettle: { target: 85n } });
  // @ts-expect-error: a packet is not text
  kettle.decode("04");
  // @ts-expect-error: there is no such group
  description.attributes[0].group === "writable";
  // @ts-expect-error: made by load only
  new Protocol();
  // @ts-expect-error: it cannot be assigned
  protocol.version = "5";
}

void use;
