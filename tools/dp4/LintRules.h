// What lint knows about product configurations: the rules, and the checks that apply them. Everything that a finding
// says about the payload or a value is what the module did with it.

#ifndef MORVIX_DP4_LINT_RULES_H
#define MORVIX_DP4_LINT_RULES_H

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Input.h"

namespace dp4 {

enum class Severity { kInfo, kWarning, kError };

const char* SeverityName(Severity severity);

enum class RuleId {
  // The text and what it is made of.
  kJsonSyntax,
  kRepeatedMember,
  kNoConfiguration,
  kNoEntities,
  kUnknownMember,
  kUnusedMember,
  kMisreadNumber,
  // Entities.
  kEntityUnusable,
  kEntityVersion,
  kDuplicateEntity,
  kNoAttributes,
  // Attributes that the parser drops.
  kAttributeDropped,
  kInheritedScaling,
  kLimitKind,
  kUnknownKeyword,
  kEmptyKeyword,
  kLongKeyword,
  kEmptyUnit,
  kFlagBitsShifted,
  // Names.
  kDuplicateName,
  kKeyCollision,
  kEmptyName,
  kNulInName,
  kSharedName,
  kDuplicateId,
  // Places in the payload.
  kNumberInBits,
  kBinaryInBits,
  kBoolNotOneBit,
  kNegativeOffset,
  kEmptyField,
  kNumberTooLong,
  kBinaryTooLong,
  kFieldTooWide,
  kMemberOutsideGroup,
  kFieldBeforeGroup,
  kFieldOutsidePayload,
  kBitOffsetUnused,
  kGroupLastNotHighest,
  kGroupOrder,
  kGroupSizedByAnother,
  kGroupSizedByBytes,
  kGroupSplit,
  kGroupSizeDiffers,
  kFieldsOverlap,
  kNeighboursDisturbed,
  kPayloadTooLong,
  kFlagsTooLong,
  // Numbers.
  kNarrowerThanType,
  kWiderThanType,
  kNarrowerThanMax,
  kNegativeLimit,
  kMaxTooLarge,
  kMinAboveMax,
  kEmptyRange,
  kZeroRatio,
  kScalingNotFinite,
  kScalingTooFine,
  kScalingRounded,
  kNumberTextCut,
  // Enums.
  kEnumTooManyItems,
  kEnumItemNotText,
  kEnumWithoutTexts,
  kEnumIndexCut,
  kEnumIncomplete,
  kDuplicateItem,
  // Alerts and faults.
  kBinaryAlert,
  kFractionNotActive,
  kAlertTooLarge,
  // --roundtrip
  kRoundtrip,
};

struct Rule {
  RuleId id;
  const char* name;
  Severity severity;
  const char* sentence;
};

// In the order of RuleId.
const std::vector<Rule>& LintRules();
const Rule& RuleOf(RuleId id);

// A value of the configuration and its JSON pointer.
struct Spot {
  const Json::Value* value;
  std::string pointer;
};

struct Finding {
  RuleId rule;
  size_t offset;  // of the value in the text
  std::string pointer;
  std::string message;
  std::string effect;  // what the SDK or the device will do
  std::string mend;    // how to put it right
};

// The findings of one file, as far as they are severe enough.
class Findings {
 public:
  explicit Findings(Severity least) : least_(least) {}

  // Whether a finding of this rule would be kept.
  bool Wants(RuleId rule) const { return RuleOf(rule).severity >= least_; }
  void Add(Finding finding);
  void Add(RuleId rule, const Spot& spot, std::string message, std::string effect, std::string mend);
  // The same, unless the rule has a finding at this spot already.
  void AddOnce(RuleId rule, const Spot& spot, std::string message, std::string effect, std::string mend);

  // In the order of the text.
  std::vector<Finding> Sorted() const;

 private:
  Severity least_;
  std::vector<Finding> findings_;
  std::set<std::pair<RuleId, std::string>> known_;
};

struct LintChoices {
  std::string entity;           // name or id; empty for all
  std::ostream* log = nullptr;  // where the parser's log lines go
  bool roundtrip = false;
};

// Applies all rules to a file's text. Throws UsageError when the chosen entity does not exist.
void LintText(const std::string& path, const std::string& text, const LintChoices& choices, Findings& findings);

}  // namespace dp4

#endif
