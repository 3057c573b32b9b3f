// The text of a configuration from which test vectors and code are made.

#include <cstring>
#include <string>
#include <vector>

#include "Support.h"
#include "inspect/generate/Generate.h"
#include "inspect/text/Error.h"

namespace {

using namespace morvix::inspect;

// Comments and string literals begin and end as they are meant to, and no lines are joined.
void CheckSource(const GeneratedFile& file) {
  enum { kCode, kComment, kString } state = kCode;
  for (size_t at = 0; at < file.text.size(); ++at) {
    const auto begins = [&](const char* text) { return file.text.compare(at, std::strlen(text), text) == 0; };
    if (begins("\\\n") || begins("?\?/")) fuzz::Fail("no line is joined with the next one", file.text.substr(at));
    if (state == kString) {
      if (begins("\n")) fuzz::Fail("string literals end in their line", file.text.substr(at));
      if (begins("\"")) state = kCode;
      if (begins("\\")) ++at;
    } else if (begins("/*")) {
      if (state == kComment) fuzz::Fail("no comment begins in a comment", file.text.substr(at));
      state = kComment;
      ++at;
    } else if (begins("*/")) {
      if (state == kCode) fuzz::Fail("only comments end", file.text.substr(at));
      state = kCode;
      ++at;
    } else if (begins("\"") && state == kCode) {
      state = kString;
    }
  }
  if (state != kCode) fuzz::Fail("comments and string literals end", file.text);
}

void CheckVectors(const EntityModel& entity) {
  VectorChoices choices;
  choices.random = 3;
  const Vectors vectors = VectorsOf(entity, choices);
  Json::Value value;
  const std::string text = VectorsJson(vectors);
  if (!fuzz::ParseText(text, value)) fuzz::Fail("vectors are JSON", text);
  CheckSource({"vectors", VectorsC(vectors)});
}

void CheckCode(const EntityModel& entity) {
  for (const Field& field : entity.Reading().fields) {
    const bool isPlaced = !field.bits.IsEmpty();
    fuzz::ExpectEqual(isPlaced, true, "what nothing is found against has a place");
  }
  std::string problem;
  for (const GeneratedFile& file : DeviceCode(entity, {}, problem)) CheckSource(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  json::SyntaxError error;
  const auto document = json::Document::Read("input", text, error);
  if (!document || !fuzz::MemberOf(document->Root(), "entities").isArray()) return 0;
  for (const Json::Value& entity : fuzz::MemberOf(document->Root(), "entities")) {
    try {
      const EntityModel model = ModelOf(*document, entity);
      // Longer payloads take long, and tell nothing more.
      if (model.Reading().payloadBytes > 256 || model.Writing().payloadBytes > 256) continue;
      CheckVectors(model);
      if (FindingsAgainstCode("input", text, "").empty()) CheckCode(model);
    } catch (const InputError&) {
      continue;  // an entity that is unusable
    }
  }
  fuzz::TakeLines();
  return 0;
}
