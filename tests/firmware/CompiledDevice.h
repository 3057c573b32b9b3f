/* Device code that dp4 generated, compiled and made callable without knowing its types: where each member lies in the
 * structs, and the functions. firmware_products writes the C source that fills such a record. */

#ifndef MORVIX_TESTS_FIRMWARE_COMPILED_DEVICE_H
#define MORVIX_TESTS_FIRMWARE_COMPILED_DEVICE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct compiled_member {
  size_t offset;
  size_t size;
  size_t has; /* offset of its has_ member, in a write */
} compiled_member;

typedef struct compiled_device {
  const char* configuration; /* path, and the entity in it */
  const char* entity;
  size_t state_size;
  size_t write_size; /* 0 when nothing is writable; then the two functions are null */
  size_t max_packet_bytes;
  const compiled_member* state; /* of each attribute, in configuration order */
  const compiled_member* write; /* of each writable attribute */
  bool (*read_write)(const uint8_t* packet, size_t size, void* write);
  void (*apply)(void* state, const void* write);
  bool (*read_sub_device)(const uint8_t* packet, size_t size, int32_t* sub_device);
  size_t (*make_notification)(const void* state, uint8_t* packet, size_t capacity);
  size_t (*make_read_response)(const void* state, uint8_t* packet, size_t capacity);
} compiled_device;

/* All of them; the last one is null. */
extern const compiled_device* const compiled_devices[];

#ifdef __cplusplus
}
#endif

#endif
