#include <morvix_protocol.h>
#include <stdio.h>
#include <string.h>

static const char kConfiguration[] =
    "{\"entities\":[{\"id\":0,\"name\":\"lamp\",\"display_name\":\"Lamp\",\"attrs\":[{\"id\":0,\"name\":\"on\","
    "\"display_name\":\"On\",\"desc\":\"\",\"type\":\"status_writable\",\"data_type\":\"bool\","
    "\"position\":{\"byte_offset\":0,\"bit_offset\":0,\"unit\":\"bit\",\"len\":1}}]}]}";

int main(void) {
  const char values[] = "{\"lamp\":{\"on\":true}}";
  const uint8_t expected[] = {1, 1, 1};
  morvix_entity* lamp = NULL;
  morvix_bytes packet = {NULL, 0};
  char* message = NULL;
  int isRight = 0;
  if (morvix_abi() != 1) return 1;
  if (morvix_entity_open(kConfiguration, sizeof kConfiguration - 1, "lamp", &lamp, &message) != MORVIX_OK ||
      morvix_encode(lamp, values, strlen(values), 1, NULL, &packet, &message) != MORVIX_OK) {
    fprintf(stderr, "%s\n", message);
    return 1;
  }
  isRight = packet.size == sizeof expected && memcmp(packet.data, expected, sizeof expected) == 0;
  printf("version %s, a write of %u bytes\n", morvix_version(), (unsigned)packet.size);
  morvix_free(packet.data);
  morvix_entity_close(lamp);
  return isRight ? 0 : 1;
}
