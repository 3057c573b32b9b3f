/* Writes a kettle and reads its answer, in C.
 *   kettle CONFIGURATION
 * Every result is released in every case, so this can serve as a template. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "morvix_protocol.h"

/* The whole file as text, which the caller frees; null, with a message, when it cannot be read. */
static char* read_file(const char* path, size_t* size) {
  FILE* file = fopen(path, "rb");
  char* text = NULL;
  long length = -1;
  *size = 0;
  if (file != NULL && fseek(file, 0, SEEK_END) == 0) length = ftell(file);
  if (length >= 0 && fseek(file, 0, SEEK_SET) == 0) text = malloc((size_t)length + 1);
  if (text != NULL) *size = fread(text, 1, (size_t)length, file);
  if (file != NULL) (void)fclose(file);
  if (text == NULL) (void)fprintf(stderr, "%s: cannot be read\n", path);
  return text;
}

/* Whether a call succeeded. Says why not, and releases the message. */
static int succeeded(const char* call, morvix_status status, char* message) {
  if (message != NULL) (void)fprintf(stderr, "%s: %s\n", call, message);
  morvix_free(message);
  return status == MORVIX_OK;
}

/* Keeps warm at 85 degrees. */
static int write_kettle(const morvix_entity* kettle) {
  const char values[] = "{\"kettle\":{\"power\":true,\"program\":2,\"target\":85}}";
  morvix_bytes packet;
  char* message;
  size_t i;
  const morvix_status status = morvix_encode(kettle, values, strlen(values), 1, NULL, &packet, &message);
  if (!succeeded("encode", status, message)) return 0;
  printf("write:");
  for (i = 0; i < packet.size; ++i) printf(" %02x", (unsigned)packet.data[i]);
  printf("\n");
  morvix_free(packet.data);
  return 1;
}

/* On, keeps warm at 85 degrees, now 92.4; low water, a broken sensor. */
static int receive_kettle(const morvix_entity* kettle) {
  const uint8_t packet[] = {0x04, 0x05, 0x5a, 0x04, 0x64, 0x01, 0x01};
  morvix_bytes document;
  morvix_bytes active;
  char* message;
  const morvix_status status = morvix_receive(kettle, packet, sizeof packet, &document, &active, &message);
  if (!succeeded("receive", status, message)) return 0;
  printf("document: %sactive: %s\n", (const char*)document.data, (const char*)active.data);
  morvix_free(document.data);
  morvix_free(active.data);
  return 1;
}

int main(int argc, char** argv) {
  size_t size;
  char* configuration;
  char* message;
  morvix_entity* kettle;
  morvix_status status;
  int isDone;
  if (argc != 2) {
    (void)fprintf(stderr, "usage: kettle CONFIGURATION\n");
    return 2;
  }
  configuration = read_file(argv[1], &size);
  if (configuration == NULL) return EXIT_FAILURE;
  status = morvix_entity_open(configuration, size, NULL, &kettle, &message);
  free(configuration);
  if (!succeeded("open", status, message)) return EXIT_FAILURE;
  isDone = write_kettle(kettle) && receive_kettle(kettle);
  morvix_entity_close(kettle);
  return isDone ? EXIT_SUCCESS : EXIT_FAILURE;
}
