#include "inspect/generate/DeviceCode.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "inspect/generate/Generate.h"
#include "inspect/packets/Packet.h"
#include "inspect/text/CSource.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

constexpr size_t kColumns = 110;

std::string TypeName(const CAttribute& attribute) {
  const Attribute& record = attribute.Record();
  if (IsBool(record)) return "bool";
  return IsBinary(record) ? "uint8_t" : fmt::format("uint{}_t", TypeBits(attribute.read->bits));
}

size_t BinaryBytes(const CAttribute& attribute) { return static_cast<size_t>(attribute.read->bits.Length() / 8); }

// "uint8_t key[16]"
std::string Declaration(const CAttribute& attribute) {
  const std::string size = IsBinary(attribute.Record()) ? fmt::format("[{}]", BinaryBytes(attribute)) : "";
  return TypeName(attribute) + ' ' + attribute.member + size;
}

// ---- Comments ----

// The lines of a text as a comment that begins with `indent` blanks, wrapped where they are long. None of its words can
// end it, and no line ends in a backslash.
std::string Comment(const std::vector<std::string>& lines, size_t indent) {
  const std::string margin(indent, ' ');
  std::string comment = margin + "/* ";
  size_t begin = indent + 3;  // of the line that is being filled, in columns
  size_t column = begin;
  const auto breakLine = [&] {
    comment.erase(comment.find_last_not_of(' ') + 1);
    comment += '\n' + margin + " * ";
    column = begin;
  };
  for (const std::string& text : lines) {
    if (&text != &lines[0]) breakLine();
    for (size_t at = 0; at < text.size();) {
      size_t end = std::min(text.find(' ', at), text.size());
      while (end < text.size() && end > at && text[text.find_last_not_of(' ', end - 1)] == '\\') {
        end = std::min(text.find(' ', end + 1), text.size());
      }
      if (column > begin && column + end - at > kColumns) breakLine();
      comment += text.substr(at, end - at) + ' ';
      column += end - at + 1;
      at = end + 1;
    }
  }
  return comment + "*/\n";
}

// The text as a sentence.
std::string Sentence(const std::string& text) {
  std::string sentence = CCommentText(text);
  if (!sentence.empty() && sentence.back() != '.') sentence += '.';
  return sentence;
}

// "Target temperature: 40 to 100 degrees."
std::string Title(const Attribute& attribute) {
  const bool hasText = !attribute.desc.empty();
  const std::string name = CCommentText(attribute.display_name.empty() ? attribute.name : attribute.display_name);
  return hasText ? name + ": " + Sentence(attribute.desc) : name + '.';
}

// "bits 2 and 1 of byte 0", or "bit 1 of byte 1 to bit 6 of byte 2" where it crosses from one byte into another.
std::string PlaceOf(const BitRange& bits) {
  if (bits.IsWholeBytes() || bits.EndByte() - bits.FirstByte() == 1) return BitsText(bits);
  return fmt::format("bit {} of byte {} to bit {} of byte {}", 7 - bits.begin % 8, bits.begin / 8,
                     7 - (bits.end - 1) % 8, (bits.end - 1) / 8);
}

// What an application gets for a raw value of a number; where this text is not the value, being too small for six
// decimals or cut, the value itself.
std::string ValueText(const Attribute& number, int64_t raw) {
  const double scaled = static_cast<double>(raw) * number.uint_spec.ratio;
  const double exact = scaled + number.uint_spec.addition;
  const double noise = 1e-15 * (std::abs(scaled) + std::abs(number.uint_spec.addition));  // of doubles that cancel out
  const std::string text = UserText(number, static_cast<uint64_t>(raw));
  const bool isExact = std::abs(std::strtod(text.c_str(), nullptr) - exact) <= 1e-6 * std::abs(exact) + noise;
  return isExact ? text : ShortestText(exact);
}

// "Writable, flag 2: byte 1. User value = raw * 0.5 + 40, from 40 to 100."
std::string Facts(const CAttribute& attribute) {
  const Attribute& record = attribute.Record();
  std::string facts = GroupName(record.type);
  facts[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(facts[0])));
  if (attribute.written != nullptr) facts += fmt::format(", flag {}", attribute.written->flag);
  facts += ": " + PlaceOf(attribute.read->bits);
  if (attribute.written != nullptr && attribute.written->bits != attribute.read->bits) {
    facts += ", in a write " + PlaceOf(attribute.written->bits);
  }
  facts += '.';
  if (IsEnum(record)) {
    facts += fmt::format(" One of {}_...: 0 to {}.", attribute.constant, record.enumList.size() - 1);
  } else if (IsNumber(record)) {
    const Scaling& scaling = record.uint_spec;
    facts += " User value = raw";
    if (scaling.ratio != 1) facts += " * " + ShortestText(scaling.ratio);
    if (scaling.addition != 0) {
      facts += (scaling.addition < 0 ? " - " : " + ") + ShortestText(std::abs(scaling.addition));
    }
    facts += fmt::format(", from {} to {}.", ValueText(record, scaling.min), ValueText(record, scaling.max));
  }
  return facts;
}

