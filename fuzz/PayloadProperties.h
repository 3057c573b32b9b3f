// What holds for a payload that was encoded, by the layout alone: where each field lies, what else a write changes, and
// what reading gives.

#ifndef MORVIX_FUZZ_PAYLOAD_PROPERTIES_H
#define MORVIX_FUZZ_PAYLOAD_PROPERTIES_H

#include <json/value.h>

#include "Properties.h"

namespace fuzz {

// Longer payloads are encoded, but not looked at.
constexpr uint64_t kMaxComparedBytes = uint64_t{1} << 18;

// Runs the module's encoder on records.
Encoding EncodeRecords(const Entity& info, const Attributes& attributes, const Json::Value& values);

// What the module decodes from a payload for one attribute alone; null for nothing.
Json::Value DecodeAlone(const Attribute& attribute, const Bytes& payload);

// `encoding` is what `values` gave, whether it went to its end or not. An attribute counts as written when its flag bit
// is set.
//  - Bits that no write touches are 0. A write touches the bits of its field; one that fills several bytes only partly
//    touches all bits of those bytes.
//  - A written attribute that no later write touches is read back:
//      - a bool as it was given, unless its bit_offset is negative, in which case there may be no bit for it;
//      - an enum as the low bits of its index that the field has;
//      - a binary as the bytes of its base64 text, as many as the field has; text for fewer leaves the rest alone;
//      - a number within half a ratio of what was given, and the printed half of the sixth decimal, as long as the
//      field
//        holds `max`, everything in it is finite, the ratio is not 0 and the text is not cut at 31 characters. Encoding
//        the text then gives the same bytes, if the ratio is above what those decimals and the doubles lose, and the
//        raw value is neither 0 nor the greatest of all, from where rounding may leave the range.
//  - Encoding one attribute (that of index `choice`, modulo their number) more changes its field, and around it the
//  bits
//    of its bytes as CheckOneWrite has it.
void CheckPayload(const Entity& info, const Attributes& attributes, const Json::Value& values, const Encoding& encoding,
                  size_t choice);

}  // namespace fuzz

#endif
