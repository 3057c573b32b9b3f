// The text of a configuration from which test vectors and code are made.

#include <string>
#include <vector>

#include "Support.h"
#include "inspect/generate/Generate.h"
#include "inspect/text/Error.h"

namespace {

using namespace morvix::inspect;

// Comments begin and end as they are meant to, and no lines are joined.
void CheckSource(const GeneratedFile& file) {
  bool isInComment = false;
  for (size_t at = 0; at + 1 < file.text.size(); ++at) {
    const std::string two = file.text.substr(at, 2);
    if (two == "/*") {
      if (isInComment) fuzz::Fail("no comment begins in a comment", file.text.substr(at));
      isInComment = true;
      ++at;
    } else if (two == "*/") {
      if (!isInComment) fuzz::Fail("only comments end", file.text.substr(at));
      isInComment = false;
      ++at;
    } else if (two == "\\\n" || file.text.compare(at, 3, "?\?/") == 0) {
      fuzz::Fail("no line is joined with the next one", file.text.substr(at));
    }
  }
  if (isInComment) fuzz::Fail("comments end", file.text);
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
