/* One write read and one state sent, CALLS times, in functions of their own, which callgrind counts: by the generated
 * code of the kettle (PEER 0), by nanopb (1), or by neither (2), for what the rest of the program takes. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#if PEER == 1
#include <pb_decode.h>
#include <pb_encode.h>

#include "peer.pb.h"

static const uint8_t packet[] = {0x08, 0x01, 0x10, 0x02, 0x18, 0x5a}; /* on, keep warm, 85 degrees */
static State state = {true, Program_BOIL, 0, 415, true, false, false};

__attribute__((noinline)) static bool bench_read(void) {
  Write write = Write_init_zero;
  pb_istream_t stream = pb_istream_from_buffer(packet, sizeof packet);
  if (!pb_decode(&stream, Write_fields, &write)) return false;
  if (write.has_power) state.power = write.power;
  if (write.has_program) state.program = write.program;
  if (write.has_target) state.target = write.target;
  return true;
}

__attribute__((noinline)) static size_t bench_make(uint8_t* buffer, size_t capacity) {
  pb_ostream_t stream = pb_ostream_from_buffer(buffer, capacity);
  return pb_encode(&stream, State_fields, &state) ? stream.bytes_written : 0;
}
#elif PEER == 0
#include "kettle.h"

static const uint8_t packet[] = {0x01, 0x07, 0x05, 0x5a}; /* on, keep warm, 85 degrees */
static kettle_state state = {true, KETTLE_PROGRAM_BOIL, 0, 415, true, false, false};

__attribute__((noinline)) static bool bench_read(void) {
  kettle_write write;
  if (!kettle_read_write(packet, sizeof packet, &write)) return false;
  kettle_apply(&state, &write);
  return true;
}

__attribute__((noinline)) static size_t bench_make(uint8_t* buffer, size_t capacity) {
  return kettle_make_notification(&state, buffer, capacity);
}
#else
#include <stdbool.h>

static struct {
  uint8_t program;
  uint8_t target;
} state = {2, 90};

__attribute__((noinline)) static bool bench_read(void) { return true; }

__attribute__((noinline)) static size_t bench_make(uint8_t* buffer, size_t capacity) { return buffer[0] + capacity; }
#endif

int main(void) {
  uint8_t buffer[64] = {0};
  size_t size = 0;
  for (int i = 0; i < CALLS; ++i) {
    if (!bench_read()) return 1;
    size = bench_make(buffer, sizeof buffer);
  }
  if (size == 0 || state.program != 2 || state.target != 90) return 1;
  puts("ok");
  return 0;
}
