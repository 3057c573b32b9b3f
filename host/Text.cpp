#include "host/Text.h"

char* strlwr(char* text) {
  for (char* c = text; *c != '\0'; ++c) {
    if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
  }
  return text;
}
