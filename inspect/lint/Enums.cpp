// Items of enums.

#include <fmt/format.h>

#include <set>

#include "inspect/lint/Checks.h"
#include "inspect/lint/Rules.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

std::string CountText(size_t count) { return Count(count, "item"); }

void LintItemTexts(const EntityModel& entity, const Field& field, Findings& findings) {
  const Spot member = entity.At(field.element, {"enum"});
  const Json::Value& items = *member.value;
  if (!items.isArray()) return;
  const std::string label = entity.Label(field.element);
  std::vector<Json::ArrayIndex> dropped;
  std::set<std::string> known;
  std::string shift;  // of the first item that is shifted
  for (Json::ArrayIndex i = 0; i < items.size(); ++i) {
    if (!items[i].isString()) {
      dropped.push_back(i);
      continue;
    }
    const std::string item = items[i].asString();
    if (!dropped.empty() && shift.empty()) {
      shift = fmt::format("; {} is index {} instead of {}", Quoted(item), dropped[0], i);
    }
    // An item that is its own index is the same either way.
    const bool isDigits = !item.empty() && item.find_first_not_of("0123456789") == std::string::npos;
    if (isDigits && item != std::to_string(i - dropped.size())) {
      findings.Add(rules::kDigitItem, member.Item(i),
                   fmt::format("{} has the item {} with the index {}", label, Quoted(item), i - dropped.size()),
                   fmt::format("where a value is given as text, {} is an index", item), "give it a text with a letter");
    }
    if (known.insert(item).second) continue;
    findings.Add(rules::kDuplicateItem, member.Item(i), fmt::format("{} has the item {} twice", label, Quoted(item)),
                 "none: values are indices", "give each item its own text");
  }
  if (dropped.empty()) return;
  const Spot spot = member.Item(dropped[0]);
  const size_t count = field.attribute->enumList.size();
  if (count == 0) {
    return findings.Add(rules::kEnumWithoutTexts, spot, label + " has no item that is a string",
                        EffectOfUnusable(entity, field.element), "list strings");
  }
  findings.Add(rules::kEnumItemNotText, spot,
               fmt::format("{} has {} that {}", label, CountText(dropped.size()),
                           dropped.size() == 1 ? "is not a string" : "are not strings"),
               fmt::format("it has {} instead of {}{}", CountText(count), items.size(), shift), "list strings only");
}

void LintItemCount(const EntityModel& entity, const Field& field, Findings& findings) {
  constexpr size_t kPrintedIndices = 1000000000;  // of nine digits
  const Attribute& attribute = *field.attribute;
  const Spot spot = entity.At(field.element, {"enum"});
  const size_t count = attribute.enumList.size();
  const std::string label = entity.Label(field.element);
  if (count > kPrintedIndices) {
    findings.Add(rules::kEnumIndexCut, spot, fmt::format("{} has {}", label, CountText(count)),
                 fmt::format("indices from {} on lose their last digit when decoded", kPrintedIndices),
                 "use fewer items, or a number");
  }
  if (field.bits.IsEmpty() || count == 0) return;
  const uint64_t full = field.bits.MaxValue();
  const std::string message =
      fmt::format("{} has {} in {}", label, CountText(count), Count(field.bits.Length(), "bit"));
  if (count - 1 > full) {
    findings.Add(
        rules::kEnumTooManyItems, spot, message,
        fmt::format("the highest bits are silently lost: index {} becomes index {}", count - 1, (count - 1) & full),
        "use more bits or fewer items");
  }
  if (entity.Read(field.element) == nullptr || full < count) return;
  // A device that sets all bits.
  const Result result{MorvixProtocolOutcomeRefusedByItems_4_0, full};
  findings.Add(rules::kEnumIncomplete, spot, message,
               fmt::format("a device that sends {} ends the decode with \"{}\", whose range ends with the number of "
                           "items; the attributes after it "
                           "are missing",
                           full, DecodeLine(attribute, result)),
               "list an item for each number that the device may send");
}

}  // namespace

void LintEnums(const EntityModel& entity, Findings& findings) {
  for (const Field* field : entity.Fields()) {
    if (!IsEnum(*field->attribute)) continue;
    LintItemTexts(entity, *field, findings);
    LintItemCount(entity, *field, findings);
  }
}

}  // namespace morvix::inspect
