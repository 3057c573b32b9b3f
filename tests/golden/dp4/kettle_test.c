/* Made by dp4 from the configuration with SHA-256 810496dccddcd98f3ef11162206b8345611273be1fe21a57495c8d474e2207cc. */
/* Runs the vectors of the configuration. Returns 0; or prints the first difference and returns 1. */

#include "kettle.h"

#include <stdio.h>
#include <string.h>

#ifdef __AVR__ /* there constants take up RAM unless they are kept in flash */
#include <avr/pgmspace.h>
#else
#define PROGMEM
#define memcpy_P memcpy
#endif

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))
#define WRITE_PACKET_BYTES (1 + KETTLE_FLAG_BYTES + KETTLE_WRITE_BYTES)

static const struct write_vector {
  uint8_t packet[WRITE_PACKET_BYTES];
  kettle_write expected;
} writes[] PROGMEM = {
    /* 0: power = false */
    {{0x01, 0x01, 0x00, 0x00},
     {true, false, false, 0u, false, 0u}},
    /* 1: power = true */
    {{0x01, 0x01, 0x01, 0x00},
     {true, true, false, 0u, false, 0u}},
    /* 2: program = 0 */
    {{0x01, 0x02, 0x00, 0x00},
     {false, false, true, 0u, false, 0u}},
    /* 3: program = 1 */
    {{0x01, 0x02, 0x02, 0x00},
     {false, false, true, 1u, false, 0u}},
    /* 4: program = 2 */
    {{0x01, 0x02, 0x04, 0x00},
     {false, false, true, 2u, false, 0u}},
    /* 5: target = 40 */
    {{0x01, 0x04, 0x00, 0x00},
     {false, false, false, 0u, true, 0u}},
    /* 6: target = 40.5 */
    {{0x01, 0x04, 0x00, 0x01},
     {false, false, false, 0u, true, 1u}},
    /* 7: target = 70 */
    {{0x01, 0x04, 0x00, 0x3c},
     {false, false, false, 0u, true, 60u}},
    /* 8: target = 99.5 */
    {{0x01, 0x04, 0x00, 0x77},
     {false, false, false, 0u, true, 119u}},
    /* 9: target = 100 */
    {{0x01, 0x04, 0x00, 0x78},
     {false, false, false, 0u, true, 120u}},
    /* 10: power = false, program = 0, target = 40 */
    {{0x01, 0x07, 0x00, 0x00},
     {true, false, true, 0u, true, 0u}},
    /* 11: power = true, program = 1, target = 40.5 */
    {{0x01, 0x07, 0x03, 0x01},
     {true, true, true, 1u, true, 1u}},
    /* 12: power = false, program = 2, target = 70 */
    {{0x01, 0x07, 0x04, 0x3c},
     {true, false, true, 2u, true, 60u}},
    /* 13: power = true, program = 0, target = 99.5 */
    {{0x01, 0x07, 0x01, 0x77},
     {true, true, true, 0u, true, 119u}},
    /* 14: power = false, program = 1, target = 100 */
    {{0x01, 0x07, 0x02, 0x78},
     {true, false, true, 1u, true, 120u}},
};

static const uint8_t refused[][WRITE_PACKET_BYTES] PROGMEM = {
    /* 0: program = 3 */
    {0x01, 0x02, 0x06, 0x00},
    /* 1: program = 3 */
    {0x01, 0x02, 0x06, 0x00},
    /* 2: target = 121 */
    {0x01, 0x04, 0x00, 0x79},
    /* 3: target = 255 */
    {0x01, 0x04, 0x00, 0xff},
};