// ---- Constants ----

std::string FloatConstant(double number) {
  std::string text = ShortestText(number);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return number < 0 ? "(" + text + ")" : text;
}

using Definitions = std::vector<std::pair<std::string, std::string>>;  // names and values

Definitions ConstantsOf(const CAttribute& attribute) {
  const Attribute& record = attribute.Record();
  if (!IsNumber(record)) return {};
  const auto limit = [&](uint64_t raw) { return fmt::format("UINT{}_C({})", TypeBits(attribute.read->bits), raw); };
  const RawRange range = RawRangeOf(record);
  return {{attribute.constant + "_MIN", limit(range.min)},
          {attribute.constant + "_MAX", limit(range.max)},
          {attribute.constant + "_RATIO", FloatConstant(record.uint_spec.ratio)},
          {attribute.constant + "_ADDITION", FloatConstant(record.uint_spec.addition)}};
}

std::string ItemsText(const CAttribute& attribute) {
  std::string text;
  size_t longest = 0;
  for (const std::string& item : attribute.items) longest = std::max(longest, item.size());
  for (size_t i = 0; i < attribute.items.size(); ++i) {
    const std::string& item = attribute.items[i];
    const std::string value = fmt::format("{}u", i);
    fmt::format_to(std::back_inserter(text), "#define {} {}{} /* {} */\n", item, value,
                   std::string(longest - item.size() + (attribute.items.size() > 10 && i < 10 ? 1 : 0), ' '),
                   CCommentText(attribute.Record().enumList[i]));
  }
  return text;
}

std::string AttributeConstants(const CAttribute& attribute) {
  std::string text;
  for (const auto& [name, value] : ConstantsOf(attribute)) text += fmt::format("#define {} {}\n", name, value);
  text += ItemsText(attribute);
  if (text.empty()) return "";
  return '\n' + Comment({Title(attribute.Record())}, 0) + text;
}

// ---- The header ----

std::string StructText(const CNames& names, const char* name, const std::vector<std::string>& members) {
  std::string text = fmt::format("typedef struct {0}_{1} {{\n", names.prefix, name);
  for (const std::string& member : members) text += member;
  return text + fmt::format("}} {}_{};\n", names.prefix, name);
}

std::string StateText(const CNames& names) {
  std::vector<std::string> members;
  for (const CAttribute& attribute : names.attributes) {
    members.push_back(Comment({Title(attribute.Record()), Facts(attribute)}, 2) + "  " + Declaration(attribute) +
                      ";\n");
  }
  return "\n/* The state of the device: every attribute, as raw value. */\n" + StructText(names, "state", members);
}

std::string WriteStructText(const CNames& names) {
  std::vector<std::string> members;
  for (const CAttribute& attribute : names.attributes) {
    if (attribute.written == nullptr) continue;
    members.push_back(fmt::format("  bool has_{};\n  {};\n", attribute.member, Declaration(attribute)));
  }
  return "\n/* What a write sets, as raw values. Members of attributes that it does not set are 0. */\n" +
         StructText(names, "write", members);
}

const char kWriteFunctions[] = R"(
/* Reads a write (command 1 or 7), with or without a sub-device id. False, with *write cleared, unless the packet is a
 * whole write whose set attributes are all in range. The payload bits of attributes that are not set do not matter. */
bool {0}_read_write(const uint8_t* packet, size_t size, {0}_write* write);

/* Takes over what a write sets. */
void {0}_apply({0}_state* state, const {0}_write* write);
)";

const char kSharedFunctions[] = R"(
/* Reads the id of the sub-device to which a packet is addressed. False, with *sub_device untouched, when by its command
 * and size the packet has none. Besides writes, commands 8 (read) and 12 (remove the sub-device) have one. */
bool {0}_read_sub_device(const uint8_t* packet, size_t size, int32_t* sub_device);

