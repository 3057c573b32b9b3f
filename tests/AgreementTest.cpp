// The module against the model, on made-up configurations, values, payloads, packets and receive documents. A
// difference is told with the seed and number of its case, from which alone the case is made.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "Cases.h"
#include "Properties.h"
#include "TestSupport.h"

namespace {

using support::Bytes;
using support::ForEachCase;
using support::Maker;
using support::Product;
using support::Sightings;
using support::Source;

// What encoding or decoding did with attributes.
void AddOutcomes(const std::vector<model::Result>& results, Sightings& outcomes) {
  static const char* const kNames[] = {"not reached", "done",     "absent", "wrong kind",
                                       "scaling",     "no items", "place",  "unreadable"};
  for (const model::Result& result : results) outcomes.Add(kNames[result.outcome]);
}

// Longer payloads are not encoded here: that would take long, and the rules are the same.
bool IsComparable(const support::Attributes& attributes) {
  return model::PayloadLength(attributes) <= support::kMaxComparedBytes;
}

TEST(Readers, AgreeWithTheModel) {
  static const char* const kKinds[] = {"null", "bool", "signed", "unsigned", "real", "text", "array", "object"};
  Sightings kinds({std::begin(kKinds), std::end(kKinds)});
  ForEachCase(2026040620, 100000, [&](Source& source) {
    Maker maker(source);
    std::string key(1 + source.Index(14), 'k');
    for (char& letter : key) letter = static_cast<char>('a' + source.Index(26));
    Json::Value object;
    object[maker.Misspelt(key)] = maker.MakeAnything();
    object[maker.Misspelt(key)] = maker.MakeAnything();
    if (!source.OneIn(8)) object[key] = maker.MakeAnything();
    if (source.OneIn(10)) key += std::string("\0x", 2);
    if (source.OneIn(10)) object[key] = maker.MakeAnything();
    if (source.OneIn(30)) object = maker.MakeAnything();
    kinds.Add(kKinds[static_cast<size_t>(model::KindOf(support::MemberOf(object, key.c_str())))]);
    support::CheckReaders(object, key);
  });
}

TEST(ParseEntity, AgreesWithTheModel) {
  Sightings sights({"unusable",
                    "usable",
                    "thrown",
                    "Filter entity",
                    "Warning: Invalid entity.",
                    "Warning: Can't find 'id' key.",
                    "Warning: Can't find 'name' key.",
                    "Warning: Can't find 'display_name' key.",
                    "Warning: Can't find 'attrs' key.",
                    "Warning: 'attr' is invalid, skip.",
                    "Warning: 'id' is invalid, skip.",
                    "Warning: 'name' is invalid, skip.",
                    "Warning: 'display_name' is invalid, skip.",
                    "Warning: 'desc' is invalid, skip.",
                    "Warning: 'type' is invalid, skip.",
                    "Warning: 'data_type' is invalid, skip.",
                    "Warning: 'position' is invalid, skip.",
                    "Warning: 'uint_spec' is invalid, skip.",
                    "Warning: 'enum' is invalid, skip.",
                    "Warning: 'byte_offset' is invalid, skip.",
                    "Warning: 'bit_offset' is invalid, skip.",
                    "Warning: 'unit' is invalid, skip.",
                    "Warning: 'len' is invalid, skip.",
                    "Warning: 'position.unit' is invalid, skip.",
                    "Warning: 'min' is invalid, skip.",
                    "Warning: 'max' is invalid, skip.",
                    "Warning: 'ratio' is invalid, skip.",
                    "Warning: 'addition' is invalid, skip."});
  ForEachCase(2026040623, 12000, [&](Source& source) {
    const Json::Value entity = Maker(source).MakeEntity();
    const model::Parsed parsed = support::CheckParse(entity, source.Pick({1, 15, 15, 6, 0, -1}));
    sights.Add(parsed.hasThrown ? "thrown" : parsed.usable ? "usable" : "unusable");
    sights.Add(parsed.lines);
  });
}

TEST(EncodeAttributes, AgreesWithTheModel) {
  Sightings outcomes({"not reached", "done", "absent", "wrong kind", "scaling", "no items", "place"});
  Sightings sights({"no buffers", "buffers without contents", "whole packages", "No data will encode.",
                    "Write bool value failed.", "Invalid enum value", "Write enum value failed.",
                    "Write binary value failed.", "Validate uint value failed.", "Write uint value failed.",
                    "Attribute type is unknown, skip."});
  ForEachCase(2026040624, 40000, [&](Source& source) {
    Maker maker(source);
    const Product product = maker.MakeRecords();
    if (!IsComparable(product.attributes)) return;
    const Json::Value values = maker.MakeValues(product);
    const model::Encoded encoded =
        support::CheckEncodeRecords(product.entity, product.attributes, values, source.Byte());
    AddOutcomes(encoded.results, outcomes);
    sights.Add(!encoded.hasBuffers      ? "no buffers"
               : encoded.sizeValue == 0 ? "buffers without contents"
                                        : "whole packages");
    sights.Add(encoded.lines);
  });
}

TEST(DecodeAttributes, AgreesWithTheModel) {
  Sightings outcomes({"not reached", "done", "scaling", "no items", "unreadable"});
  Sightings lines({"No data to decode.", "Invalid enum value", "Unknown attribute type.", "Decode value is invalid."});
  ForEachCase(2026040625, 30000, [&](Source& source) {
    Maker maker(source);
    const Product product = maker.MakeRecords();
    const Bytes payload = maker.MakePayload(product);
    const model::Decoded decoded =
        support::CheckDecodeRecords(product.entity, product.attributes, payload, maker.MakeDocument(product));
    AddOutcomes(decoded.results, outcomes);
    lines.Add(decoded.lines);
  });
}

TEST(RawToTextAndValueToRaw, AgreeWithTheModel) {
  Sightings sights({"text", "no text", "raw value", "no raw value"});
  ForEachCase(2026040633, 50000, [&](Source& source) {
    Maker maker(source);
    const support::Scaling scaling = maker.MakeScaling();
    support::Attribute attribute;
    attribute.data_type = MorvixProtocolDataType_4_0(source.OneIn(10) ? source.Below(10) : 4 + source.Below(4));
    attribute.uint_spec = {static_cast<int64_t>(scaling.min), static_cast<int64_t>(scaling.max),
                           static_cast<int32_t>(scaling.step), scaling.ratio, scaling.addition};
    const uint64_t raw = maker.MakeRaw(scaling);
    const auto [hasText, hasRaw] = support::CheckScaling(attribute, raw, maker.MakeUser(scaling));
    sights.Add(hasText ? "text" : "no text");
    sights.Add(hasRaw ? "raw value" : "no raw value");
  });
}

// One call, and parsing followed by encoding or decoding; what was written is read back, alone and together; packing,
// and receiving what was encoded.
TEST(Entity, AgreesWithTheModelInEveryWay) {
  Sightings sights({"unusable", "thrown", "neither"});
  ForEachCase(2026040626, 8000, [&](Source& source) {
    Maker maker(source);
    const Json::Value entity = maker.MakeEntity();
    const model::Parsed writable = support::CheckParse(entity, support::kWritableGroup);
    const model::Parsed all = support::CheckParse(entity, support::kEveryGroup);
    sights.Add(all.hasThrown ? "thrown" : all.usable ? "neither" : "unusable");
    if (!IsComparable(writable.attributes)) return;
    const Json::Value values = maker.MakeValues({writable.entity, writable.attributes});
    const Bytes payload = maker.MakePayload({all.entity, all.attributes});
    support::CheckEntity(entity, writable, all, values, payload, source.Byte());
    support::CheckDecode(entity, all, payload, maker.MakeDocument({all.entity, all.attributes}));
  });
}

TEST(PackPackage, AgreesWithTheModel) {
  Sightings sights({"refused", "packed", "Invalid command 0", "Invalid command 3", "Invalid command 4",
                    "Invalid command 5", "Invalid command 6", "Invalid command 9", "Invalid command 10",
                    "Invalid command 14", "Invalid command 15", "Invalid command 16", "Invalid command 17",
                    "Invalid command -1", "Invalid command -2"});
  ForEachCase(2026040628, 50000, [&](Source& source) {
    Bytes flags;
    Bytes value;
    const support::Package package = Maker(source).MakePackage(flags, value);
    support::Lines lines;
    const size_t size = support::CheckPack(package, source.OneIn(3) ? source.Index(16) : 17500, &lines);
    sights.Add(size == 0 ? "refused" : "packed");
    sights.Add(lines);
  });
}

TEST(UnpackPackage, AgreesWithTheModel) {
  Sightings sights({"too short", "wrong command", "too long", "unpacked"});
  ForEachCase(2026040629, 20000, [&](Source& source) {
    Bytes packet = source.Bytes(source.OneIn(200) ? 16383 + source.Index(4) : source.Index(9));
    if (!packet.empty() && source.Flip()) packet[0] = source.Pick<byte>({3, 4});
    const model::Unpacked unpacked = support::CheckUnpack(packet);
    sights.Add(!unpacked.isCleared       ? "too short"
               : unpacked.isAccepted     ? "unpacked"
               : unpacked.sizeValue == 0 ? "wrong command"
                                         : "too long");
  });
}

TEST(ConvertReceiveResult, AgreesWithTheModel) {
  Sightings sights({"refused", "without lists", "with alerts", "with faults"});
  ForEachCase(2026040630, 20000, [&](Source& source) {
    const model::Converted converted = support::CheckConvert(Maker(source).MakeReceiveDocument());
    sights.Add(converted.text.empty()      ? "refused"
               : !converted.faults.empty() ? "with faults"
               : !converted.alerts.empty() ? "with alerts"
                                           : "without lists");
  });
}

TEST(GetAlertsOrFaults, AgreesWithTheModel) {
  ForEachCase(2026040631, 40000, [](Source& source) { support::CheckActive(Maker(source).MakeAlerts()); });
}

// The number of packets; the long form of the suite asks for more.
size_t PacketCount() {
  const char* text = std::getenv("MORVIX_RECEIVE_PACKETS");
  return text == nullptr ? 20000 : std::strtoul(text, nullptr, 10);
}

TEST(ReceivePacket, AgreesWithTheModelAndTheLongWay) {
  constexpr size_t kPacketsPerProduct = 5;
  Sightings sights({"refused", "without an entity", "without members", "a string after another",
                    "a name that is escaped", "an active alert", "an active fault", "Invalid enum value",
                    "Unknown attribute type.", "Decode value is invalid."});
  ASSERT_GE(PacketCount(), kPacketsPerProduct) << "MORVIX_RECEIVE_PACKETS is to be a number";
  ForEachCase(2026040632, PacketCount() / kPacketsPerProduct, [&](Source& source) {
    Maker maker(source);
    Product product = maker.MakeRecords();
    if (source.Flip()) {
      // Alerts that can be active: numbers and indices.
      for (support::Attribute& attribute : product.attributes) {
        attribute.type = source.Pick({MorvixProtocolTypeAlert_4_0, MorvixProtocolTypeFault_4_0});
      }
    }
    for (size_t packet = 0; packet < kPacketsPerProduct; ++packet) {
      const model::Received received =
          support::CheckReceive(product.entity, product.attributes, maker.MakePacket(product));
      const auto has = [&](const char* text) { return received.document.find(text) != std::string::npos; };
      sights.AddIf(!received.isAccepted, "refused");
      sights.AddIf(received.document == "{\"version\":4.0}\n", "without an entity");
      sights.AddIf(has(":{}"), "without members");
      sights.AddIf(has("\",\""), "a string after another");
      sights.AddIf(has("\\u00"), "a name that is escaped");
      sights.AddIf(!received.alerts.empty(), "an active alert");
      sights.AddIf(!received.faults.empty(), "an active fault");
      sights.Add(received.lines);
    }
  });
}

}  // namespace
