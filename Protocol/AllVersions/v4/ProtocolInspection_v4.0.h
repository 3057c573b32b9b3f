/// @file
/// Details for tools and hosts: which elements of a configuration the parser kept, where an attribute lies, what
/// encoding and decoding did with each attribute. The answers come from the code that parses, encodes and decodes, and
/// the log lines are the same.
///
/// Implemented in the module's source unit. Failures, threads and JSON kinds are as in ProtocolInternal_v4.0.h.

#ifndef MORVIX_PROTOCOL_INSPECTION_V4_0_H
#define MORVIX_PROTOCOL_INSPECTION_V4_0_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ProtocolInternal_v4.0.h"

/// What the parser did with one element of an entity's "attrs".
struct MorvixProtocolElement_4_0 {
  size_t attribute = SIZE_MAX;  ///< Its index in the attribute list; SIZE_MAX when it is not there.
  std::string invalid;  ///< The member that the parser's line names; empty when the element was kept or is of another
                        ///< group.
  MorvixProtocolType_4_0 type = MorvixProtocolTypeUnknown_4_0;  ///< Its "type", also when the element was skipped.
  MorvixProtocolDataType_4_0 data_type = MorvixProtocolDataTypeUnknown_4_0;  ///< Its "data_type", likewise.
};

/// ProtocolParseEntity_4_0 that also appends to `elements` one report for each element of "attrs", in order: none when
/// the entity is unusable; when the parser throws, those of the earlier elements.
[[nodiscard]] bool ProtocolParseEntity_4_0(const Json::Value& entity, int matchTypes,
                                           std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                           MorvixProtocolEntity_4_0& entityInfo,
                                           std::vector<MorvixProtocolElement_4_0>& elements);

/// The number of bytes from the beginning of a payload to the end of the last of these attributes; this much memory is
/// allocated when they are encoded. 0 when there are no attributes or none ends after byte 0; up to 4 GiB for malicious
/// positions. Allocates nothing itself.
size_t ProtocolPayloadBytes_4_0(const std::vector<MorvixProtocolAttribute_4_0>& attributes);

/// Where the codec reads and writes the attribute in a payload of `payloadBytes` bytes: `bitCount` bits from `firstBit`
/// on. Bit 0 is the most significant bit of byte 0, and `firstBit` is the value's highest bit.
///
/// @return false, with the outputs untouched, when the attribute does not fit such a payload or begins beyond bit
/// SIZE_MAX (on 32-bit machines, 512 MiB into the payload), or when its data type cannot be both written and read
/// there: a bool that is not one bit, a binary in bits, a number or enum of more than 8 bytes, a bit field that does
/// not fit a 64-bit word with the bits below it in its last byte or has a negative bit_offset.
[[nodiscard]] bool ProtocolLocateAttribute_4_0(const MorvixProtocolAttribute_4_0& attribute, size_t payloadBytes,
                                               size_t& firstBit, size_t& bitCount);

/// What encoding or decoding did with one attribute. A number that its scaling refuses ends an encode, and is left out
/// of a decode. An unreadable attribute ends a decode if it is a bool, a binary or of unknown data type, and is left
/// out otherwise.
enum MorvixProtocolOutcome_4_0 : uint32_t {
  MorvixProtocolOutcomeNotReached_4_0 = 0,        ///< The call ended before it.
  MorvixProtocolOutcomeDone_4_0 = 1,              ///< Written, or decoded into the document.
  MorvixProtocolOutcomeAbsent_4_0 = 2,            ///< Encoding: the document has no value for it.
  MorvixProtocolOutcomeWrongKind_4_0 = 3,         ///< Encoding: its value is null, of a kind that it does not
                                                  ///< take, or a string without a number.
  MorvixProtocolOutcomeRefusedByScaling_4_0 = 4,  ///< A number out of range or off its grid, or an unusable scaling.
  MorvixProtocolOutcomeRefusedByItems_4_0 = 5,    ///< An enum's index without an item. Ends the call.
  MorvixProtocolOutcomeRefusedByPlace_4_0 = 6,  ///< Encoding: no place for it, or an unknown data type. Ends the call.
  MorvixProtocolOutcomeUnreadable_4_0 = 7,      ///< Decoding: not in the payload, in a place from which its data
                                                ///< type is never read, or of unknown data type.
};

/// The outcome of one attribute, and its raw value.
struct MorvixProtocolResult_4_0 {
  MorvixProtocolOutcome_4_0 outcome = MorvixProtocolOutcomeNotReached_4_0;  ///< What was done with it.
  uint64_t raw = 0;  ///< A bool's bit, an enum's index, a number before scaling, even if refused later. Else 0.
};

/// ProtocolEncodeAttributes_4_0 that also sets `results` to one result per attribute. All are "not reached" when the
/// package stays untouched. Attributes written before a refusal are "done", although such a package is not to be sent.
void ProtocolEncodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  MorvixProtocolPackage_4_0& package, const Json::Value& root,
                                  std::vector<MorvixProtocolResult_4_0>& results);

/// ProtocolDecodeAttributes_4_0 that also sets `results` to one result per attribute. All are "not reached" when there
/// is no payload. Where decoding fails and removes the entity from the document, the attributes before the failure stay
/// "done".
void ProtocolDecodeAttributes_4_0(const MorvixProtocolEntity_4_0& entityInfo,
                                  const std::vector<MorvixProtocolAttribute_4_0>& attributes,
                                  const MorvixProtocolPackage_4_0& package, Json::Value& decodeResult,
                                  std::vector<MorvixProtocolResult_4_0>& results);

/// The string that decoding gives for a raw value of a number. False, with `text` untouched, when its scaling
/// refuses the raw value or the attribute is not a number. The width of its field is ignored.
[[nodiscard]] bool ProtocolRawToText_4_0(const MorvixProtocolAttribute_4_0& attribute, uint64_t raw, std::string& text);

/// The raw value that encoding gives for a value of a number in user units. False, with `raw` untouched, when its
/// scaling refuses the value or the attribute is not a number. The width of its field is ignored.
[[nodiscard]] bool ProtocolValueToRaw_4_0(const MorvixProtocolAttribute_4_0& attribute, double value, uint64_t& raw);

#endif