/* Makes a notification (command 4) or the answer to a read (command 3) of {1}_PAYLOAD_BYTES + 1 bytes. Returns its
 * size; 0, with the packet untouched, when there is no room for it or a value is out of range. */
size_t {0}_make_notification(const {0}_state* state, uint8_t* packet, size_t capacity);
size_t {0}_make_read_response(const {0}_state* state, uint8_t* packet, size_t capacity);
)";

std::string SizesText(const EntityModel& entity, const CNames& names) {
  const Direction& writing = entity.Writing();
  const size_t payload = entity.Reading().payloadBytes;
  const size_t longest = std::max(5 + FlagBytes(writing) + writing.payloadBytes, 1 + payload);
  return fmt::format(
      "\n/* Bytes of the payload of a notification or read response, of a write's payload, of its flag bitmap, and of "
      "the "
      "longest\n * packet. */\n#define {0}_PAYLOAD_BYTES {1}u\n#define {0}_WRITE_BYTES {2}u\n"
      "#define {0}_FLAG_BYTES {3}u\n#define {0}_MAX_PACKET_BYTES {4}u\n",
      names.constants, payload, writing.payloadBytes, FlagBytes(writing), longest);
}

// ---- Reading ----

std::string Mask(uint64_t bits) { return fmt::format("0x{:02x}u", (1u << bits) - 1); }

// The value of a field in "payload", in the type that holds it. `column` is where it begins.
std::string ReadExpression(const BitRange& bits, size_t column) {
  const size_t first = bits.FirstByte();
  const size_t last = bits.EndByte() - 1;
  const uint64_t below = uint64_t{8} * (last + 1) - bits.end;  // bits of the last byte below the field
  const int typeBits = TypeBits(bits);
  if (bits.IsWholeBytes() && first == last) return fmt::format("payload[{}]", first);
  if (first == last) {
    const std::string shifted =
        below == 0 ? fmt::format("payload[{}]", first) : fmt::format("(payload[{}] >> {})", first, below);
    if (bits.begin % 8 == 0) return fmt::format("(uint8_t){}", shifted);
    return fmt::format("(uint8_t)({} & {})", shifted, Mask(bits.Length()));
  }
  std::vector<std::string> terms;
  for (size_t i = first; i <= last; ++i) {
    std::string byteText = fmt::format("payload[{}]", i);
    if (i == first && bits.begin % 8 != 0) byteText = fmt::format("({} & {})", byteText, Mask(8 - bits.begin % 8));
    const uint64_t up = 8 * (last - i);
    if (up > below) {
      const std::string cast = typeBits == 8 ? "" : fmt::format("(uint{}_t)", typeBits);
      byteText = fmt::format("({}{} << {})", cast, byteText, up - below);
    } else if (up < below) {
      byteText = fmt::format("({} >> {})", byteText, below - up);
    }
    terms.push_back(byteText);
  }
  const std::string all = WrappedList(terms, " | ", column, column);
  return typeBits > 16 ? all : fmt::format("(uint{}_t)({})", typeBits, all);
}

// The conditions under which a value that is at most `largest` is out of range.
std::vector<std::string> RangeFaults(const CAttribute& attribute, const std::string& value, uint64_t largest) {
  const Attribute& record = attribute.Record();
  if (IsBool(record) || IsBinary(record)) return {};
  const RawRange range = RawRangeOf(record);
  const std::string max = IsEnum(record) ? attribute.items.back() : attribute.constant + "_MAX";
  std::vector<std::string> faults;
  if (range.min > 0) faults.push_back(fmt::format("{} < {}_MIN", value, attribute.constant));
  if (range.max < largest) faults.push_back(value + " > " + max);
  return faults;
}

// A statement that returns `result` when one of these holds, in lines if one would be too long.
std::string ReturnIf(const std::vector<std::string>& faults, const char* result, size_t indent) {
  if (faults.empty()) return "";
  const std::string margin(indent, ' ');
  std::string line = fmt::format("{}if ({}) return {};\n", margin, fmt::join(faults, " || "), result);
  if (line.size() <= kColumns) return line;
  const std::string separator = " ||\n    " + margin;
  return fmt::format("{0}if ({1}) {{\n{0}  return {2};\n{0}}}\n", margin, fmt::join(faults, separator), result);
}

