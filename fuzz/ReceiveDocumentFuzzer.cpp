// The text of a receive document.

#include <string>

#include "Properties.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  fuzz::CheckConvert(text);

  // A list of alerts from anywhere.
  Json::Value list;
  if (!fuzz::ParseText(text, list)) return 0;
  std::vector<TavelReceiveInfo> active = {{"held", 1}};
  std::vector<TavelReceiveInfo> expected = active;
  ProtocolGetAlertsOrFaults_4_0(list, active);
  model::AddActive(list, expected);
  fuzz::ExpectEqual(active, expected, "the active alerts of any list are the model's");
  if (list.isObject() && list.size() != 0) {
    // With a version, whatever it is goes its way.
    list["version"] = 4.0;
    fuzz::CheckConvert(fuzz::Written(list));
  }
  return 0;
}
