// The rules of lint, each a constant.

#ifndef MORVIX_INSPECT_LINT_RULES_H
#define MORVIX_INSPECT_LINT_RULES_H

#include "inspect/findings/Finding.h"

namespace morvix::inspect::rules {

inline constexpr Severity kError = Severity::kError;
inline constexpr Severity kWarning = Severity::kWarning;
inline constexpr Severity kInfo = Severity::kInfo;

// The text and what it is made of.
inline constexpr Rule kJsonSyntax{"json-syntax", kError, "The file is not JSON.",
                                  "Nothing can be loaded from a file that the JSON reader refuses. Correct it at the "
                                  "place that is named; a comma or a quotation mark before it is often the cause."};
inline constexpr Rule kNotStrictJson{
    "not-strict-json", kWarning, "The file is not strict JSON; other programs cannot read it.",
    "The module's reader takes comments, trailing commas, numbers such as 007 and raw control characters in strings, "
    "but most other programs do not: editors, pipelines and other hosts then cannot read the file. Write it as RFC "
    "8259 has it."};
inline constexpr Rule kNotUtf8{
    "not-utf8", kWarning, "The file is not UTF-8; what is not is replaced in documents.",
    "JSON is UTF-8. Bytes that are not are replaced when a document is written, so that a name in the application's "
    "document is not the one of the configuration. Save the file as UTF-8."};
inline constexpr Rule kRepeatedMember{"repeated-member", kWarning,
                                      "An object has a member twice; the last one is used.",
                                      "The reader keeps the last value of a member and silently forgets the earlier "
                                      "ones. Remove the one that is not meant."};
inline constexpr Rule kNoConfiguration{"no-configuration", kError, "The file has no array of entities.",
                                       "A configuration is an object whose member 'entities' is an array. Without it "
                                       "there is nothing to encode or decode."};
inline constexpr Rule kNoEntities{
    "no-entities", kWarning, "The array of entities is empty.",
    "An empty array of entities is accepted, and nothing can be encoded or decoded with it."};
inline constexpr Rule kVersionNeverMatches{
    "version-never-matches", kError, "A packetVersion that no query for devices matches.",
    "Hosts find a product's devices by protocol and packet version. The version is read as a string that begins with a "
    "lower-case 0x; a plain number such as 4, or a string such as 4 or 0X4, is not read at all, and no query ever "
    "gives the device. Write \"0x4\"."};
inline constexpr Rule kUnknownMember{
    "unknown-member", kWarning, "An unknown member, perhaps misspelt.",
    "Nothing reads a member of an unknown name, so a misspelt one is as good as missing. Members that begin with x- or "
    "$ are left alone: use them for notes of your own."};
inline constexpr Rule kUnusedMember{"unused-member", kInfo, "A scaling or items that the data type does not use.",
                                    "Only numbers use 'uint_spec', and only enums use 'enum'. Elsewhere they are "
                                    "ignored, which may mean that the data_type is wrong."};
inline constexpr Rule kMisreadNumber{
    "misread-number", kWarning, "A number is not read as it is written.",
    "Numbers may be given as strings, which are read as the C library does: 010 is octal, text after the digits is "
    "ignored, and what is too large is cut. Write a plain JSON number."};

// Entities.
inline constexpr Rule kEntityUnusable{
    "entity-unusable", kError, "An entity can be neither encoded nor decoded.",
    "An entity needs an integer 'id', strings 'name' and 'display_name' and an array 'attrs'. When one of them is "
    "missing, every encode and decode of the entity does nothing."};
inline constexpr Rule kEntityVersion{
    "entity-version", kError, "An entity is called version, the name of the document's own version.",
    "The receive document has a member 'version' beside its entities. An entity of that name is overwritten by it."};
inline constexpr Rule kDuplicateEntity{
    "duplicate-entity", kError, "Two entities have one name.",
    "Documents hold one object for each entity name, so that two entities of one name share their values."};
inline constexpr Rule kNoAttributes{"no-attributes", kWarning, "An entity has no usable attribute.",
                                    "An entity without a usable attribute sends nothing and shows nothing."};

// Attributes that the parser drops.
inline constexpr Rule kAttributeDropped{
    "attribute-dropped", kError, "The parser drops an attribute.",
    "The parser skips an attribute whose members are not all there and of the right kind. It logs one line and goes "
    "on, so that the attribute is simply missing in the application. Every member that is wrong is named."};
inline constexpr Rule kInheritedScaling{
    "inherited-scaling", kError,
    "The parser drops an attribute for a member that an earlier attribute's uint_spec lacks.",
    "The parser keeps the last uint_spec that it has seen and reads it again for all later attributes, whatever their "
    "type. One that lacks a member therefore drops the attributes after it as well. Complete it where it stands."};
inline constexpr Rule kLimitKind{"limit-kind", kError,
                                 "A min or max is an array or object, on which the parser throws.",
                                 "A min or max that is an array or object makes the JSON library throw, through every "
                                 "parse of the entity. Write a number."};
inline constexpr Rule kUnknownKeyword{"unknown-keyword", kError,
                                      "An unknown type, data_type or unit; drops the attribute.",
                                      "The keywords of 'type', 'data_type' and 'unit' are fixed; letter case does not "
                                      "matter. Any other one drops the attribute."};
inline constexpr Rule kEmptyKeyword{"empty-keyword", kError, "A type or data_type is empty; drops the attribute.",
                                    "An empty 'type' or 'data_type' is no keyword, and drops the attribute."};
inline constexpr Rule kLongKeyword{
    "long-keyword", kError, "A keyword of 32 or more characters; drops the attribute.",
    "Only 31 characters of a keyword are looked at, so that a longer one is none, and drops the attribute."};
inline constexpr Rule kEmptyUnit{"empty-unit", kInfo, "An empty unit counts as byte.",
                                 "An empty unit is taken for 'byte'. Write it out, so that nobody has to know."};
inline constexpr Rule kFlagBitsShifted{
    "flag-bits-shifted", kError, "A dropped writable attribute shifts the flag bits of all later ones.",
    "A write marks what it carries by a bit for each writable attribute, in the order of the list. A writable "
    "attribute that is dropped has no bit, so that all later ones have other bits than in the device."};

// Names.
inline constexpr Rule kDuplicateName{"duplicate-name", kError, "Two attributes have one name, and so one value.",
                                     "The name is the key of an attribute's value. Two of one name are written from "
                                     "one value, and the later one hides the earlier one when reading."};
inline constexpr Rule kKeyCollision{
    "key-collision", kError,
    "The display name of an alert or fault is also another attribute's key in the decoded document.",
    "Alerts and faults stand in the decoded document under their display name, beside the other attributes, which "
    "stand there under their name. Where these are equal the later one replaces the earlier one."};
inline constexpr Rule kNamesBecomeOne{"names-become-one", kError,
                                      "Two names that are not UTF-8 become one in the application's text.",
                                      "In the application's text, bytes that are not UTF-8 are replaced. Names that "
                                      "differ in such bytes only are one key there. Save the file as UTF-8."};
inline constexpr Rule kEmptyName{"empty-name", kWarning, "A name is empty.",
                                 "A value under an empty key is easily lost. Give it a name."};
inline constexpr Rule kNulInName{"nul-in-name", kWarning,
                                 "A name contains a NUL; values are looked up by the part before it.",
                                 "Encoding looks a value up by the name up to its first NUL. Remove it."};
inline constexpr Rule kSharedName{"shared-name", kInfo,
                                  "An alert or fault has the name of another attribute; harmless.",
                                  "An alert or fault stands under its display name, so that its name may be that of "
                                  "another attribute. It is confusing all the same."};
inline constexpr Rule kDuplicateId{"duplicate-id", kInfo, "Two entities, or two attributes of one, have one id.",
                                   "Nothing reads the ids, but tools that match attributes by them are misled."};

// Places in the payload.
inline constexpr Rule kNumberInBits{"number-in-bits", kError, "A number in bit units can be neither read nor written.",
                                    "Only bools and enums live in bits. Use the unit byte, or an enum."};
inline constexpr Rule kBinaryInBits{"binary-in-bits", kError, "A binary in bit units wipes every decode.",
                                    "A binary is whole bytes. In bits it cannot be read, and a binary that cannot be "
                                    "read ends the decode and loses all values of the entity."};
inline constexpr Rule kBoolNotOneBit{
    "bool-not-one-bit", kError, "A bool that is not one bit ends every encode that carries it and wipes every decode.",
    "A bool is one bit: unit 'bit' and 'len' 1. Any other one ends every write that carries it, and every decode."};
inline constexpr Rule kNegativeOffset{"negative-offset", kError, "A field begins before the payload or its group.",
                                      "Offsets count from the start of the payload, or of the bit group. A negative "
                                      "one is usually a subtraction gone wrong."};
inline constexpr Rule kEmptyField{"empty-field", kError, "A field has no length.",
                                  "A field of no length holds no value."};
inline constexpr Rule kNumberTooLong{"number-too-long", kError, "A number or enum is wider than 8 bytes.",
                                     "Numbers and enums have at most 8 bytes."};
inline constexpr Rule kBinaryTooLong{"binary-too-long", kError, "A binary is longer than 65535 bytes.",
                                     "A binary has at most 65535 bytes, and a packet's payload at most 16384."};
inline constexpr Rule kFieldTooWide{"field-too-wide", kError,
                                    "A bit field and the bits below it in its last byte are more than 64 bits.",
                                    "A bit field is handled in a word of 64 bits that begins with the lowest bit of "
                                    "its last byte. Begin long ones at a multiple of 8."};
inline constexpr Rule kMemberOutsideGroup{
    "member-outside-group", kError, "A bit field begins above its group.",
    "Bits count from the lowest bit of the group's last byte. How many bytes a group has follows from its last "
    "attribute in the list alone, so that bits above that are outside. If the bit was meant to be one of the next "
    "byte, raise byte_offset and count from 0 again."};
inline constexpr Rule kFieldBeforeGroup{
    "field-before-group", kError, "A bit field reaches out of its group, into the bytes before it.",
    "A bit field that ends above its group is looked for in the bytes before the group, which belong to others."};
inline constexpr Rule kFieldOutsidePayload{
    "field-outside-payload", kError, "A field does not lie in the payload.",
    "The payload ends with its furthest attribute. A field that begins before it or wraps around lies nowhere."};
inline constexpr Rule kBitOffsetUnused{
    "bit-offset-unused", kInfo, "A bit_offset other than 0 in byte units has no meaning.",
    "In byte units only byte_offset counts. A bit_offset there may mean that the unit is wrong."};
inline constexpr Rule kGroupLastNotHighest{
    "group-last-not-highest", kError, "The last member of a bit group, which sizes it, is not its highest.",
    "How many bytes a bit group has is worked out from the last attribute of the run alone. If another one has the "
    "highest bit, the group is too short, and all its members lie elsewhere than in the device."};
inline constexpr Rule kGroupOrder{"group-order", kInfo,
                                  "The last member of a bit group is not its highest, but both need the same size.",
                                  "The last attribute of a bit group sizes it. Here another one reaches higher but "
                                  "needs as many bytes, so that nothing is wrong yet."};
inline constexpr Rule kGroupSizedByAnother{
    "group-sized-by-another", kWarning, "A bit group is sized by the group after it, whose size differs.",
    "Bools and enums of one type that follow one another are sized together, by the last of them, even if their "
    "byte_offset differs. List a number or binary between two groups, or make them equally long."};
inline constexpr Rule kGroupSizedByBytes{
    "group-sized-by-bytes", kWarning, "A bit group is sized by an enum in byte units.",
    "An enum in byte units counts as the end of a run of bit fields, and its offsets then size their group."};
inline constexpr Rule kGroupSplit{"group-split", kError, "The members of a bit group are not listed together.",
                                  "The members of a bit group get their size from the run that they stand in. If a run "
                                  "has only a part of them, that part is sized wrongly."};
inline constexpr Rule kGroupSizeDiffers{
    "group-size-differs", kError, "A bit group has one size for writing and another for reading.",
    "When writing, only writable attributes are in the list, so that runs end elsewhere than when reading. A group is "
    "then written to other bytes than it is read from."};
inline constexpr Rule kFieldsOverlap{
    "fields-overlap", kWarning, "Two fields share payload bits.",
    "Two fields share bits: writing one changes the other, and both are read from the same bits. If one group has "
    "grown into the next byte, the highest bit_offset of that group may have been meant for the next byte."};
inline constexpr Rule kLargeGap{"large-gap", kWarning, "More bytes are unused than used, all in one place.",
                                "More bytes are unused than used, all in one place. This is usually a wrong "
                                "byte_offset; every packet carries these bytes."};
inline constexpr Rule kNeighboursDisturbed{
    "neighbours-disturbed", kError,
    "Writing a field that partly fills several bytes corrupts fields that were written before.",
    "A field that partly fills several bytes is written in reversed byte order, together with the bits around it. What "
    "was written there before ends up elsewhere. List it before its neighbours, or keep it in one byte."};
inline constexpr Rule kPayloadTooLong{
    "payload-too-long", kError, "The payload is longer than 16384 bytes.",
    "A packet carries at most 16384 bytes of payload. Longer ones can be neither packed nor unpacked."};
inline constexpr Rule kFlagsTooLong{"flags-too-long", kError, "The flag bitmap is longer than 1024 bytes.",
                                    "The flag bitmap has at most 1024 bytes, which is 8192 writable attributes."};

// Numbers.
inline constexpr Rule kNarrowerThanType{"narrower-than-type", kInfo, "A number has fewer bytes than its type says.",
                                        "The number of bytes follows from 'len' alone; the data type says something "
                                        "else. One of the two is wrong if the device goes by the other."};
inline constexpr Rule kWiderThanType{"wider-than-type", kInfo, "A number has more bytes than its type says.",
                                     "The number of bytes follows from 'len' alone; the data type says something else. "
                                     "One of the two is wrong if the device goes by the other."};
inline constexpr Rule kNarrowerThanMax{
    "narrower-than-max", kError, "The bytes of a number cannot hold its max.",
    "Raw values above what the bytes hold lose their highest part without a word. Lower the max, or use more bytes."};
inline constexpr Rule kNegativeLimit{
    "negative-limit", kError, "A negative min or max refuses every value.",
    "Limits are raw values, which are never negative. For negative user values use a negative 'addition'."};
inline constexpr Rule kMaxTooLarge{
    "max-too-large", kError, "A max at or above 2^52 refuses every value.",
    "Numbers pass through a double; a max of 2^52 or more is refused together with every value."};
inline constexpr Rule kMinAboveMax{"min-above-max", kError, "A min above max refuses every value.",
                                   "No value lies between the two, so every one is refused. They may be exchanged."};
inline constexpr Rule kEmptyRange{"empty-range", kError, "A min equal to max refuses every value.",
                                  "A min equal to the max is refused by the scaling together with every value."};
inline constexpr Rule kZeroRatio{"zero-ratio", kError, "A ratio of 0 maps all raw values to the same user value.",
                                 "With a ratio of 0 all raw values mean the same number."};
inline constexpr Rule kScalingNotFinite{
    "scaling-not-finite", kError, "A ratio or addition is infinite or not a number.",
    "A ratio or addition that is infinite or not a number makes every value useless."};
inline constexpr Rule kScalingTooFine{
    "scaling-too-fine", kWarning, "A scaling is finer than the six decimals that decoding prints, or than a double.",
    "Decoded numbers have six decimals. Values that differ only beyond those come back as others, or are refused."};
inline constexpr Rule kScalingRounded{
    "scaling-rounded", kInfo, "Decoded values are rounded, to six decimals or to what a double holds.",
    "Decoded numbers have six decimals. The text is rounded, but it still encodes to the same raw value."};
inline constexpr Rule kNumberTextCut{
    "number-text-cut", kWarning, "Decoded values are cut after 31 characters.",
    "The text of a number has at most 31 characters; what is longer is cut. Choose larger units."};

// Enums.
inline constexpr Rule kEnumTooManyItems{"enum-too-many-items", kError, "An enum has more items than its bits can hold.",
                                        "An index that its bits cannot hold loses its highest bits without a word."};
inline constexpr Rule kEnumItemNotText{
    "enum-item-not-text", kError, "An item of an enum is not a string and is left out, which shifts all later items.",
    "Items that are not strings are left out without a word, and all later ones move up by one index."};
inline constexpr Rule kEnumWithoutTexts{"enum-without-texts", kError, "An enum has no item that is a string.",
                                        "An enum without a string among its items has no value at all."};
inline constexpr Rule kEnumIndexCut{"enum-index-cut", kError,
                                    "An enum has indices of ten digits, but only nine are printed.",
                                    "Indices are printed with nine digits."};
inline constexpr Rule kEnumIncomplete{
    "enum-incomplete", kInfo, "An enum's bits can hold numbers without an item, which end a decode.",
    "A decode ends at an index that has no item, and the attributes after it are missing. If the device can send such "
    "a number, list an item for it. The module's line gives the number of items as the end of the range."};
inline constexpr Rule kDuplicateItem{
    "duplicate-item", kInfo, "An enum has an item twice.",
    "Values are indices, so that equal items do no harm, but nobody can tell them apart."};
inline constexpr Rule kDigitItem{"digit-item", kWarning, "An item of digits cannot be chosen by its text.",
                                 "Where a value is given as text, decimal digits are an index. An item of digits can "
                                 "therefore not be chosen by its text; another item is taken instead, or none."};

// Alerts and faults.
inline constexpr Rule kBinaryAlert{"binary-alert", kWarning,
                                   "Whether a binary alert or fault is active depends on its base64 text.",
                                   "Whether an alert or fault is active follows from the integer that its text reads "
                                   "as. Base64 text reads as one only by chance."};
inline constexpr Rule kFractionNotActive{
    "fraction-not-active", kInfo, "An alert or fault that is a number is not active below 1.",
    "Whether an alert or fault is active follows from the integer part of its value; below 1 that is 0."};
inline constexpr Rule kAlertTooLarge{"alert-too-large", kWarning, "An alert or fault has numbers of more than 32 bits.",
                                     "The value of an active alert or fault has 32 bits. Larger numbers are cut."};

// --roundtrip
inline constexpr Rule kRoundtrip{
    "roundtrip", kError, "With --roundtrip: encoding and decoding changes a value.",
    "With --roundtrip the smallest, middle and largest value of every attribute is encoded and decoded again, alone "
    "and together with all others. What comes back is not what was sent."};

}  // namespace morvix::inspect::rules

#endif
