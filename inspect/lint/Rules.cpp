#include "inspect/lint/Rules.h"

#include "inspect/lint/Lint.h"

namespace morvix::inspect {

const Rules& LintRules() {
  static const Rules all = {
      &rules::kJsonSyntax,          &rules::kRepeatedMember,      &rules::kNoConfiguration,
      &rules::kNoEntities,          &rules::kUnknownMember,       &rules::kUnusedMember,
      &rules::kMisreadNumber,       &rules::kEntityUnusable,      &rules::kEntityVersion,
      &rules::kDuplicateEntity,     &rules::kNoAttributes,        &rules::kAttributeDropped,
      &rules::kInheritedScaling,    &rules::kLimitKind,           &rules::kUnknownKeyword,
      &rules::kEmptyKeyword,        &rules::kLongKeyword,         &rules::kEmptyUnit,
      &rules::kFlagBitsShifted,     &rules::kDuplicateName,       &rules::kKeyCollision,
      &rules::kEmptyName,           &rules::kNulInName,           &rules::kSharedName,
      &rules::kDuplicateId,         &rules::kNumberInBits,        &rules::kBinaryInBits,
      &rules::kBoolNotOneBit,       &rules::kNegativeOffset,      &rules::kEmptyField,
      &rules::kNumberTooLong,       &rules::kBinaryTooLong,       &rules::kFieldTooWide,
      &rules::kMemberOutsideGroup,  &rules::kFieldBeforeGroup,    &rules::kFieldOutsidePayload,
      &rules::kBitOffsetUnused,     &rules::kGroupLastNotHighest, &rules::kGroupOrder,
      &rules::kGroupSizedByAnother, &rules::kGroupSizedByBytes,   &rules::kGroupSplit,
      &rules::kGroupSizeDiffers,    &rules::kFieldsOverlap,       &rules::kNeighboursDisturbed,
      &rules::kPayloadTooLong,      &rules::kFlagsTooLong,        &rules::kNarrowerThanType,
      &rules::kWiderThanType,       &rules::kNarrowerThanMax,     &rules::kNegativeLimit,
      &rules::kMaxTooLarge,         &rules::kMinAboveMax,         &rules::kEmptyRange,
      &rules::kZeroRatio,           &rules::kScalingNotFinite,    &rules::kScalingTooFine,
      &rules::kScalingRounded,      &rules::kNumberTextCut,       &rules::kEnumTooManyItems,
      &rules::kEnumItemNotText,     &rules::kEnumWithoutTexts,    &rules::kEnumIndexCut,
      &rules::kEnumIncomplete,      &rules::kDuplicateItem,       &rules::kBinaryAlert,
      &rules::kFractionNotActive,   &rules::kAlertTooLarge,       &rules::kRoundtrip,
  };
  return all;
}

}  // namespace morvix::inspect
