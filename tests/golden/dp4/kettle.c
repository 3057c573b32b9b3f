/* Made by dp4 from the configuration with SHA-256 810496dccddcd98f3ef11162206b8345611273be1fe21a57495c8d474e2207cc. */

#include "kettle.h"

#include <string.h>

/* Commands. */
#define WRITE_REQUEST 1u
#define READ_RESPONSE 3u
#define NOTIFICATION 4u
#define SUB_DEVICE_WRITE_REQUEST 7u
#define SUB_DEVICE_READ_REQUEST 8u
#define SUB_DEVICE_REMOVE_REQUEST 12u

#define SUB_DEVICE_BYTES 4u
#define WRITE_PACKET_BYTES (1u + KETTLE_FLAG_BYTES + KETTLE_WRITE_BYTES) /* without the id */

/* A write, by its command and size: where its flags begin, else null. */
static const uint8_t* write_flags(const uint8_t* packet, size_t size) {
  if (size != WRITE_PACKET_BYTES && size != WRITE_PACKET_BYTES + SUB_DEVICE_BYTES) return NULL;
  if (packet[0] != WRITE_REQUEST && packet[0] != SUB_DEVICE_WRITE_REQUEST) return NULL;
  return packet + size - (WRITE_PACKET_BYTES - 1u);
}

static bool read_values(const uint8_t* flags, kettle_write* write) {
  const uint8_t* const payload = flags + KETTLE_FLAG_BYTES;
  if (flags[0] > 0x07u) return false;
  if (flags[0] == 0u) return false;
  if ((flags[0] & 0x01u) != 0u) {
    write->has_power = true;
    write->power = (payload[0] & 0x01u) != 0u;
  }
  if ((flags[0] & 0x02u) != 0u) {
    write->has_program = true;
    write->program = (uint8_t)((payload[0] >> 1) & 0x03u);
    if (write->program > KETTLE_PROGRAM_KEEP_WARM) return false;
  }
  if ((flags[0] & 0x04u) != 0u) {
    write->has_target = true;
    write->target = payload[1];
    if (write->target > KETTLE_TARGET_MAX) return false;
  }
  return true;
}

bool kettle_read_write(const uint8_t* packet, size_t size, kettle_write* write) {
  const uint8_t* const flags = write_flags(packet, size);
  memset(write, 0, sizeof *write);
  if (flags == NULL) return false;
  if (read_values(flags, write)) return true;
  memset(write, 0, sizeof *write);
  return false;
}

void kettle_apply(kettle_state* state, const kettle_write* write) {
  if (write->has_power) state->power = write->power;
  if (write->has_program) state->program = write->program;
  if (write->has_target) state->target = write->target;
}

bool kettle_read_sub_device(const uint8_t* packet, size_t size, int32_t* sub_device) {
  const bool is_request = size == 1u + SUB_DEVICE_BYTES &&
                          (packet[0] == SUB_DEVICE_READ_REQUEST || packet[0] == SUB_DEVICE_REMOVE_REQUEST);
  const bool is_write = size == WRITE_PACKET_BYTES + SUB_DEVICE_BYTES && write_flags(packet, size) != NULL;
  if (!is_request && !is_write) return false;
  /* The one little-endian number of the protocol. */
  *sub_device = (int32_t)(packet[1] | ((uint32_t)packet[2] << 8) | ((uint32_t)packet[3] << 16) |
                          ((uint32_t)packet[4] << 24));
  return true;
}

static size_t make_packet(uint8_t command, const kettle_state* state, uint8_t* packet, size_t capacity) {
  uint8_t* payload;
  if (capacity < 1u + KETTLE_PAYLOAD_BYTES) return 0;
  if (state->program > KETTLE_PROGRAM_KEEP_WARM ||
      state->target > KETTLE_TARGET_MAX ||
      state->temperature > KETTLE_TEMPERATURE_MAX) {
    return 0;
  }
  payload = packet + 1;
  packet[0] = command;
  payload[0] = (uint8_t)(state->power | (state->program << 1));
  payload[1] = state->target;
  payload[2] = (uint8_t)(state->temperature >> 8);
  payload[3] = (uint8_t)state->temperature;
  payload[4] = (uint8_t)(state->low_water | (state->lid_open << 1));
  payload[5] = (uint8_t)state->sensor;
  return 1u + KETTLE_PAYLOAD_BYTES;
}

size_t kettle_make_notification(const kettle_state* state, uint8_t* packet, size_t capacity) {
  return make_packet(NOTIFICATION, state, packet, capacity);
}

size_t kettle_make_read_response(const kettle_state* state, uint8_t* packet, size_t capacity) {
  return make_packet(READ_RESPONSE, state, packet, capacity);
}