std::string ReadAttributeText(const EntityModel& entity, const CAttribute& attribute) {
  const BitRange& bits = attribute.written->bits;
  const size_t flagBit = FlagBit(entity.Writing(), attribute.written->flag);
  const std::string value = "write->" + attribute.member;
  std::string text = fmt::format("  if ((flags[{}] & 0x{:02x}u) != 0u) {{\n    write->has_{} = true;\n", flagBit / 8,
                                 0x80u >> flagBit % 8, attribute.member);
  if (IsBinary(attribute.Record())) {
    text += fmt::format("    memcpy({}, payload + {}, sizeof {});\n", value, bits.FirstByte(), value);
  } else if (IsBool(attribute.Record())) {
    text +=
        fmt::format("    {} = (payload[{}] & 0x{:02x}u) != 0u;\n", value, bits.FirstByte(), 0x80u >> bits.begin % 8);
  } else {
    text += fmt::format("    {} = {};\n", value, ReadExpression(bits, value.size() + 7));
  }
  return text + ReturnIf(RangeFaults(attribute, value, bits.MaxValue()), "false", 4) + "  }\n";
}

// The conditions under which a flag bitmap is refused: bits beyond the attributes, or no bit.
std::string FlagFaults(const Direction& writing, const std::string& constants) {
  constexpr size_t kFewBytes = 4;
  const size_t bytes = FlagBytes(writing);
  const size_t used = writing.records.size() % 8;  // in the first byte
  std::string text;
  if (used != 0) text += fmt::format("  if (flags[0] > {}) return false;\n", Mask(used));
  if (bytes > kFewBytes) {
    return text + fmt::format(
                      "  while (any == 0u && i < {}_FLAG_BYTES) any = flags[i++];\n"
                      "  if (any == 0u) return false;\n",
                      constants);
  }
  std::vector<std::string> all;
  for (size_t i = 0; i < bytes; ++i) all.push_back(fmt::format("flags[{}]", i));
  const std::string any = fmt::format("{}", fmt::join(all, " | "));
  return text + fmt::format("  if ({} == 0u) return false;\n", bytes == 1 ? any : "(" + any + ")");
}

const char kReadWrite[] = R"(
/* A write, by its command and size: where its flags begin, else null. */
static const uint8_t* write_flags(const uint8_t* packet, size_t size) {{
  if (size != WRITE_PACKET_BYTES && size != WRITE_PACKET_BYTES + SUB_DEVICE_BYTES) return NULL;
  if (packet[0] != WRITE_REQUEST && packet[0] != SUB_DEVICE_WRITE_REQUEST) return NULL;
  return packet + size - (WRITE_PACKET_BYTES - 1u);
}}

static bool read_values(const uint8_t* flags, {0}_write* write) {{
{1}{2}  return true;
}}

bool {0}_read_write(const uint8_t* packet, size_t size, {0}_write* write) {{
  const uint8_t* const flags = write_flags(packet, size);
  memset(write, 0, sizeof *write);
  if (flags == NULL) return false;
  if (read_values(flags, write)) return true;
  memset(write, 0, sizeof *write);
  return false;
}}

void {0}_apply({0}_state* state, const {0}_write* write) {{
{3}}}
)";

std::string WriteFunctions(const EntityModel& entity, const CNames& names) {
  std::string values;
  std::string apply;
  for (const CAttribute& attribute : names.attributes) {
    if (attribute.written == nullptr) continue;
    values += ReadAttributeText(entity, attribute);
    const std::string& member = attribute.member;
    apply += IsBinary(attribute.Record())
                 ? fmt::format("  if (write->has_{0}) memcpy(state->{0}, write->{0}, sizeof state->{0});\n", member)
                 : fmt::format("  if (write->has_{0}) state->{0} = write->{0};\n", member);
  }
  std::string start = fmt::format("  const uint8_t* const payload = flags + {}_FLAG_BYTES;\n", names.constants);
  const std::string faults = FlagFaults(entity.Writing(), names.constants);
  if (faults.find("any") != std::string::npos) start += "  uint8_t any = 0;\n  size_t i = 0;\n";
  return fmt::format(kReadWrite, names.prefix, start + faults, values, apply);
}

// ---- Making ----

// The part of a value that lies in one byte of the payload. Its other bits are cut off or 0.
std::string Part(const CAttribute& attribute, size_t byteIndex) {
  const BitRange& bits = attribute.read->bits;
  std::string value = "state->" + attribute.member;
  const uint64_t endOfByte = uint64_t{8} * (byteIndex + 1);
  if (bits.end == endOfByte) return value;
  if (bits.end > endOfByte) return fmt::format("({} >> {})", value, bits.end - endOfByte);
  return fmt::format("({} << {})", value, endOfByte - bits.end);
}

