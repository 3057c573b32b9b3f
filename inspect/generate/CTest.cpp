// The test program of the device's code: the vectors of the entity, and what is made of them by hand.

#include <fmt/format.h>

#include <algorithm>

#include "inspect/generate/DeviceCode.h"
#include "inspect/packets/Packet.h"
#include "inspect/text/CSource.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

constexpr size_t kIndent = 4;

std::string Wrapped(const std::vector<std::string>& texts) {
  return WrappedList(texts, ", ", kIndent + 2, kIndent + 2);
}

std::string BytesText(const Bytes& bytes) {
  std::vector<std::string> texts;
  for (const byte& value : bytes) texts.push_back(CBytes(&value, 1));
  return "{" + Wrapped(texts) + "}";
}

// The value among these; null when the attribute has none.
const VectorValue* Of(const std::vector<VectorValue>& values, const Field& field) {
  const auto found = std::find_if(values.begin(), values.end(),
                                  [&](const VectorValue& value) { return value.field->element == field.element; });
  return found == values.end() ? nullptr : &*found;
}

// The initializer of one member.
std::string MemberText(const CAttribute& attribute, const VectorValue* value) {
  const Attribute& record = attribute.Record();
  if (IsBinary(record)) return value == nullptr ? "{0}" : BytesText(value->bytes);
  const uint64_t raw = value == nullptr ? 0 : value->raw;
  if (IsBool(record)) return raw != 0 ? "true" : "false";
  return RawConstant(raw);
}

// "5: power = true, target = 62.5", without the values that are those of `base` as well.
std::string ValuesComment(size_t index, const std::vector<VectorValue>& values, const std::vector<VectorValue>& base) {
  constexpr size_t kColumns = 90;
  std::string text = fmt::format("{}: ", index);
  for (const VectorValue& value : values) {
    const VectorValue* known = Of(base, *value.field);
    if (known != nullptr && known->value == value.value) continue;
    text += Escaped(value.field->attribute->name) + " = " + value.value + ", ";
  }
  text.erase(text.find_last_not_of(", ") + 1);
  return "    /* " + CCommentText(Shortened(text, kColumns)) + " */\n";
}

// "{{packet}, {members}}," of one vector.
std::string RowText(size_t index, const std::vector<VectorValue>& values, const std::vector<VectorValue>& base,
                    const Bytes& packet, const std::vector<std::string>& members) {
  return ValuesComment(index, values, base) +
         fmt::format("    {{{},\n     {{{}}}}},\n", BytesText(packet), Wrapped(members));
}

std::string WritesText(const CNames& names, const Vectors& vectors) {
  std::string text = fmt::format(
      "\nstatic const struct write_vector {{\n  uint8_t packet[WRITE_PACKET_BYTES];\n  {}_write expected;\n"
      "}} writes[] PROGMEM = {{\n",
      names.prefix);
  for (size_t i = 0; i < vectors.writes.size(); ++i) {
    const WriteVector& write = vectors.writes[i];
    std::vector<std::string> members;
    for (const CAttribute& attribute : names.attributes) {
      if (attribute.written == nullptr) continue;
      const VectorValue* value = Of(write.values, *attribute.written);
      members.emplace_back(value == nullptr ? "false" : "true");
      members.push_back(MemberText(attribute, value));
    }
    text += RowText(i, write.values, {}, write.packet, members);
  }
  return text + "};\n";
}

std::string NotificationsText(const CNames& names, const Vectors& vectors) {
  std::string text = fmt::format(
      "\nstatic const struct notification_vector {{\n  uint8_t packet[1 + {}_PAYLOAD_BYTES];\n  {}_state state;\n"
      "}} notifications[] PROGMEM = {{\n",
      names.constants, names.prefix);
  for (size_t i = 0; i < vectors.notifications.size(); ++i) {
    const NotificationVector& notification = vectors.notifications[i];
    std::vector<std::string> members;
    for (const CAttribute& attribute : names.attributes) {
      members.push_back(MemberText(attribute, Of(notification.values, *attribute.read)));
    }
    // The first one has the lowest values, which need not be repeated.
    const std::vector<VectorValue> base = i == 0 ? std::vector<VectorValue>() : vectors.notifications[0].values;
    text += RowText(i, notification.values, base, notification.packet, members);
  }
  return text + "};\n";
}

