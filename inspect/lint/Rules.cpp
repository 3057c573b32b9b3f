#include "inspect/lint/Rules.h"

#include "inspect/lint/Lint.h"

namespace morvix::inspect {

const Rules& LintRules() {
  using namespace rules;
  static const Rules all = {
      &kJsonSyntax,          &kRepeatedMember,    &kNoConfiguration,     &kNoEntities,         &kUnknownMember,
      &kUnusedMember,        &kMisreadNumber,     &kEntityUnusable,      &kEntityVersion,      &kDuplicateEntity,
      &kNoAttributes,        &kAttributeDropped,  &kInheritedScaling,    &kLimitKind,          &kUnknownKeyword,
      &kEmptyKeyword,        &kLongKeyword,       &kEmptyUnit,           &kFlagBitsShifted,    &kDuplicateName,
      &kKeyCollision,        &kEmptyName,         &kNulInName,           &kSharedName,         &kDuplicateId,
      &kNumberInBits,        &kBinaryInBits,      &kBoolNotOneBit,       &kNegativeOffset,     &kEmptyField,
      &kNumberTooLong,       &kBinaryTooLong,     &kFieldTooWide,        &kMemberOutsideGroup, &kFieldBeforeGroup,
      &kFieldOutsidePayload, &kBitOffsetUnused,   &kGroupLastNotHighest, &kGroupOrder,         &kGroupSizedByAnother,
      &kGroupSizedByBytes,   &kGroupSplit,        &kGroupSizeDiffers,    &kFieldsOverlap,      &kNeighboursDisturbed,
      &kPayloadTooLong,      &kFlagsTooLong,      &kNarrowerThanType,    &kWiderThanType,      &kNarrowerThanMax,
      &kNegativeLimit,       &kMaxTooLarge,       &kMinAboveMax,         &kEmptyRange,         &kZeroRatio,
      &kScalingNotFinite,    &kScalingTooFine,    &kScalingRounded,      &kNumberTextCut,      &kEnumTooManyItems,
      &kEnumItemNotText,     &kEnumWithoutTexts,  &kEnumIndexCut,        &kEnumIncomplete,     &kDuplicateItem,
      &kBinaryAlert,         &kFractionNotActive, &kAlertTooLarge,       &kRoundtrip,
  };
  return all;
}

}  // namespace morvix::inspect