// Assignments of every byte of the payload, in order.
std::string MakeBytes(const EntityModel& entity, const CNames& names) {
  std::vector<std::vector<const CAttribute*>> inByte(entity.Reading().payloadBytes);
  for (const CAttribute& attribute : names.attributes) {
    const BitRange& bits = attribute.read->bits;
    for (size_t i = bits.FirstByte(); i < bits.EndByte(); ++i) inByte[i].push_back(&attribute);
  }
  std::string text;
  for (size_t i = 0; i < inByte.size();) {
    size_t end = i + 1;  // of bytes that one statement sets
    if (inByte[i].empty()) {
      while (end < inByte.size() && inByte[end].empty()) ++end;
      text += end == i + 1 ? fmt::format("  payload[{}] = 0;\n", i)
                           : fmt::format("  memset(payload + {}, 0, {});\n", i, end - i);
    } else if (IsBinary(inByte[i][0]->Record())) {
      const CAttribute& binary = *inByte[i][0];
      text += fmt::format("  memcpy(payload + {0}, state->{1}, sizeof state->{1});\n", i, binary.member);
      end = binary.read->bits.EndByte();
    } else {
      std::vector<std::string> parts;
      for (const CAttribute* attribute : inByte[i]) {
        // Beside others a wide one is cut first, so that all have one type.
        const bool isCut = inByte[i].size() > 1 && TypeBits(attribute->read->bits) > 8;
        parts.push_back((isCut ? "(uint8_t)" : "") + Part(*attribute, i));
      }
      const bool isPlain = parts.size() == 1 && TypeName(*inByte[i][0]) == "uint8_t" && parts[0].back() != ')';
      const std::string all = WrappedList(parts, " | ", 30, 25);
      if (isPlain) {
        text += fmt::format("  payload[{}] = {};\n", i, all);
      } else if (parts.size() == 1 && parts[0].back() != ')') {
        text += fmt::format("  payload[{}] = (uint8_t){};\n", i, all);
      } else {
        text += fmt::format("  payload[{}] = (uint8_t){};\n", i, parts.size() == 1 ? all : "(" + all + ")");
      }
    }
    i = end;
  }
  return text;
}

std::string StateFaults(const CNames& names) {
  std::vector<std::string> faults;
  for (const CAttribute& attribute : names.attributes) {
    const int typeBits = TypeBits(attribute.read->bits);
    const uint64_t largest = BitRange{0, static_cast<uint64_t>(typeBits)}.MaxValue();
    for (std::string& fault : RangeFaults(attribute, "state->" + attribute.member, largest)) {
      faults.push_back(std::move(fault));
    }
  }
  return ReturnIf(faults, "0", 2);
}

const char kMake[] = R"(
static size_t make_packet(uint8_t command, const {0}_state* state, uint8_t* packet, size_t capacity) {{
  uint8_t* payload;
  if (capacity < 1u + {1}_PAYLOAD_BYTES) return 0;
{2}  payload = packet + 1;
  packet[0] = command;
{3}  return 1u + {1}_PAYLOAD_BYTES;
}}

size_t {0}_make_notification(const {0}_state* state, uint8_t* packet, size_t capacity) {{
  return make_packet(NOTIFICATION, state, packet, capacity);
}}

size_t {0}_make_read_response(const {0}_state* state, uint8_t* packet, size_t capacity) {{
  return make_packet(READ_RESPONSE, state, packet, capacity);
}}
)";

// ---- Sub-devices ----

const char kReadSubDevice[] = R"(
bool {0}_read_sub_device(const uint8_t* packet, size_t size, int32_t* sub_device) {{
{1}  if (!is_request{2}) return false;
  /* The one little-endian number of the protocol. */
  *sub_device = (int32_t)(packet[1] | ((uint32_t)packet[2] << 8) | ((uint32_t)packet[3] << 16) |
                          ((uint32_t)packet[4] << 24));
  return true;
}}
)";

}  // namespace

int TypeBits(const BitRange& bits) {
  return bits.Length() <= 8 ? 8 : bits.Length() <= 16 ? 16 : bits.Length() <= 32 ? 32 : 64;
}

std::string RawConstant(uint64_t raw) {
  return raw > UINT32_MAX ? fmt::format("UINT64_C({})", raw) : fmt::format("{}u", raw);
}