// Packets with one value out of range.
std::string RefusedText(const EntityModel& entity, const CNames& names, size_t& count) {
  const Direction& writing = entity.Writing();
  std::string rows;
  for (const CAttribute& attribute : names.attributes) {
    if (attribute.written == nullptr || IsBool(attribute.Record()) || IsBinary(attribute.Record())) continue;
    const BitRange& bits = attribute.written->bits;
    const RawRange range = RawRangeOf(attribute.Record());
    std::vector<uint64_t> raws;
    if (range.min > 0) raws.push_back(range.min - 1);
    if (range.max < bits.MaxValue()) raws.insert(raws.end(), {range.max + 1, bits.MaxValue()});
    for (uint64_t raw : raws) {
      Bytes packet(1 + FlagBytes(writing) + writing.payloadBytes);
      packet[0] = MorvixProtocolCommandWriteReq_4_0;
      const auto set = [&packet](uint64_t bit) {
        packet[static_cast<size_t>(bit / 8)] |= static_cast<byte>(0x80 >> bit % 8);
      };
      set(8 + FlagBit(writing, attribute.written->flag));
      rows += fmt::format("    /* {}: {} = {} */\n", count++, CCommentText(attribute.Record().name), raw);
      for (uint64_t bit = bits.end; bit-- > bits.begin; raw >>= 1) {
        if ((raw & 1) != 0) set(8 + 8 * FlagBytes(writing) + bit);
      }
      rows += "    " + BytesText(packet) + ",\n";
    }
  }
  if (rows.empty()) return "";
  return "\nstatic const uint8_t refused[][WRITE_PACKET_BYTES] PROGMEM = {\n" + rows + "};\n";
}

// The name of the first member that differs, or null.
std::string DifferenceText(const CNames& names) {
  std::string text = fmt::format(
      "\n/* The first member that differs, or null. */\n"
      "static const char* difference(const {0}_write* one, const {0}_write* other) {{\n",
      names.prefix);
  for (const CAttribute& attribute : names.attributes) {
    if (attribute.written == nullptr) continue;
    const std::string& member = attribute.member;
    text += fmt::format("  if (one->has_{0} != other->has_{0}) return \"has_{0}\";\n", member);
    text += IsBinary(attribute.Record())
                ? fmt::format("  if (memcmp(one->{0}, other->{0}, sizeof one->{0}) != 0) return \"{0}\";\n", member)
                : fmt::format("  if (one->{0} != other->{0}) return \"{0}\";\n", member);
  }
  return text + "  return NULL;\n}\n";
}

const char kIncludes[] = R"(
#include "{0}.h"

#include <stdio.h>
#include <string.h>

#ifdef __AVR__ /* there constants take up RAM unless they are kept in flash */
#include <avr/pgmspace.h>
#else
#define PROGMEM
#define memcpy_P memcpy
#endif

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))
)";

const char kFail[] = R"(
/* Prints where a vector differs. */
static int fail(const char* list, size_t index, const char* what) {
  printf("%s[%u]: %s\n", list, (unsigned)index, what);
  return 1;
}
)";

