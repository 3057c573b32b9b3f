// The rules of lint, each a constant.

#ifndef MORVIX_INSPECT_LINT_RULES_H
#define MORVIX_INSPECT_LINT_RULES_H

#include "inspect/findings/Finding.h"

namespace morvix::inspect::rules {

inline constexpr Severity kError = Severity::kError;
inline constexpr Severity kWarning = Severity::kWarning;
inline constexpr Severity kInfo = Severity::kInfo;

// JSON syntax and members.
inline constexpr Rule kJsonSyntax{"json-syntax", kError, "The file is not JSON."};
inline constexpr Rule kRepeatedMember{"repeated-member", kWarning,
                                      "An object has a member twice; the last one is used."};
inline constexpr Rule kNoConfiguration{"no-configuration", kError, "The file has no array of entities."};
inline constexpr Rule kNoEntities{"no-entities", kWarning, "The array of entities is empty."};
inline constexpr Rule kUnknownMember{"unknown-member", kWarning, "An unknown member, perhaps misspelt."};
inline constexpr Rule kUnusedMember{"unused-member", kInfo, "A scaling or items that the data type does not use."};
inline constexpr Rule kMisreadNumber{"misread-number", kWarning, "A number is not read as it is written."};

// Entities.
inline constexpr Rule kEntityUnusable{"entity-unusable", kError, "An entity can be neither encoded nor decoded."};
inline constexpr Rule kEntityVersion{"entity-version", kError,
                                     "An entity is called version, the name of the document's own version."};
inline constexpr Rule kDuplicateEntity{"duplicate-entity", kError, "Two entities have one name."};
inline constexpr Rule kNoAttributes{"no-attributes", kWarning, "An entity has no usable attribute."};

// Attributes that the parser drops.
inline constexpr Rule kAttributeDropped{"attribute-dropped", kError, "The parser drops an attribute."};
inline constexpr Rule kInheritedScaling{
    "inherited-scaling", kError,
    "The parser drops an attribute for a member that an earlier attribute's uint_spec lacks."};
inline constexpr Rule kLimitKind{"limit-kind", kError,
                                 "A min or max is an array or object, on which the parser throws."};
inline constexpr Rule kUnknownKeyword{"unknown-keyword", kError,
                                      "An unknown type, data_type or unit; drops the attribute."};
inline constexpr Rule kEmptyKeyword{"empty-keyword", kError, "A type or data_type is empty; drops the attribute."};
inline constexpr Rule kLongKeyword{"long-keyword", kError, "A keyword of 32 or more characters; drops the attribute."};
inline constexpr Rule kEmptyUnit{"empty-unit", kInfo, "An empty unit counts as byte."};
inline constexpr Rule kFlagBitsShifted{"flag-bits-shifted", kError,
                                       "A dropped writable attribute shifts the flag bits of all later ones."};

// Names.
inline constexpr Rule kDuplicateName{"duplicate-name", kError, "Two attributes have one name, and so one value."};
inline constexpr Rule kKeyCollision{
    "key-collision", kError,
    "The display name of an alert or fault is also another attribute's key in the decoded document."};
inline constexpr Rule kEmptyName{"empty-name", kWarning, "A name is empty."};
inline constexpr Rule kNulInName{"nul-in-name", kWarning,
                                 "A name contains a NUL; values are looked up by the part before it."};
inline constexpr Rule kSharedName{"shared-name", kInfo,
                                  "An alert or fault has the name of another attribute; harmless."};
inline constexpr Rule kDuplicateId{"duplicate-id", kInfo, "Two entities, or two attributes of one, have one id."};

// Places in the payload.
inline constexpr Rule kNumberInBits{"number-in-bits", kError, "A number in bit units can be neither read nor written."};
inline constexpr Rule kBinaryInBits{"binary-in-bits", kError, "A binary in bit units wipes every decode."};
inline constexpr Rule kBoolNotOneBit{
    "bool-not-one-bit", kError, "A bool that is not one bit ends every encode that carries it and wipes every decode."};
inline constexpr Rule kNegativeOffset{"negative-offset", kError, "A field begins before the payload or its group."};
inline constexpr Rule kEmptyField{"empty-field", kError, "A field has no length."};
inline constexpr Rule kNumberTooLong{"number-too-long", kError, "A number or enum is wider than 8 bytes."};
inline constexpr Rule kBinaryTooLong{"binary-too-long", kError, "A binary is longer than 65535 bytes."};
inline constexpr Rule kFieldTooWide{"field-too-wide", kError,
                                    "A bit field and the bits below it in its last byte are more than 64 bits."};
inline constexpr Rule kMemberOutsideGroup{"member-outside-group", kError, "A bit field begins above its group."};
inline constexpr Rule kFieldBeforeGroup{"field-before-group", kError,
                                        "A bit field reaches out of its group, into the bytes before it."};
inline constexpr Rule kFieldOutsidePayload{"field-outside-payload", kError, "A field does not lie in the payload."};
inline constexpr Rule kBitOffsetUnused{"bit-offset-unused", kInfo,
                                       "A bit_offset other than 0 in byte units has no meaning."};
inline constexpr Rule kGroupLastNotHighest{"group-last-not-highest", kError,
                                           "The last member of a bit group, which sizes it, is not its highest."};
inline constexpr Rule kGroupOrder{"group-order", kInfo,
                                  "The last member of a bit group is not its highest, but both need the same size."};
inline constexpr Rule kGroupSizedByAnother{"group-sized-by-another", kWarning,
                                           "A bit group is sized by the group after it, whose size differs."};
inline constexpr Rule kGroupSizedByBytes{"group-sized-by-bytes", kWarning,
                                         "A bit group is sized by an enum in byte units."};
inline constexpr Rule kGroupSplit{"group-split", kError, "The members of a bit group are not listed together."};
inline constexpr Rule kGroupSizeDiffers{"group-size-differs", kError,
                                        "A bit group has one size for writing and another for reading."};
inline constexpr Rule kFieldsOverlap{"fields-overlap", kWarning, "Two fields share payload bits."};
inline constexpr Rule kNeighboursDisturbed{
    "neighbours-disturbed", kError,
    "Writing a field that partly fills several bytes corrupts fields that were written before."};
inline constexpr Rule kPayloadTooLong{"payload-too-long", kError, "The payload is longer than 16384 bytes."};
inline constexpr Rule kFlagsTooLong{"flags-too-long", kError, "The flag bitmap is longer than 1024 bytes."};

// Numbers.
inline constexpr Rule kNarrowerThanType{"narrower-than-type", kInfo, "A number has fewer bytes than its type says."};
inline constexpr Rule kWiderThanType{"wider-than-type", kInfo, "A number has more bytes than its type says."};
inline constexpr Rule kNarrowerThanMax{"narrower-than-max", kError, "The bytes of a number cannot hold its max."};
inline constexpr Rule kNegativeLimit{"negative-limit", kError, "A negative min or max refuses every value."};
inline constexpr Rule kMaxTooLarge{"max-too-large", kError, "A max at or above 2^52 refuses every value."};
inline constexpr Rule kMinAboveMax{"min-above-max", kError, "A min above max refuses every value."};
inline constexpr Rule kEmptyRange{"empty-range", kError, "A min equal to max refuses every value."};
inline constexpr Rule kZeroRatio{"zero-ratio", kError, "A ratio of 0 maps all raw values to the same user value."};
inline constexpr Rule kScalingNotFinite{"scaling-not-finite", kError,
                                        "A ratio or addition is infinite or not a number."};
inline constexpr Rule kScalingTooFine{
    "scaling-too-fine", kWarning, "A scaling is finer than the six decimals that decoding prints, or than a double."};
inline constexpr Rule kScalingRounded{"scaling-rounded", kInfo,
                                      "Decoded values are rounded, to six decimals or to what a double holds."};
inline constexpr Rule kNumberTextCut{"number-text-cut", kWarning, "Decoded values are cut after 31 characters."};

// Enums.
inline constexpr Rule kEnumTooManyItems{"enum-too-many-items", kError,
                                        "An enum has more items than its bits can hold."};
inline constexpr Rule kEnumItemNotText{
    "enum-item-not-text", kError, "An item of an enum is not a string and is left out, which shifts all later items."};
inline constexpr Rule kEnumWithoutTexts{"enum-without-texts", kError, "An enum has no item that is a string."};
inline constexpr Rule kEnumIndexCut{"enum-index-cut", kError,
                                    "An enum has indices of ten digits, but only nine are printed."};
inline constexpr Rule kEnumIncomplete{"enum-incomplete", kInfo,
                                      "An enum's bits can hold numbers without an item, which end a decode."};
inline constexpr Rule kDuplicateItem{"duplicate-item", kInfo, "An enum has an item twice."};

// Alerts and faults.
inline constexpr Rule kBinaryAlert{"binary-alert", kWarning,
                                   "Whether a binary alert or fault is active depends on its base64 text."};
inline constexpr Rule kFractionNotActive{"fraction-not-active", kInfo,
                                         "An alert or fault that is a number is not active below 1."};
inline constexpr Rule kAlertTooLarge{"alert-too-large", kWarning,
                                     "An alert or fault has numbers of more than 32 bits."};

// --roundtrip
inline constexpr Rule kRoundtrip{"roundtrip", kError, "With --roundtrip: encoding and decoding changes a value."};

}  // namespace morvix::inspect::rules

#endif
