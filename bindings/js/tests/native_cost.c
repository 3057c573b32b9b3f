/* Times morvix_receive: prints the nanoseconds of a call, the least of several runs.
 *   native_cost CONFIGURATION PACKET CALLS        both are files */

#include <morvix_protocol.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

enum { kLargest = 1 << 20, kRuns = 3 };

static size_t read_file(const char* path, uint8_t* data) {
  FILE* file = fopen(path, "rb");
  const size_t size = file == NULL ? 0 : fread(data, 1, kLargest, file);
  if (file != NULL) fclose(file);
  return size;
}

static double seconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

int main(int argc, char** argv) {
  static uint8_t configuration[kLargest], packet[kLargest];
  morvix_entity* entity = NULL;
  double best = 1e9;
  if (argc != 4) return 2;
  const size_t configuration_size = read_file(argv[1], configuration);
  const size_t packet_size = read_file(argv[2], packet);
  const int calls = atoi(argv[3]);
  if (morvix_entity_open((const char*)configuration, configuration_size, NULL, &entity, NULL) != MORVIX_OK) return 1;
  for (int run = 0; run < kRuns; ++run) {
    const double start = seconds();
    for (int i = 0; i < calls; ++i) {
      morvix_bytes document, active;
      if (morvix_receive(entity, packet, packet_size, &document, &active, NULL) != MORVIX_OK) return 1;
      morvix_free(document.data);
      morvix_free(active.data);
    }
    const double spent = (seconds() - start) / calls;
    if (spent < best) best = spent;
  }
  morvix_entity_close(entity);
  printf("%.1f\n", best * 1e9);
  return 0;
}