static const struct notification_vector {
  uint8_t packet[1 + KETTLE_PAYLOAD_BYTES];
  kettle_state state;
} notifications[] PROGMEM = {
    /* 0: power = false, program = 0, target = 40, temperature = -20, low_water = false, lid_ope… */
    {{0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
     {false, 0u, 0u, 0u, false, false, false}},
    /* 1: power = true */
    {{0x04, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00},
     {true, 0u, 0u, 0u, false, false, false}},
    /* 2: program = 1 */
    {{0x04, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00},
     {false, 1u, 0u, 0u, false, false, false}},
    /* 3: program = 2 */
    {{0x04, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00},
     {false, 2u, 0u, 0u, false, false, false}},
    /* 4: target = 40.5 */
    {{0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00},
     {false, 0u, 1u, 0u, false, false, false}},
    /* 5: target = 70 */
    {{0x04, 0x00, 0x3c, 0x00, 0x00, 0x00, 0x00},
     {false, 0u, 60u, 0u, false, false, false}},
    /* 6: target = 99.5 */
    {{0x04, 0x00, 0x77, 0x00, 0x00, 0x00, 0x00},
     {false, 0u, 119u, 0u, false, false, false}},
    /* 7: target = 100 */
    {{0x04, 0x00, 0x78, 0x00, 0x00, 0x00, 0x00},
     {false, 0u, 120u, 0u, false, false, false}},
    /* 8: temperature = -19.9 */
    {{0x04, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00},
     {false, 0u, 0u, 1u, false, false, false}},
    /* 9: temperature = 55 */
    {{0x04, 0x00, 0x00, 0x02, 0xee, 0x00, 0x00},
     {false, 0u, 0u, 750u, false, false, false}},
    /* 10: temperature = 129.9 */
    {{0x04, 0x00, 0x00, 0x05, 0xdb, 0x00, 0x00},
     {false, 0u, 0u, 1499u, false, false, false}},
    /* 11: temperature = 130 */
    {{0x04, 0x00, 0x00, 0x05, 0xdc, 0x00, 0x00},
     {false, 0u, 0u, 1500u, false, false, false}},
    /* 12: low_water = true */
    {{0x04, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00},
     {false, 0u, 0u, 0u, true, false, false}},
    /* 13: lid_open = true */
    {{0x04, 0x00, 0x00, 0x00, 0x00, 0x02, 0x00},
     {false, 0u, 0u, 0u, false, true, false}},
    /* 14: sensor = true */
    {{0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01},
     {false, 0u, 0u, 0u, false, false, true}},
    /* 15: power = true, program = 1, target = 40.5, temperature = -19.9, low_water = true, lid_… */
    {{0x04, 0x03, 0x01, 0x00, 0x01, 0x03, 0x01},
     {true, 1u, 1u, 1u, true, true, true}},
    /* 16: program = 2, target = 70, temperature = 55 */
    {{0x04, 0x04, 0x3c, 0x02, 0xee, 0x00, 0x00},
     {false, 2u, 60u, 750u, false, false, false}},
    /* 17: power = true, target = 99.5, temperature = 129.9, low_water = true, lid_open = true, … */
    {{0x04, 0x01, 0x77, 0x05, 0xdb, 0x03, 0x01},
     {true, 0u, 119u, 1499u, true, true, true}},
    /* 18: program = 1, target = 100, temperature = 130 */
    {{0x04, 0x02, 0x78, 0x05, 0xdc, 0x00, 0x00},
     {false, 1u, 120u, 1500u, false, false, false}},
};

/* The first member that differs, or null. */
static const char* difference(const kettle_write* one, const kettle_write* other) {
  if (one->has_power != other->has_power) return "has_power";
  if (one->power != other->power) return "power";
  if (one->has_program != other->has_program) return "has_program";
  if (one->program != other->program) return "program";
  if (one->has_target != other->has_target) return "has_target";
  if (one->target != other->target) return "target";
  return NULL;
}

/* Prints where a vector differs. */
static int fail(const char* list, size_t index, const char* what) {
  printf("%s[%u]: %s\n", list, (unsigned)index, what);
  return 1;
}

static int test_refused(void) {
  uint8_t packet[WRITE_PACKET_BYTES];
  kettle_write write;
  size_t i;
  for (i = 0; i < COUNT(refused); ++i) {
    memcpy_P(packet, refused[i], sizeof packet);
    if (kettle_read_write(packet, sizeof packet, &write)) return fail("refused", i, "read");
  }
  return 0;
}

/* The packet as it is, with a sub-device id, and cut short. */
static int test_writes(void) {
  struct write_vector vector;
  kettle_write write;
  uint8_t addressed[WRITE_PACKET_BYTES + 4];
  size_t i;
  for (i = 0; i < COUNT(writes); ++i) {
    const char* differs;
    int32_t sub_device = 0;
    memcpy_P(&vector, &writes[i], sizeof vector);
    if (!kettle_read_write(vector.packet, WRITE_PACKET_BYTES, &write)) return fail("writes", i, "refused");
    differs = difference(&write, &vector.expected);
    if (differs != NULL) return fail("writes", i, differs);
    if (kettle_read_sub_device(vector.packet, WRITE_PACKET_BYTES, &sub_device)) return fail("writes", i, "no id");

    memcpy(addressed + 1, "\x04\x03\x02\x01", 4);
    memcpy(addressed + 5, vector.packet + 1, WRITE_PACKET_BYTES - 1);
    addressed[0] = 7;
    if (!kettle_read_write(addressed, sizeof addressed, &write)) return fail("writes", i, "refused with an id");
    differs = difference(&write, &vector.expected);
    if (differs != NULL) return fail("writes", i, differs);
    if (!kettle_read_sub_device(addressed, sizeof addressed, &sub_device) || sub_device != 0x01020304) {
      return fail("writes", i, "sub-device id");
    }

    if (kettle_read_write(vector.packet, WRITE_PACKET_BYTES - 1, &write)) return fail("writes", i, "read cut short");
    memset(&vector.expected, 0, sizeof vector.expected);
    if (difference(&write, &vector.expected) != NULL) return fail("writes", i, "not cleared");
  }
  return 0;
}

/* The state as notification and as read response, and without room. */
static int test_notifications(void) {
  struct notification_vector vector;
  uint8_t packet[1 + KETTLE_PAYLOAD_BYTES];
  size_t i;
  for (i = 0; i < COUNT(notifications); ++i) {
    memcpy_P(&vector, &notifications[i], sizeof vector);
    if (kettle_make_notification(&vector.state, packet, sizeof packet - 1) != 0) {
      return fail("notifications", i, "made without room");
    }
    if (kettle_make_notification(&vector.state, packet, sizeof packet) != sizeof packet ||
        memcmp(packet, vector.packet, sizeof packet) != 0) {
      return fail("notifications", i, "notification");
    }
    vector.packet[0] = 3;
    if (kettle_make_read_response(&vector.state, packet, sizeof packet) != sizeof packet ||
        memcmp(packet, vector.packet, sizeof packet) != 0) {
      return fail("notifications", i, "read response");
    }
  }
  return 0;
}

int main(void) {
  if (test_writes() != 0 || test_refused() != 0 || test_notifications() != 0) return 1;
  printf("kettle: 15 writes, 4 refused, 19 notifications: ok\n");
  return 0;
}
