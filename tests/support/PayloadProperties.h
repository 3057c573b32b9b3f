// What holds for a payload that was encoded, by the layout alone: where each field lies, what else a write changes, and
// what reading gives.

#ifndef MORVIX_TESTS_SUPPORT_PAYLOAD_PROPERTIES_H
#define MORVIX_TESTS_SUPPORT_PAYLOAD_PROPERTIES_H

#include <json/value.h>

#include "Properties.h"

namespace support {

// `encoded` is what `values` gave, whether it went to its end or not. An attribute counts as written when its flag bit
// is set.
//  - Bits that no write touches are 0. A write touches the bits of its field; one that fills several bytes only partly
//    touches all bits of those bytes.
//  - A written attribute lies where ProtocolLocateAttribute_4_0 finds it. When no later write touches it, it is read
//    back:
//      - a bool as it was given, unless its bit_offset is negative, in which case there may be no bit for it;
//      - an enum as the low bits of its index that the field holds, up to nine digits of it;
//      - a binary as the bytes that its text stands for, as many as the field has;
//      - a number within half a ratio, if the field holds its maximum and its text is not cut off. Its text is the one
//        of its raw value, and is encoded like the number, if half a ratio is well above what six decimals and the
//        doubles lose, and the raw value is neither 0 nor the greatest of all, from where rounding may leave the range.
//  - Encoding one attribute (that of index `choice`, modulo their number) more changes its field, and around it the
//    bits of its bytes as CheckOneWrite has it.
void CheckPayload(const Entity& info, const Attributes& attributes, const Json::Value& values,
                  const model::Encoded& encoded, size_t choice);

// What was written is read back from the whole payload as it is alone, as long as decoding goes to its end, sees the
// attribute with the same record, and no later attribute takes its key.
void CheckDecodedTogether(const model::Parsed& writable, const model::Parsed& all, const Bytes& payload);

}  // namespace support

#endif
