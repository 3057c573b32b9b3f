// The text of a receive document.

#include <string>

#include "Support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  fuzz::CheckConvert(text);

  // A list of alerts from anywhere; and with a version, any document goes its way.
  Json::Value list;
  if (!fuzz::ParseText(text, list)) return 0;
  fuzz::CheckActive(list);
  if (list.isObject() && list.size() != 0) {
    list["version"] = 4.0;
    fuzz::CheckConvert(fuzz::Written(list));
  }
  return 0;
}
