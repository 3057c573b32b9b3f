// Configurations to start from, each with a packet that a device would send.

import airConditioner from "../../examples/air_conditioner.json?text";
import airConditionerPacket from "../../examples/air_conditioner.notify.hex?text";
import gateway from "../../examples/gateway.json?text";
import gatewayPacket from "../../examples/gateway.notify.hex?text";
import kettle from "../../examples/kettle.json?text";
import kettlePacket from "../../examples/kettle.notify.hex?text";
import powerMeter from "../../examples/power_meter.json?text";
import powerMeterPacket from "../../examples/power_meter.notify.hex?text";

export const newProduct = `{
  "name": "My product",
  "protocolType": "data-point",
  "packetVersion": "0x4",
  "product_key": "my-product",
  "entities": [
    {
      "id": 0,
      "name": "product",
      "display_name": "My product",
      "attrs": [
        {
          "id": 0,
          "name": "power",
          "display_name": "Power",
          "desc": "On or off",
          "type": "status_writable",
          "data_type": "bool",
          "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}
        }
      ]
    }
  ]
}
`;

export interface Example {
  title: string;
  file: string;
  configuration: string;
  packet: string;
}

export const examples: Example[] = [
  { title: "Kettle", file: "kettle.json", configuration: kettle, packet: kettlePacket.trim() },
  {
    title: "Air conditioner",
    file: "air_conditioner.json",
    configuration: airConditioner,
    packet: airConditionerPacket.trim(),
  },
  { title: "Gateway", file: "gateway.json", configuration: gateway, packet: gatewayPacket.trim() },
  { title: "Power meter", file: "power_meter.json", configuration: powerMeter, packet: powerMeterPacket.trim() },
  { title: "New, with one attribute", file: "product.json", configuration: newProduct, packet: "" },
];