const char kTestWrites[] = R"(
/* The packet as it is, with a sub-device id, and cut short. */
static int test_writes(void) {{
  struct write_vector vector;
  {0}_write write;
  uint8_t addressed[WRITE_PACKET_BYTES + 4];
  size_t i;
  for (i = 0; i < COUNT(writes); ++i) {{
    const char* differs;
    int32_t sub_device = 0;
    memcpy_P(&vector, &writes[i], sizeof vector);
    if (!{0}_read_write(vector.packet, WRITE_PACKET_BYTES, &write)) return fail("writes", i, "refused");
    differs = difference(&write, &vector.expected);
    if (differs != NULL) return fail("writes", i, differs);
    if ({0}_read_sub_device(vector.packet, WRITE_PACKET_BYTES, &sub_device)) return fail("writes", i, "no id");

    memcpy(addressed + 1, "\x04\x03\x02\x01", 4);
    memcpy(addressed + 5, vector.packet + 1, WRITE_PACKET_BYTES - 1);
    addressed[0] = 7;
    if (!{0}_read_write(addressed, sizeof addressed, &write)) return fail("writes", i, "refused with an id");
    differs = difference(&write, &vector.expected);
    if (differs != NULL) return fail("writes", i, differs);
    if (!{0}_read_sub_device(addressed, sizeof addressed, &sub_device) || sub_device != 0x01020304) {{
      return fail("writes", i, "sub-device id");
    }}

    if ({0}_read_write(vector.packet, WRITE_PACKET_BYTES - 1, &write)) return fail("writes", i, "read cut short");
    memset(&vector.expected, 0, sizeof vector.expected);
    if (difference(&write, &vector.expected) != NULL) return fail("writes", i, "not cleared");
  }}
  return 0;
}}
)";

const char kTestRefused[] = R"(
static int test_refused(void) {{
  uint8_t packet[WRITE_PACKET_BYTES];
  {0}_write write;
  size_t i;
  for (i = 0; i < COUNT(refused); ++i) {{
    memcpy_P(packet, refused[i], sizeof packet);
    if ({0}_read_write(packet, sizeof packet, &write)) return fail("refused", i, "read");
  }}
  return 0;
}}
)";

const char kTestNotifications[] = R"(
/* The state as notification and as read response, and without room. */
static int test_notifications(void) {{
  struct notification_vector vector;
  uint8_t packet[1 + {1}_PAYLOAD_BYTES];
  size_t i;
  for (i = 0; i < COUNT(notifications); ++i) {{
    memcpy_P(&vector, &notifications[i], sizeof vector);
    if ({0}_make_notification(&vector.state, packet, sizeof packet - 1) != 0) {{
      return fail("notifications", i, "made without room");
    }}
    if ({0}_make_notification(&vector.state, packet, sizeof packet) != sizeof packet ||
        memcmp(packet, vector.packet, sizeof packet) != 0) {{
      return fail("notifications", i, "notification");
    }}
    vector.packet[0] = 3;
    if ({0}_make_read_response(&vector.state, packet, sizeof packet) != sizeof packet ||
        memcmp(packet, vector.packet, sizeof packet) != 0) {{
      return fail("notifications", i, "read response");
    }}
  }}
  return 0;
}}
)";

}  // namespace

std::string TestText(const EntityModel& entity, const CNames& names, const Vectors& vectors,
                     const std::string& sha256) {
  std::string text =
      FirstLine(sha256) +
      "/* Runs the vectors of the configuration. Returns 0; or prints the first difference and returns 1. */\n" +
      fmt::format(kIncludes, names.prefix);
  const bool isWritable = !vectors.writes.empty();
  size_t refused = 0;
  std::string refusedRows;
  if (isWritable) {
    text += fmt::format("#define WRITE_PACKET_BYTES (1 + {0}_FLAG_BYTES + {0}_WRITE_BYTES)\n", names.constants);
    text += WritesText(names, vectors);
    refusedRows = RefusedText(entity, names, refused);
    text += refusedRows;
  }
  text += NotificationsText(names, vectors);
  if (isWritable) text += DifferenceText(names);
  text += kFail;
  std::string calls = "test_notifications() != 0";
  if (!refusedRows.empty()) {
    text += fmt::format(kTestRefused, names.prefix);
    calls = "test_refused() != 0 || " + calls;
  }
  if (isWritable) {
    text += fmt::format(kTestWrites, names.prefix);
    calls = "test_writes() != 0 || " + calls;
  }
  text += fmt::format(kTestNotifications, names.prefix, names.constants);
  return text + fmt::format(
                    "\nint main(void) {{\n  if ({}) return 1;\n"
                    "  printf(\"{}: {} writes, {} refused, {} notifications: ok\\n\");\n  return 0;\n}}\n",
                    calls, names.prefix, vectors.writes.size(), refused, vectors.notifications.size());
}

}  // namespace morvix::inspect