std::string WrappedList(const std::vector<std::string>& texts, const std::string& separator, size_t column,
                        size_t indent) {
  std::string list;
  for (size_t i = 0; i < texts.size(); ++i) {
    const std::string text = texts[i] + (i + 1 < texts.size() ? separator : "");
    if (i != 0 && column + text.size() > kColumns) {
      list.erase(list.find_last_not_of(' ') + 1);
      list += '\n' + std::string(indent, ' ');
      column = indent;
    }
    list += text;
    column += text.size();
  }
  return list;
}

RawRange RawRangeOf(const Attribute& attribute) {
  if (IsBool(attribute)) return {0, 1};
  if (IsEnum(attribute)) return {0, attribute.enumList.size() - 1};
  if (IsBinary(attribute)) return {0, UINT8_MAX};
  return {static_cast<uint64_t>(attribute.uint_spec.min), static_cast<uint64_t>(attribute.uint_spec.max)};
}

std::string FirstLine(const std::string& sha256) {
  return fmt::format("/* Made by dp4 from the configuration with SHA-256 {}. */\n", sha256);
}

std::string HeaderText(const EntityModel& entity, const CNames& names, const std::string& sha256) {
  const std::string& title = entity.Info().display_name.empty() ? entity.Info().name : entity.Info().display_name;
  std::string text = FirstLine(sha256);
  text += Comment(
      {CCommentText(title) + ", the device's end: reads what an application writes, and makes what it reads.", "",
       "All values are raw, as they travel; the scaling to user values stands at each attribute. Bytes count "
       "from the start of the payload, bit 0 of a byte is its lowest. Nothing is kept between calls. Do not "
       "edit: run dp4 generate c again."},
      0);
  text += fmt::format(
      "\n#ifndef {0}_H\n#define {0}_H\n\n#include <stdbool.h>\n#include <stddef.h>\n#include <stdint.h>\n\n"
      "#ifdef __cplusplus\nextern \"C\" {{\n#endif\n",
      names.constants);
  text += SizesText(entity, names);
  for (const CAttribute& attribute : names.attributes) text += AttributeConstants(attribute);
  text += StateText(names);
  if (!entity.Writing().records.empty()) text += WriteStructText(names) + fmt::format(kWriteFunctions, names.prefix);
  text += fmt::format(kSharedFunctions, names.prefix, names.constants);
  return text + "\n#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
}

std::string SourceText(const EntityModel& entity, const CNames& names, const std::string& sha256) {
  const bool isWritable = !entity.Writing().records.empty();
  std::string text = FirstLine(sha256) + fmt::format("\n#include \"{}.h\"\n\n#include <string.h>\n\n", names.prefix);
  text += "/* Commands. */\n";
  if (isWritable) text += "#define WRITE_REQUEST 1u\n";
  text += "#define READ_RESPONSE 3u\n#define NOTIFICATION 4u\n";
  if (isWritable) text += "#define SUB_DEVICE_WRITE_REQUEST 7u\n";
  text += "#define SUB_DEVICE_READ_REQUEST 8u\n#define SUB_DEVICE_REMOVE_REQUEST 12u\n\n#define SUB_DEVICE_BYTES 4u\n";
  if (isWritable) {
    text += fmt::format("#define WRITE_PACKET_BYTES (1u + {0}_FLAG_BYTES + {0}_WRITE_BYTES) /* without the id */\n",
                        names.constants);
    text += WriteFunctions(entity, names);
  }
  std::string kinds =
      "  const bool is_request = size == 1u + SUB_DEVICE_BYTES &&\n"
      "                          (packet[0] == SUB_DEVICE_READ_REQUEST || packet[0] == SUB_DEVICE_REMOVE_REQUEST);\n";
  if (isWritable) {
    kinds +=
        "  const bool is_write = size == WRITE_PACKET_BYTES + SUB_DEVICE_BYTES && write_flags(packet, size) != NULL;\n";
  }
  text += fmt::format(kReadSubDevice, names.prefix, kinds, isWritable ? " && !is_write" : "");
  return text + fmt::format(kMake, names.prefix, names.constants, StateFaults(names), MakeBytes(entity, names));
}

std::vector<GeneratedFile> DeviceCode(const EntityModel& entity, const DeviceCodeChoices& choices,
                                      std::string& problem) {
  const CNames names = NamesFor(entity, choices.prefix, problem);
  if (!problem.empty()) return {};
  return {{names.prefix + ".h", HeaderText(entity, names, choices.sha256)},
          {names.prefix + ".c", SourceText(entity, names, choices.sha256)},
          {names.prefix + "_test.c", TestText(entity, names, VectorsOf(entity, choices.vectors), choices.sha256)}};
}

}  // namespace morvix::inspect
