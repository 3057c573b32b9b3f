// A configuration, a NUL and lines with packets, for all that the studio's page asks about them.

#include <json/value.h>

#include <algorithm>
#include <string>

#include "Support.h"
#include "studio/Ask.h"

namespace {

// Every answer is an object; what cannot be used gives an error.
Json::Value Answer(const Json::Value& request) {
  const std::string text = morvix::studio::Ask(fuzz::Written(request));
  Json::Value answer;
  if (!fuzz::ParseText(text, answer) || !answer.isObject()) fuzz::Fail("an answer is an object", fuzz::Show(text));
  const Json::Value& error = answer["error"];
  if (error.isString() && error.asString().rfind("internal error", 0) == 0) {
    fuzz::Fail("no error is internal", fuzz::Show(error.asString()));
  }
  return answer;
}

Json::Value Ask(const char* ask, Json::Value request) {
  request["ask"] = ask;
  return Answer(request);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* middle = std::find(data, data + size, 0);
  Json::Value request;
  request["configuration"] = std::string(data, middle);
  request["after"] = request["configuration"];
  request["entity"] = 0;
  const std::string lines(middle == data + size ? middle : middle + 1, data + size);
  request["packet"] = lines;
  request["text"] = lines;
  request["line"] = "";
  request["first"] = 1;
  request["bit"] = 0;
  for (const char* ask : {"entities", "lint", "entity", "flip", "capture", "compare"}) Ask(ask, request);
  for (const char* form : {"svg", "c", "wireshark", "c-array"}) {
    request["form"] = form;
    Ask("export", request);
  }
  Json::Value reading = Ask("read", request);
  request["values"] = Json::Value(Json::objectValue);
  const Json::Value attributes = Ask("entity", request)["attributes"];
  for (const Json::Value& value : reading["values"]) {
    for (const Json::Value& attribute : attributes) {
      const bool isOfValue = attribute["element"] == value["element"] && attribute.isMember("control");
      if (isOfValue && value.isMember("value")) request["values"][attribute["name"].asString()] = value["value"];
    }
  }
  Ask("encode", request);
  request.removeMember("line");
  Ask("match", request);
  fuzz::TakeLines();
  return 0;
}
