// Equality and texts of the module's records, of log lines and of what they are made of.

#ifndef MORVIX_TESTS_SUPPORT_RECORDS_H
#define MORVIX_TESTS_SUPPORT_RECORDS_H

#include <json/value.h>

#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInspection_v4.0.h"
#include "host/Logging.h"

namespace support {

// One text for one value, on one line but for lists.
std::string Show(bool value);
std::string Show(double value);
std::string Show(const std::string& text);         // quoted; what is not printable ASCII as \xHH
std::string Show(const std::vector<byte>& bytes);  // hexadecimal
std::string Show(const Json::Value& value);
std::string Show(const LogCapture::Line& line);
std::string Show(const TavelReceiveInfo& info);
std::string Show(const MorvixProtocolPosition_4_0& position);
std::string Show(const MorvixProtocolUIntSpec_4_0& scaling);
std::string Show(const MorvixProtocolAttribute_4_0& attribute);
std::string Show(const MorvixProtocolEntity_4_0& entity);
std::string Show(const MorvixProtocolElement_4_0& element);
std::string Show(const MorvixProtocolResult_4_0& result);
std::string Show(const MorvixProtocolPackage_4_0& package);  // with its buffers' contents

template <
    typename Number,
    std::enable_if_t<(std::is_integral_v<Number> && !std::is_same_v<Number, bool>) || std::is_enum_v<Number>, int> = 0>
std::string Show(Number value) {
  if constexpr (std::is_enum_v<Number>) {
    return std::to_string(static_cast<std::underlying_type_t<Number>>(value));
  } else {
    return std::to_string(value);
  }
}

template <typename Value>
std::string Show(const std::vector<Value>& values) {
  std::string text = std::to_string(values.size()) + " of them";
  for (const Value& value : values) text += "\n    " + Show(value);
  return text;
}

// Bit by bit: a NaN equals itself, 0 and -0 differ.
bool IsSameNumber(double left, double right);

template <typename Record, typename... Records>
constexpr bool kIsOneOf = (std::is_same_v<Record, Records> || ...);

template <typename Record>
constexpr bool kIsRecord = kIsOneOf<Record, LogCapture::Line, TavelReceiveInfo, MorvixProtocolPosition_4_0,
                                    MorvixProtocolUIntSpec_4_0, MorvixProtocolAttribute_4_0, MorvixProtocolEntity_4_0,
                                    MorvixProtocolElement_4_0, MorvixProtocolResult_4_0>;

}  // namespace support

// Equal in every field; reals as IsSameNumber tells.
bool operator==(const LogCapture::Line& left, const LogCapture::Line& right);
bool operator==(const TavelReceiveInfo& left, const TavelReceiveInfo& right);
bool operator==(const MorvixProtocolPosition_4_0& left, const MorvixProtocolPosition_4_0& right);
bool operator==(const MorvixProtocolUIntSpec_4_0& left, const MorvixProtocolUIntSpec_4_0& right);
bool operator==(const MorvixProtocolAttribute_4_0& left, const MorvixProtocolAttribute_4_0& right);
bool operator==(const MorvixProtocolEntity_4_0& left, const MorvixProtocolEntity_4_0& right);
bool operator==(const MorvixProtocolElement_4_0& left, const MorvixProtocolElement_4_0& right);
bool operator==(const MorvixProtocolResult_4_0& left, const MorvixProtocolResult_4_0& right);

// For the messages of failed tests.
template <typename Record, std::enable_if_t<support::kIsRecord<Record>, int> = 0>
std::ostream& operator<<(std::ostream& stream, const Record& record) {
  return stream << support::Show(record);
}

#endif
