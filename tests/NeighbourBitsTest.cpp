// Lint's findings about neighbour bits, compared with what the module writes: every bit field of a small group, next to
// every other bit.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "EntityBuilder.h"
#include "TestSupport.h"
#include "inspect/findings/Finding.h"
#include "inspect/lint/Checks.h"
#include "inspect/lint/Lint.h"
#include "inspect/lint/Rules.h"

namespace morvix::inspect {
namespace {

// What lint says of the entity's neighbour bits; nothing when it has no such finding.
std::optional<Finding> FindingOf(const Json::Value& entity) {
  const LogCapture silent;
  EntityFault fault;
  const std::optional<EntityModel> model = EntityModel::Parse(entity, "", fault);
  Findings findings(LintRules(), Severity::kInfo);
  LintOverlaps(model.value(), findings);
  for (const Finding& finding : findings.Sorted()) {
    if (finding.rule == &rules::kNeighboursDisturbed) return finding;
  }
  return std::nullopt;
}

std::vector<byte> Written(const ParsedEntity& entity, const Json::Value& values) {
  Json::Value root;
  root["main"] = values;
  MorvixProtocolOwnedPackage_4_0 package;
  ProtocolEncodeAttributes_4_0(entity.info, entity.attributes, package, root);
  return {package.value, package.value + package.sizeValue};
}

// Bit 0 is the lowest bit of the group's last byte.
bool GroupBit(const std::vector<byte>& group, int bit) {
  return (group[group.size() - 1 - static_cast<size_t>(bit / 8)] >> bit % 8 & 1) != 0;
}

// A bool in one bit of a group and, if wanted, an enum of one item in another bit, which is therefore written as 0.
// Both are written before the enum "x" of two items.
struct Group {
  Group(std::vector<int> neighbourBits, int offset, int len)
      : bits(std::move(neighbourBits)), json(WithField(bits, offset, len)), parsed(json) {}

  static Json::Value WithField(const std::vector<int>& bits, int offset, int len) {
    std::vector<Json::Value> attributes = {Bool("bool", 0, bits[0])};
    if (bits.size() == 2) attributes.push_back(Enum("zero", 0, bits[1], 1, 1));
    attributes.push_back(Enum("x", 0, offset, len, 2));
    return Entity(attributes);
  }

  // The names of the neighbours whose bit is not the one that was written, for any values.
  std::vector<std::string> Corrupted() const {
    bool isBoolCorrupted = false;
    bool isZeroCorrupted = false;
    for (const bool value : {false, true}) {
      for (const int x : {0, 1}) {
        Json::Value values;
        values["bool"] = value;
        values["zero"] = 0;
        values["x"] = x;
        const std::vector<byte> payload = Written(parsed, values);
        isBoolCorrupted = isBoolCorrupted || GroupBit(payload, bits[0]) != value;
        isZeroCorrupted = isZeroCorrupted || (bits.size() == 2 && GroupBit(payload, bits[1]));
      }
    }
    std::vector<std::string> names;
    if (isBoolCorrupted) names.emplace_back("'bool'");
    if (isZeroCorrupted) names.emplace_back("'zero'");
    return names;
  }

  const std::vector<int> bits;
  const Json::Value json;
  const ParsedEntity parsed;
};

std::string Listed(const std::vector<std::string>& names) {
  return names.size() < 2 ? names.at(0) : names[0] + " and " + names[1];
}

// The bits of groups of up to three bytes, the last of which the field sizes.
template <typename Check>
void ForEachField(int maxEnd, Check check) {
  for (int offset = 0; offset < maxEnd; ++offset) {
    for (int len = 1; offset + len <= maxEnd; ++len) check(offset, len, (offset + len + 7) / 8 * 8);
  }
}

bool IsIn(int bit, int offset, int len) { return bit >= offset && bit < offset + len; }

// The message names the bool exactly if some write changes it. The effect shows the payload before and after.
TEST(NeighbourBits, OfOneBoolAreFoundAsTheModuleWritesThem) {
  size_t found = 0;
  size_t fine = 0;
  ForEachField(24, [&](int offset, int len, int groupBits) {
    for (int bit = 0; bit < groupBits; ++bit) {
      if (IsIn(bit, offset, len)) continue;
      SCOPED_TRACE("bits " + std::to_string(offset) + "+" + std::to_string(len) + ", bool " + std::to_string(bit));
      const Group group({bit}, offset, len);
      const std::vector<std::string> corrupted = group.Corrupted();
      const std::optional<Finding> finding = FindingOf(group.json);
      ASSERT_EQ(finding.has_value(), !corrupted.empty());
      fine += finding ? 0 : 1;
      if (!finding) continue;
      ++found;
      // The bytes that the field spans, counted from the end of the group.
      const int last = groupBits / 8 - 1 - offset / 8;
      const int first = groupBits / 8 - 1 - (offset + len - 1) / 8;
      const std::string bytes =
          "bytes " + std::to_string(first) + (last == first + 1 ? " and " : " to ") + std::to_string(last);
      EXPECT_EQ(finding->message, "writing 'x', which lies in " + bytes + ", corrupts " + corrupted[0]);
      Json::Value values;
      values["bool"] = true;
      const auto shown = [&](const Json::Value& written) {
        return ToHex(Written(group.parsed, written).data() + first, static_cast<size_t>(last - first + 1));
      };
      const std::string before = shown(values);
      values["x"] = 0;
      EXPECT_EQ(finding->effect, bytes + " are " + before + " with one bit of " + corrupted[0] + " set, and " +
                                     shown(values) + " once 'x' is written as 0");
    }
  });
  EXPECT_GT(found, 500U);
  EXPECT_GT(fine, 500U);
}

// The bit that the bool sets moves to the place of the other neighbour, or elsewhere.
TEST(NeighbourBits, OfTwoFieldsAreFoundAsTheModuleWritesThem) {
  size_t found = 0;
  size_t both = 0;
  ForEachField(16, [&](int offset, int len, int groupBits) {
    for (int bit = 0; bit < groupBits; ++bit) {
      for (int zero = 0; zero < groupBits; ++zero) {
        if (bit == zero || IsIn(bit, offset, len) || IsIn(zero, offset, len)) continue;
        const Group group({bit, zero}, offset, len);
        const std::vector<std::string> corrupted = group.Corrupted();
        const std::optional<Finding> finding = FindingOf(group.json);
        ASSERT_EQ(finding.has_value(), !corrupted.empty()) << offset << '+' << len << ": " << bit << ' ' << zero;
        if (!finding) continue;
        ++found;
        both += corrupted.size() == 2 ? 1 : 0;
        EXPECT_EQ(finding->message, "writing 'x', which lies in bytes 0 and 1, corrupts " + Listed(corrupted))
            << offset << '+' << len << ": " << bit << ' ' << zero;
      }
    }
  });
  EXPECT_GT(found, 500U);
  EXPECT_GT(both, 50U);
  EXPECT_GT(found, both);
}

}  // namespace
}  // namespace morvix::inspect
