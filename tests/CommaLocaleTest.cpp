// Number text where the C library prints no decimal point. Run by comma_locale_test.sh, which makes such locales.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>

#include <clocale>

#include "TestSupport.h"

namespace {

// What a packet with 2.5, an alert and a fault gives by a plan or without one. The lists are checked here: keys of
// alerts and faults come before that of the number.
std::string Received(bool hasPlan) {
  const Json::Value entity = ParseJson(R"({"id": 0, "name": "main", "display_name": "Main", "attrs": [
    {"id": 0, "name": "level", "display_name": "Level", "desc": "", "type": "status_writable", "data_type": "uint8",
     "uint_spec": {"min": 0, "max": 255, "ratio": 0.5, "addition": 0},
     "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 1}},
    {"id": 1, "name": "hot", "display_name": "Hot", "desc": "", "type": "alert", "data_type": "bool",
     "position": {"byte_offset": 1, "bit_offset": 0, "unit": "bit", "len": 1}},
    {"id": 2, "name": "broken", "display_name": "Broken", "desc": "", "type": "fault", "data_type": "bool",
     "position": {"byte_offset": 1, "bit_offset": 1, "unit": "bit", "len": 1}}]})");
  std::vector<MorvixProtocolAttribute_4_0> attributes;
  MorvixProtocolEntity_4_0 info;
  EXPECT_TRUE(ProtocolParseEntity_4_0(entity, 15, attributes, info));
  const MorvixProtocolReceivePlan_4_0 plan = ProtocolPlanReceive_4_0(info, attributes);
  const byte packet[] = {4, 5, 3};
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  EXPECT_TRUE(hasPlan ? ProtocolReceivePacket_4_0(plan, packet, sizeof packet, document, alerts, faults)
                      : ProtocolReceivePacket_4_0(info, attributes, packet, sizeof packet, document, alerts, faults));
  EXPECT_EQ(alerts, (std::vector<TavelReceiveInfo>{{"Hot", 1}}));
  EXPECT_EQ(faults, (std::vector<TavelReceiveInfo>{{"Broken", 1}}));
  return document;
}

}  // namespace

TEST(CommaLocale, KeepsTheZerosAfterItsComma) {
  ASSERT_NE(std::setlocale(LC_NUMERIC, "de_DE.UTF-8"), nullptr) << "to be run by comma_locale_test.sh";
  ValueText text;
  EXPECT_EQ(NumberText(12.5, text), "12,500000");
  EXPECT_EQ(NumberText(80, text), "80,000000");
  EXPECT_EQ(NumberText(0, text), "0,000000");
  for (const bool hasPlan : {false, true}) {
    EXPECT_EQ(Received(hasPlan), "{\"main\":{\"level\":\"2,500000\"},\"version\":4.0}\n");
  }
}

// The Pashto decimal point has two bytes, which JSON escapes.
TEST(CommaLocale, MayHaveAPointThatIsNotAscii) {
  ASSERT_NE(std::setlocale(LC_NUMERIC, "ps_AF.UTF-8"), nullptr) << "to be run by comma_locale_test.sh";
  ValueText text;
  EXPECT_EQ(NumberText(12.5, text), "12\u066b500000");
  for (const bool hasPlan : {false, true}) {
    EXPECT_EQ(Received(hasPlan), "{\"main\":{\"level\":\"2\\u066b500000\"},\"version\":4.0}\n");
  }
}
