/* Made by dp4 from the configuration with SHA-256 810496dccddcd98f3ef11162206b8345611273be1fe21a57495c8d474e2207cc. */
/* Kettle, the device's end: reads what an application writes, and makes what it reads.
 *
 * All values are raw, as they travel; the scaling to user values stands at each attribute. Bytes count from
 * the start of the payload, bit 0 of a byte is its lowest. Nothing is kept between calls. Do not edit: run
 * dp4 generate c again. */

#ifndef KETTLE_H
#define KETTLE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of the payload of a notification or read response, of a write's payload, of its flag bitmap, and of the longest
 * packet. */
#define KETTLE_PAYLOAD_BYTES 6u
#define KETTLE_WRITE_BYTES 2u
#define KETTLE_FLAG_BYTES 1u
#define KETTLE_MAX_PACKET_BYTES 8u

/* Program: What to do with the water. */
#define KETTLE_PROGRAM_BOIL 0u      /* boil */
#define KETTLE_PROGRAM_GREEN_TEA 1u /* green_tea */
#define KETTLE_PROGRAM_KEEP_WARM 2u /* keep_warm */

/* Target temperature: 40 to 100 degrees Celsius in steps of a half. */
#define KETTLE_TARGET_MIN UINT8_C(0)
#define KETTLE_TARGET_MAX UINT8_C(120)
#define KETTLE_TARGET_RATIO 0.5
#define KETTLE_TARGET_ADDITION 40.0

/* Temperature: Water temperature, -20 to 130 degrees Celsius in steps of a tenth. */
#define KETTLE_TEMPERATURE_MIN UINT16_C(0)
#define KETTLE_TEMPERATURE_MAX UINT16_C(1500)
#define KETTLE_TEMPERATURE_RATIO 0.1
#define KETTLE_TEMPERATURE_ADDITION (-20.0)

/* The state of the device: every attribute, as raw value. */
typedef struct kettle_state {
  /* Power: Heats or keeps warm.
   * Writable, flag 0: bit 0 of byte 0. */
  bool power;
  /* Program: What to do with the water.
   * Writable, flag 1: bits 2 and 1 of byte 0. One of KETTLE_PROGRAM_...: 0 to 2. */
  uint8_t program;
  /* Target temperature: 40 to 100 degrees Celsius in steps of a half.
   * Writable, flag 2: byte 1. User value = raw * 0.5 + 40, from 40 to 100. */
  uint8_t target;
  /* Temperature: Water temperature, -20 to 130 degrees Celsius in steps of a tenth.
   * Read-only: bytes 2 and 3. User value = raw * 0.1 - 20, from -20 to 130. */
  uint16_t temperature;
  /* Low water: Below the mark.
   * Alert: bit 0 of byte 4. */
  bool low_water;
  /* Lid open: The lid is not closed.
   * Alert: bit 1 of byte 4. */
  bool lid_open;
  /* Sensor broken: The temperature sensor gives no signal.
   * Fault: bit 0 of byte 5. */
  bool sensor;
} kettle_state;

/* What a write sets, as raw values. Members of attributes that it does not set are 0. */
typedef struct kettle_write {
  bool has_power;
  bool power;
  bool has_program;
  uint8_t program;
  bool has_target;
  uint8_t target;
} kettle_write;

/* Reads a write (command 1 or 7), with or without a sub-device id. False, with *write cleared, unless the packet is a
 * whole write whose set attributes are all in range. The payload bits of attributes that are not set do not matter. */
bool kettle_read_write(const uint8_t* packet, size_t size, kettle_write* write);

/* Takes over what a write sets. */
void kettle_apply(kettle_state* state, const kettle_write* write);

/* Reads the id of the sub-device to which a packet is addressed. False, with *sub_device untouched, when by its command
 * and size the packet has none. Besides writes, commands 8 (read) and 12 (remove the sub-device) have one. */
bool kettle_read_sub_device(const uint8_t* packet, size_t size, int32_t* sub_device);

/* Makes a notification (command 4) or the answer to a read (command 3) of KETTLE_PAYLOAD_BYTES + 1 bytes. Returns its
 * size; 0, with the packet untouched, when there is no room for it or a value is out of range. */
size_t kettle_make_notification(const kettle_state* state, uint8_t* packet, size_t capacity);
size_t kettle_make_read_response(const kettle_state* state, uint8_t* packet, size_t capacity);

#ifdef __cplusplus
}
#endif

#endif
