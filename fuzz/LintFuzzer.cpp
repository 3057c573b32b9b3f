// The text of a configuration for the tool's linter.

#include <algorithm>
#include <set>
#include <string>

#include "Support.h"
#include "inspect/lint/Lint.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Error.h"

using morvix::inspect::Finding;
using morvix::inspect::Severity;

namespace {

constexpr uint64_t kMostZeros = 16384;

std::vector<Finding> FindingsOf(const std::string& text, Severity least, bool withRoundtrip) {
  return morvix::inspect::Lint("input", text, least, {"", withRoundtrip});
}

std::string Described(const Finding& finding) {
  return std::string(finding.rule->name) + " at " + std::to_string(finding.offset) + " " + fuzz::Show(finding.pointer) +
         "\n  " + fuzz::Show(finding.message) + "\n  " + fuzz::Show(finding.effect) + "\n  " + fuzz::Show(finding.fix);
}

// The value that a JSON pointer names; null for none.
const Json::Value* Resolve(const Json::Value& root, const std::string& pointer) {
  const Json::Value* value = &root;
  for (size_t at = 0; at < pointer.size();) {
    const size_t end = std::min(pointer.find('/', at + 1), pointer.size());
    std::string token;
    for (size_t i = at + 1; i < end; ++i) {
      const bool isEscape = pointer[i] == '~' && i + 1 < end;
      token += isEscape ? (pointer[++i] == '0' ? '~' : '/') : pointer[i];
    }
    if (value->isArray()) {
      const size_t index = std::stoul(token);
      if (index >= value->size()) return nullptr;
      value = &(*value)[static_cast<Json::ArrayIndex>(index)];
    } else {
      value = value->isObject() ? value->find(token.data(), token.data() + token.size()) : nullptr;
    }
    if (value == nullptr) return nullptr;
    at = end;
  }
  return value;
}

void CheckFinding(const Finding& finding, const std::string& text, const Json::Value& root) {
  for (const std::string* part : {&finding.message, &finding.effect, &finding.fix}) {
    if (part->empty() || std::any_of(part->begin(), part->end(), [](char c) { return c >= 0 && c < ' '; })) {
      fuzz::Fail("a finding tells in one line what it is", Described(finding));
    }
  }
  if (finding.offset > text.size()) fuzz::Fail("a finding has a place in the text", Described(finding));
  // Of repeated members, only the last is in the value.
  if (finding.rule == &morvix::inspect::rules::kRepeatedMember || finding.rule == &morvix::inspect::rules::kJsonSyntax)
    return;
  const Json::Value* value = Resolve(root, finding.pointer);
  if (value == nullptr) return fuzz::Fail("the pointer of a finding names a value", Described(finding));
  fuzz::ExpectEqual(int64_t{value->getOffsetStart()}, static_cast<int64_t>(finding.offset),
                    "a finding stands where its value does");
}

// The same findings, without those that are less severe.
void CheckSeverity(const std::string& text, bool withRoundtrip, const std::vector<Finding>& all, Severity least) {
  const std::vector<Finding> severe = FindingsOf(text, least, withRoundtrip);
  size_t next = 0;
  for (const Finding& finding : all) {
    if (finding.rule->severity < least) continue;
    if (next == severe.size() || Described(severe[next]) != Described(finding)) {
      fuzz::Fail("a severity leaves out what is below it, and nothing else", Described(finding));
    }
    ++next;
  }
  if (next != severe.size()) fuzz::Fail("a severity adds nothing", Described(severe[next]));
}

// What the linter says of an entity against what the module does with it.
void CheckEntityFindings(const Json::Value& entity, const std::string& pointer, const std::vector<Finding>& findings) {
  std::set<std::string> unclean;
  bool hasError = false;
  for (const Finding& finding : findings) {
    if (finding.pointer.compare(0, pointer.size() + 1, pointer + "/") != 0 && finding.pointer != pointer) continue;
    if (finding.rule->severity == Severity::kError) hasError = true;
    const std::string attrs = pointer + "/attrs/";
    if (finding.pointer.compare(0, attrs.size(), attrs) != 0) continue;
    unclean.insert(finding.pointer.substr(0, finding.pointer.find('/', attrs.size())));
  }
  model::Parsed parsed = model::Parse(entity, fuzz::kAllGroups);
  if (parsed.hasThrown) {
    if (!hasError) fuzz::Fail("what throws is an error", pointer);
    return;
  }
  if (!parsed.usable) {
    if (!hasError) fuzz::Fail("what is unusable is an error", pointer);
    return;
  }
  const auto dropped = static_cast<size_t>(
      std::count_if(parsed.lines.begin(), parsed.lines.end(), [](const model::Line& line) { return line.level == 1; }));
  if (dropped > unclean.size()) {
    fuzz::Fail("every attribute that is dropped has a finding", pointer + fuzz::Show(parsed.lines));
  }
  const uint64_t length = model::PayloadLength(parsed.attributes);
  if (hasError || length == 0 || length > kMostZeros) return;
  const model::Decoded decoded = model::DecodeAttributes(parsed.entity, parsed.attributes,
                                                         fuzz::Bytes(static_cast<size_t>(length)), Json::Value());
  if (!decoded.lines.empty()) {
    fuzz::Fail("without an error, a payload of zeros is decoded to its end", pointer + fuzz::Show(decoded.lines));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  const bool withRoundtrip = size % 4 == 0;
  std::vector<Finding> findings;
  try {
    findings = FindingsOf(text, Severity::kInfo, withRoundtrip);
  } catch (const morvix::inspect::InputError&) {
    return 0;  // more inherited items than there is memory for
  }
  morvix::inspect::json::SyntaxError error;
  const auto document = morvix::inspect::json::Document::Read("input", text, error);
  const bool isJson = document.has_value();
  const Json::Value root = isJson ? document->Root() : Json::Value();
  fuzz::ExpectEqual(findings.size() == 1 && findings[0].rule == &morvix::inspect::rules::kJsonSyntax, !isJson,
                    "what is not JSON is the only thing that is found");
  for (size_t i = 0; i < findings.size(); ++i) {
    CheckFinding(findings[i], text, root);
    if (i != 0 && findings[i].offset < findings[i - 1].offset) {
      fuzz::Fail("findings stand in the order of the text", Described(findings[i]));
    }
  }
  CheckSeverity(text, withRoundtrip, findings, size % 2 == 0 ? Severity::kError : Severity::kWarning);
  const Json::Value& entities = fuzz::MemberOf(root, "entities");
  for (Json::ArrayIndex i = 0; entities.isArray() && i < entities.size(); ++i) {
    CheckEntityFindings(entities[i], "/entities/" + std::to_string(i), findings);
  }
  fuzz::TakeLines();
  return 0;
}
