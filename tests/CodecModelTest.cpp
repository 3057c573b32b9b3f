// The module against the naive model of it, on random cases, and the model against examples that were worked out by
// hand. A difference is reported with the seed and number of its case, from which alone the case is made. Every
// comparison counts what its cases led to, and fails if some way to succeed or to fail was never met.
//
// The environment variable MODEL_CASES multiplies the number of cases.

// clang-format off
#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp"  // white box
// clang-format on

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "CodecModel.h"
#include "TestSupport.h"

namespace codec_model_test {
namespace {

using model::Attribute;
using model::Attributes;
using model::Bytes;
using model::Entity;
using model::Kind;
using model::Outcome;
using model::Place;
using model::Position;
using model::Scaling;

// --- Cases ---

// Small, and the same on every machine.
class Random {
 public:
  Random(uint64_t seed, uint64_t number) : state_(seed * 0x9e3779b97f4a7c15 + number * 0xd1342543de82ef95) {}

  uint64_t Next() {
    state_ += 0x9e3779b97f4a7c15;
    uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    return mixed ^ (mixed >> 31);
  }

  uint64_t Below(uint64_t count) { return Next() % count; }
  size_t Index(size_t count) { return static_cast<size_t>(Below(count)); }
  bool OneIn(uint64_t count) { return Below(count) == 0; }
  bool Flip() { return OneIn(2); }
  int64_t Between(int64_t low, int64_t high) {
    return low + static_cast<int64_t>(Below(static_cast<uint64_t>(high - low) + 1));
  }
  int32_t SmallInt(int32_t low, int32_t high) { return static_cast<int32_t>(Between(low, high)); }

  template <typename Value, size_t kCount>
  const Value& Pick(const Value (&values)[kCount]) {
    return values[Index(kCount)];
  }

  byte Byte() { return static_cast<byte>(Next() >> 56); }

  // A 64-bit number of any length, often one around a power of two.
  uint64_t Word() {
    const uint64_t power = uint64_t{1} << Below(64);
    switch (Below(6)) {
      case 0:
        return Next() >> Below(64);
      case 1:
        return power - Below(3);
      case 2:
        return power + Below(3);
      case 3:
        return Below(300);
      case 4:
        return UINT64_MAX - Below(9);
      default:
        return Next();
    }
  }

  // A 32-bit number: small, around a power of two, at the limits, or any.
  int32_t Int() {
    const uint32_t power = uint32_t{1} << Below(32);
    switch (Below(5)) {
      case 0:
        return static_cast<int32_t>(power + static_cast<uint32_t>(Below(3)) - 1);
      case 1:
        return static_cast<int32_t>(0u - power + static_cast<uint32_t>(Below(3)) - 1);
      case 2:
        return SmallInt(-80, 80);
      case 3:
        return Flip() ? INT32_MIN + SmallInt(0, 9) : INT32_MAX - SmallInt(0, 9);
      default:
        return static_cast<int32_t>(static_cast<uint32_t>(Next()));
    }
  }

  Bytes SomeBytes(size_t count) {
    Bytes bytes(count);
    for (byte& value : bytes) value = Byte();
    return bytes;
  }

 private:
  uint64_t state_;
};

size_t Scaled(size_t cases) {
  const char* times = std::getenv("MODEL_CASES");
  return times == nullptr ? cases : static_cast<size_t>(static_cast<double>(cases) * std::strtod(times, nullptr));
}

// Makes numbered cases. `check` gives a description of the case and its difference, empty if there is none. Ends at the
// third difference: a wrong rule is wrong a thousand times.
template <typename Check>
void ForEachCase(uint64_t seed, size_t count, const Check& check) {
  size_t differences = 0;
  for (size_t number = 0; number < Scaled(count) && differences < 3; ++number) {
    Random random(seed, number);
    const std::string difference = check(random);
    if (difference.empty()) continue;
    ++differences;
    ADD_FAILURE() << "seed " << seed << ", case " << number << ": " << difference;
  }
}

// Counts the outcomes of a comparison. Those named at the start have to be met before its end.
class Tally {
 public:
  explicit Tally(std::initializer_list<const char*> names) : names_(names), counts_(names.size()) {}
  ~Tally() {
    for (size_t i = 0; i < names_.size(); ++i) EXPECT_NE(counts_[i], 0u) << "never met: " << names_[i];
  }
  Tally(const Tally&) = delete;
  Tally& operator=(const Tally&) = delete;

  void Count(size_t index) { ++counts_.at(index); }
  template <typename Enumeration>
  void Count(Enumeration value) {
    Count(static_cast<size_t>(value));
  }

 private:
  std::vector<const char*> names_;
  std::vector<size_t> counts_;
};

// The same for the texts of log lines, up to their first colon unless they are warnings.
class LineTally {
 public:
  explicit LineTally(std::initializer_list<const char*> texts) : texts_(texts) {}
  ~LineTally() {
    for (const char* text : texts_) EXPECT_NE(counts_[text], 0u) << "never logged: " << text;
    EXPECT_LE(counts_.size(), texts_.size());
  }
  LineTally(const LineTally&) = delete;
  LineTally& operator=(const LineTally&) = delete;

  void Count(const model::Lines& lines) {
    for (const model::Line& line : lines) {
      const bool isWarning = line.text.compare(0, 8, "Warning:") == 0;
      ++counts_[isWarning ? line.text : line.text.substr(0, line.text.find(':'))];
    }
  }

 private:
  std::vector<const char*> texts_;
  std::map<std::string, size_t> counts_;
};

// --- Descriptions of inputs ---

std::string Text(const Position& position) {
  std::ostringstream text;
  text << "{byte_offset " << position.byte_offset << ", bit_offset " << position.bit_offset << ", unit "
       << static_cast<int32_t>(position.unit) << ", len " << position.len << ", groupByteLength "
       << position.groupByteLength << "}";
  return text.str();
}

std::string Text(const Attribute& attribute) {
  std::ostringstream text;
  text.precision(17);
  text << "{id " << attribute.id << ", name '" << attribute.name << "', display_name '" << attribute.display_name
       << "', desc '" << attribute.desc << "', type " << uint32_t{attribute.type} << ", data_type "
       << uint32_t{attribute.data_type} << ", position " << Text(attribute.position) << ", uint_spec {"
       << attribute.uint_spec.min << ", " << attribute.uint_spec.max << ", " << attribute.uint_spec.step << ", "
       << attribute.uint_spec.ratio << ", " << attribute.uint_spec.addition << "}, items";
  for (const std::string& item : attribute.enumList) text << " '" << item << "'";
  text << "}";
  return text.str();
}

std::string Text(const Attributes& attributes) {
  std::string text;
  for (const Attribute& attribute : attributes) text += "\n  " + Text(attribute);
  return text;
}

std::string Text(const model::Lines& lines) {
  std::string text;
  for (const model::Line& line : lines) text += "\n  [" + std::to_string(line.level) + "] " + line.text;
  return text;
}

std::string Text(const Json::Value& value) { return WriteJson(value); }
std::string Text(const Bytes& bytes) { return ToHex(bytes); }

// What the module gives and what the model gives, if they differ.
template <typename Value>
std::string Compare(const char* what, const Value& module, const Value& model) {
  if (module == model) return "";
  std::ostringstream text;
  text.precision(17);
  text << "\n  " << what << ": " << module << ", the model has " << model;
  return text.str();
}

std::string Compare(const char* what, const Bytes& module, const Bytes& model) {
  if (module == model) return "";
  return "\n  " + std::string(what) + ": " + Text(module) + ", the model has " + Text(model);
}

std::string Compare(const char* what, const Json::Value& module, const Json::Value& model) {
  if (module == model) return "";
  return "\n  " + std::string(what) + ": " + Text(module) + ", the model has " + Text(model);
}

std::string CompareLines(const LogLines& module, const model::Lines& model) {
  model::Lines lines;
  for (const LogLine& line : module) lines.push_back({line.level, line.function, line.text});
  if (lines == model) return "";
  return "\n  lines:" + Text(lines) + "\n  the model has:" + Text(model);
}

bool IsEqual(const Position& left, const Position& right) {
  return left.byte_offset == right.byte_offset && left.bit_offset == right.bit_offset && left.unit == right.unit &&
         left.len == right.len && left.groupByteLength == right.groupByteLength;
}

bool IsEqual(double left, double right) { return left == right || (std::isnan(left) && std::isnan(right)); }

bool IsEqual(const Attribute& left, const Attribute& right) {
  return left.id == right.id && left.name == right.name && left.display_name == right.display_name &&
         left.desc == right.desc && left.type == right.type && left.data_type == right.data_type &&
         IsEqual(left.position, right.position) && left.uint_spec.min == right.uint_spec.min &&
         left.uint_spec.max == right.uint_spec.max && left.uint_spec.step == right.uint_spec.step &&
         IsEqual(left.uint_spec.ratio, right.uint_spec.ratio) &&
         IsEqual(left.uint_spec.addition, right.uint_spec.addition) && left.enumList == right.enumList;
}

std::string CompareAttributes(const Attributes& module, const Attributes& model) {
  bool isEqual = module.size() == model.size();
  for (size_t i = 0; isEqual && i < module.size(); ++i) isEqual = IsEqual(module[i], model[i]);
  return isEqual ? "" : "\n  attributes:" + Text(module) + "\n  the model has:" + Text(model);
}

// One NaN is as good as another.
std::string CompareNumbers(const char* what, double module, double model) {
  return IsEqual(module, model) ? "" : Compare(what, module, model);
}

std::string CompareActive(const char* what, const std::vector<TavelReceiveInfo>& module,
                          const std::vector<TavelReceiveInfo>& model) {
  std::string texts[2];
  for (const TavelReceiveInfo& info : module) texts[0] += info.name + '=' + std::to_string(info.value) + ' ';
  for (const TavelReceiveInfo& info : model) texts[1] += info.name + '=' + std::to_string(info.value) + ' ';
  return Compare(what, texts[0], texts[1]);
}

// Puts the inputs before a difference; they are only described if there is one.
template <typename Describe>
std::string With(const std::string& difference, const Describe& describe) {
  return difference.empty() ? "" : describe() + difference;
}

// --- Positions ---

Position MakePosition(int32_t byteOffset, int32_t bitOffset, MorvixProtocolUnit_4_0 unit, int32_t len,
                      size_t groupByteLength) {
  Position position;
  position.byte_offset = byteOffset;
  position.bit_offset = bitOffset;
  position.unit = unit;
  position.len = len;
  position.groupByteLength = groupByteLength;
  return position;
}

Position BytesAt(int32_t byteOffset, int32_t len) {
  return MakePosition(byteOffset, 0, MorvixProtocolUnitByte_4_0, len, 0);
}

Position BitsAt(int32_t byteOffset, int32_t bitOffset, int32_t len, size_t groupByteLength) {
  return MakePosition(byteOffset, bitOffset, MorvixProtocolUnitBit_4_0, len, groupByteLength);
}

int32_t Clamped(int64_t value) {
  return static_cast<int32_t>(std::min<int64_t>(std::max<int64_t>(value, INT32_MIN), INT32_MAX));
}

size_t GroupLength(Random& random, uint64_t payloadBytes) {
  switch (random.Below(12)) {
    case 0:
      return 0;
    case 1:
      return static_cast<size_t>(payloadBytes - random.Below(3));  // wraps for small payloads
    case 2:
      return static_cast<size_t>(payloadBytes + random.Below(3));
    case 3:
      return static_cast<size_t>(random.Word());
    default:
      return random.Index(9) + 1;
  }
}

// A position that fits a payload, or nearly, or not at all.
Position SomePosition(Random& random, uint64_t payloadBytes) {
  const int64_t bytes = static_cast<int64_t>(payloadBytes);
  Position position;
  if (random.OneIn(30)) {
    static const int32_t kOtherUnits[] = {-1, 2, 3, 255, INT32_MIN, INT32_MAX};
    position = BitsAt(0, 0, 1, 1);
    position.unit = MorvixProtocolUnit_4_0(random.Pick(kOtherUnits));
    return position;
  }
  if (random.OneIn(3)) {
    position = BytesAt(Clamped(random.Between(0, bytes)), random.SmallInt(1, 9));
    if (random.OneIn(8)) position.len = 0;
    if (random.OneIn(4)) position.len = Clamped(bytes - position.byte_offset + random.Between(-1, 1));
    if (random.OneIn(8)) position.byte_offset = Clamped(bytes - position.len + random.Between(-1, 1));
    position.bit_offset = random.Int();
    position.groupByteLength = GroupLength(random, payloadBytes);
  } else {
    position = BitsAt(Clamped(random.Between(0, bytes)), 0, random.SmallInt(1, 9), GroupLength(random, payloadBytes));
    const int64_t groupBytes = static_cast<int64_t>(std::min<uint64_t>(position.groupByteLength, 1u << 28));
    if (!random.OneIn(4)) position.byte_offset = Clamped(random.Between(0, std::max<int64_t>(bytes - groupBytes, 0)));
    if (random.OneIn(6)) position.byte_offset = Clamped(bytes - groupBytes + random.Between(-3, 1));
    position.bit_offset = Clamped(random.Between(0, std::max<int64_t>(groupBytes * 8 - 1, 0)));
    if (random.OneIn(6)) position.bit_offset = Clamped(groupBytes * 8 + random.Between(-2, 1));
    if (random.OneIn(8)) position.bit_offset = random.SmallInt(-3, 1);
    if (random.OneIn(3)) position.len = random.SmallInt(1, 64);
    if (random.OneIn(8)) position.len = random.SmallInt(-9, 72);
    if (random.OneIn(8)) position.len = Clamped(groupBytes * 8 - position.bit_offset + random.Between(-2, 20));
  }
  if (random.OneIn(12)) position.byte_offset = random.Flip() ? random.SmallInt(-9, 2) : random.Int();
  if (random.OneIn(20)) position.len = random.Int();
  if (random.OneIn(30)) position.bit_offset = random.Int();
  return position;
}

}  // namespace

// --- The model by hand ---

TEST(ModelLocate, FindsTheWorkedExample) {
  // Group bits 5 to 10 of bytes 2 and 3: bits 21 to 26 from the payload's start.
  const model::Field field = model::Locate(4, BitsAt(2, 5, 6, 2));
  EXPECT_TRUE(field.IsFound());
  EXPECT_EQ(field.firstByte, 2u);
  EXPECT_EQ(field.byteLength, 2u);
}

TEST(ModelLocate, EndsBytesAtThePayloadsEnd) {
  EXPECT_EQ(model::Locate(4, BytesAt(2, 2)).place, Place::kBytesFound);
  EXPECT_EQ(model::Locate(4, BytesAt(2, 3)).place, Place::kBytesEndOutside);
  EXPECT_EQ(model::Locate(4, BytesAt(2, 5)).place, Place::kBytesTooMany);
  EXPECT_EQ(model::Locate(4, BytesAt(4, 1)).place, Place::kBytesStartOutside);
  EXPECT_EQ(model::Locate(4, BytesAt(-1, 2)).place, Place::kBytesStartOutside);
  EXPECT_EQ(model::Locate(4, BytesAt(1, 0)).place, Place::kBytesNone);
  EXPECT_EQ(model::Locate(4, BytesAt(1, -1)).place, Place::kBytesTooMany);
  EXPECT_EQ(model::Locate(0, BytesAt(0, 0)).place, Place::kBytesStartOutside);
}

TEST(ModelLocate, BeginsBitsInsideTheirGroup) {
  EXPECT_EQ(model::Locate(4, BitsAt(0, 7, 1, 1)).place, Place::kBitsFound);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 8, 1, 1)).place, Place::kBitsOutsideGroup);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 0, 1, 0)).place, Place::kBitsOutsideGroup);
  EXPECT_EQ(model::Locate(4, BitsAt(0, -2, 1, 1)).place, Place::kBitsOutsideGroup);
  // One bit before the first is let through, and lies in the byte behind the group.
  const model::Field field = model::Locate(4, BitsAt(0, -1, 1, 1));
  EXPECT_TRUE(field.IsFound());
  EXPECT_EQ(field.firstByte, 1u);
}

TEST(ModelLocate, LetsBitsReachBeforeTheirGroup) {
  const model::Field field = model::Locate(4, BitsAt(1, 7, 2, 1));  // bits 7 to 8
  EXPECT_TRUE(field.IsFound());
  EXPECT_EQ(field.firstByte, 0u);
  EXPECT_EQ(field.byteLength, 2u);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 7, 2, 1)).place, Place::kBitsStartOutside);
}

TEST(ModelLocate, FollowsLengthsOfZeroAndBelow) {
  // Nothing at bit 3 of byte 0: the byte is spanned all the same. At bit 0 it is not.
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, 0, 1)).byteLength, 1u);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, 0, 1)).place, Place::kBitsFound);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 0, 0, 1)).place, Place::kBitsSpanNone);
  // From bit 6 (of the payload) on, -1 bits: 5 / 8 bytes and one.
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, -1, 1)).place, Place::kBitsFound);
  EXPECT_EQ(model::Locate(4, BitsAt(0, 3, -8, 1)).place, Place::kBitsSpanTooMany);
}

TEST(ModelBits, WriteTheWorkedExample) {
  Bytes spanned = {0x00, 0x00};
  uint64_t word = 43 * 32;
  ASSERT_TRUE(model::WriteBits(word, 5, 6, spanned));
  EXPECT_EQ(spanned, Bytes({0x05, 0x60}));
  uint64_t read = 0;
  ASSERT_TRUE(model::ReadBits(spanned, 5, 6, read));
  EXPECT_EQ(read, 43u * 32);
}

TEST(ModelBits, ReverseTheNeighbourBytes) {
  Bytes spanned = {0x10, 0x02};
  ASSERT_TRUE(model::WriteBits(43 * 32, 5, 6, spanned));
  EXPECT_EQ(spanned, Bytes({0x05, 0x70}));
}

TEST(ModelBits, KeepTheNeighboursInOneByteInPlace) {
  Bytes spanned = {0xff};
  ASSERT_TRUE(model::WriteBits(0, 2, 3, spanned));
  EXPECT_EQ(spanned, Bytes({0xe3}));
}

TEST(ModelBits, ReplaceWholeBytes) {
  Bytes spanned = {0x12, 0x34};
  ASSERT_TRUE(model::WriteBits(0xabcd, 8, 16, spanned));
  EXPECT_EQ(spanned, Bytes({0xab, 0xcd}));
  Bytes eight = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_TRUE(model::WriteBits(0x1122334455667788, 0, 64, eight));
  EXPECT_EQ(eight, Bytes({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}));
}

TEST(ModelBits, RefuseWhatIsNoField) {
  uint64_t word = 5;
  EXPECT_FALSE(model::ReadBits({0}, -1, 1, word));
  EXPECT_FALSE(model::ReadBits({0}, 0, 0, word));
  EXPECT_FALSE(model::ReadBits({0}, 0, 65, word));
  EXPECT_FALSE(model::ReadBits({0}, 1, 64, word));
  EXPECT_FALSE(model::ReadBits({}, 0, 1, word));
  EXPECT_FALSE(model::ReadBits(Bytes(9), 0, 1, word));
  EXPECT_EQ(word, 5u);
}

TEST(ModelBits, KeepAndDropRanges) {
  EXPECT_EQ(model::KeepBits(0xffff, 4, 8), 0x0ff0u);
  EXPECT_EQ(model::KeepBits(0xffff, 4, 64), 0xfff0u);
  EXPECT_EQ(model::KeepBits(0xffff, 4, 0), 0u);
  EXPECT_EQ(model::KeepBits(0xffff, -1, 8), 0u);
  EXPECT_EQ(model::KeepBits(0xffff, 64, 8), 0u);
  EXPECT_EQ(model::DropBits(0xffff, 4, 8), 0xf00fu);
  EXPECT_EQ(model::DropBits(0xffff, 4, 0), 0xffffu);
  EXPECT_EQ(model::DropBits(0xffff, 64, 8), 0xffffu);
  EXPECT_EQ(model::DropBits(UINT64_MAX, 0, 64), 0u);
}

TEST(ModelBits, PutAndGetFieldsOfAWord) {
  uint64_t word = 0xff00;
  EXPECT_TRUE(model::PutField(0x15, 6, 4, word));  // 0x15 is cut to 5: bits 6 and 8
  EXPECT_EQ(word, 0xfd40u);
  uint64_t bits = 0;
  EXPECT_TRUE(model::GetField(word, 6, 4, bits));
  EXPECT_EQ(bits, 5u);
  EXPECT_FALSE(model::PutField(1, 64, 1, word));
  EXPECT_FALSE(model::PutField(1, 60, 5, word));
  EXPECT_FALSE(model::GetField(word, 0, 0, bits));
  EXPECT_FALSE(model::GetField(word, 1, UINT64_MAX, bits));
}

TEST(ModelBigEndian, DropsTheHighBytes) {
  Bytes bytes(3);
  EXPECT_TRUE(model::WriteBigEndian(0x11223344, 3, bytes));
  EXPECT_EQ(bytes, Bytes({0x22, 0x33, 0x44}));
  uint64_t word = 0xff00000000000000;
  EXPECT_TRUE(model::ReadBigEndian(bytes, 3, word));
  EXPECT_EQ(word, 0xff00000000223344u);
  Bytes eight(8);
  EXPECT_TRUE(model::WriteBigEndian(0x0102030405060708, 8, eight));
  EXPECT_TRUE(model::ReadBigEndian(eight, 8, word));
  EXPECT_EQ(word, 0x0102030405060708u);
  EXPECT_FALSE(model::WriteBigEndian(1, 0, bytes));
  EXPECT_FALSE(model::ReadBigEndian(Bytes(9), 9, word));
}

TEST(ModelScaling, RoundsHalvesDown) {
  uint64_t raw = 0;
  EXPECT_EQ(model::ToRaw(0, 255, 1, 0.5, 0, 1.25, raw), Scaling::kOnGrid);
  EXPECT_EQ(raw, 2u);
  EXPECT_EQ(model::ToRaw(0, 255, 1, 0.5, 0, 1.3, raw), Scaling::kOnGrid);
  EXPECT_EQ(raw, 3u);
  EXPECT_EQ(model::ToRaw(0, 80, 1, 1, -40, 40, raw), Scaling::kAtMax);
  EXPECT_EQ(raw, 80u);
}

TEST(ModelScaling, AcceptsTheGridAndTheMaximum) {
  uint64_t raw = 0;
  EXPECT_EQ(model::ToRaw(0, 10, 3, 1, 0, 9, raw), Scaling::kOnGrid);
  EXPECT_EQ(model::ToRaw(0, 10, 3, 1, 0, 10, raw), Scaling::kAtMax);
  EXPECT_EQ(model::ToRaw(0, 10, 3, 1, 0, 8, raw), Scaling::kOffGrid);
  double user = 0;
  EXPECT_EQ(model::ToUser(2, 10, 3, 0.5, 1, 5, user), Scaling::kOnGrid);
  EXPECT_EQ(user, 3.5);
  EXPECT_EQ(model::ToUser(2, 10, 3, 0.5, 1, 6, user), Scaling::kOffGrid);
  EXPECT_EQ(model::ToUser(2, 10, 0, 0.5, 1, 2, user), Scaling::kOnGrid);
  EXPECT_EQ(model::ToUser(2, 10, 0, 0.5, 1, 4, user), Scaling::kOffGrid);
}

TEST(ModelScaling, RefusesWhatIsOutOfBounds) {
  const uint64_t limit = uint64_t{1} << 52;
  uint64_t raw = 7;
  double user = 7;
  EXPECT_EQ(model::ToRaw(0, limit, 1, 1, 0, 1, raw), Scaling::kMaxTooLarge);
  EXPECT_EQ(model::ToUser(0, limit, 1, 1, 0, 1, user), Scaling::kMaxTooLarge);
  EXPECT_EQ(model::ToUser(0, 5, 1, 1, 0, limit, user), Scaling::kMaxTooLarge);
  EXPECT_EQ(model::ToRaw(6, 5, 1, 1, 0, 1, raw), Scaling::kRangeInverted);
  EXPECT_EQ(model::ToRaw(5, 5, 1, 1, 0, 5, raw), Scaling::kRangeBelowStep);
  EXPECT_EQ(model::ToRaw(0, 5, UINT64_MAX, 1, 0, 5, raw), Scaling::kRangeBelowStep);
  EXPECT_EQ(model::ToRaw(0, limit - 1, 1, 1, 0, 4503599627370496.0, raw), Scaling::kTooLarge);
  EXPECT_EQ(model::ToRaw(0, 5, 1, 0, 0, 1, raw), Scaling::kTooLarge);  // 1 / 0
  EXPECT_EQ(model::ToRaw(0, 5, 1, 1, 0, -0.1, raw), Scaling::kNegative);
  EXPECT_EQ(raw, 7u);
  EXPECT_EQ(user, 7);
  EXPECT_EQ(model::ToRaw(0, limit - 1, 1, 1, 0, 4503599627370495.0, raw), Scaling::kAtMax);
  EXPECT_EQ(model::ToRaw(0, 5, 1, 0, 0, 0, raw), Scaling::kOnGrid);  // 0 / 0
  EXPECT_EQ(raw, 0u);
  EXPECT_EQ(model::ToRaw(1, 5, 1, 1, 0, 0.2, raw), Scaling::kBelowMin);
  EXPECT_EQ(model::ToRaw(1, 5, 1, 1, 0, 5.6, raw), Scaling::kAboveMax);
}

TEST(ModelNumberText, LosesTrailingZeros) {
  EXPECT_EQ(model::NumberText(12.5), "12.5");
  EXPECT_EQ(model::NumberText(3), "3");
  EXPECT_EQ(model::NumberText(100), "100");
  EXPECT_EQ(model::NumberText(0), "0");
  EXPECT_EQ(model::NumberText(1e33), "9999999999999999455752309870428");  // the first 31 of 33 digits
  EXPECT_EQ(model::TrimNumber(""), "");
  EXPECT_EQ(model::TrimNumber("."), "");
  EXPECT_EQ(model::TrimNumber("10"), "10");
  // With an exponent at index 3 the zeros and the point are looked for from index 5 - 3 on, and all behind them goes.
  EXPECT_EQ(model::TrimNumber("1.0E+5"), "1");
  EXPECT_EQ(model::TrimNumber("1.5E+0"), "1.5E+0");
}

TEST(ModelNumberText, CutsIndicesToNineDigits) {
  EXPECT_EQ(model::IndexText(7), "7");
  EXPECT_EQ(model::IndexText(1234567890), "123456789");
}

TEST(ModelBase64, IsTheStandardOne) {
  EXPECT_EQ(model::Base64Text({0x01, 0x02, 0x03}), "AQID");
  EXPECT_EQ(model::Base64Text({0x00, 0x01, 0x02}), "AAEC");
  EXPECT_EQ(model::Base64Text({0xff}), "/w==");
  EXPECT_EQ(model::Base64Text({0xfb, 0xf0}), "+/A=");
  EXPECT_EQ(model::Base64Bytes("AQID", 3), Bytes({1, 2, 3}));
  EXPECT_EQ(model::Base64Bytes("AQ ID", 2), Bytes({1, 2}));
  EXPECT_EQ(model::Base64Bytes("AQI=AQID", 9), Bytes({1, 2}));
  EXPECT_EQ(model::Base64Bytes("AQ-D", 9), Bytes({1}));
  EXPECT_EQ(model::Base64Bytes("A", 9), Bytes());
}

TEST(ModelValues, WriteBoolsAndNumbers) {
  Bytes payload(2);
  EXPECT_TRUE(model::WriteBool(payload, BitsAt(0, 9, 1, 2), true).isDone);
  EXPECT_EQ(payload, Bytes({0x02, 0x00}));
  bool isSet = false;
  EXPECT_TRUE(model::ReadBool(payload, BitsAt(0, 9, 1, 2), isSet));
  EXPECT_TRUE(isSet);
  EXPECT_FALSE(model::WriteBool(payload, BitsAt(0, 9, 2, 2), true).isDone);
  EXPECT_FALSE(model::WriteBool(payload, BytesAt(0, 1), true).isDone);
  EXPECT_TRUE(model::WriteNumber(payload, BytesAt(0, 2), 0x1234).isDone);
  EXPECT_EQ(payload, Bytes({0x12, 0x34}));
  EXPECT_TRUE(model::WriteNumber(payload, BytesAt(0, 2), 0x123456).isDone);
  EXPECT_EQ(payload, Bytes({0x34, 0x56}));
  Bytes longer(10);
  EXPECT_FALSE(model::WriteNumber(longer, BytesAt(0, 9), 1).isDone);
  EXPECT_TRUE(model::WriteNumber(longer, BitsAt(2, 5, 6, 2), 43).isDone);
  EXPECT_EQ(longer, Bytes({0, 0, 5, 0x60, 0, 0, 0, 0, 0, 0}));
  uint64_t number = 0;
  EXPECT_TRUE(model::ReadNumber(longer, BitsAt(2, 5, 6, 2), number));
  EXPECT_EQ(number, 43u);
}

TEST(ModelValues, LetABoolJustBelowItsGroupDoNothing) {
  Bytes payload = {0xff, 0xff};
  EXPECT_TRUE(model::WriteBool(payload, BitsAt(0, -1, 1, 1), false).isDone);
  EXPECT_EQ(payload, Bytes({0xff, 0xff}));
  bool isSet = true;
  EXPECT_TRUE(model::ReadBool(payload, BitsAt(0, -1, 1, 1), isSet));
  EXPECT_FALSE(isSet);
  EXPECT_FALSE(model::WriteNumber(payload, BitsAt(0, -1, 1, 1), 0).isDone);
  uint64_t number = 77;
  EXPECT_TRUE(model::ReadNumber(payload, BitsAt(0, -1, 1, 1), number));
  EXPECT_EQ(number, 77u);
}

TEST(ModelValues, LimitBinaries) {
  Bytes payload(65540);
  EXPECT_FALSE(model::WriteBinary(payload, BytesAt(0, 65536), "AQID"));
  EXPECT_TRUE(model::WriteBinary(payload, BytesAt(1, 65535), "AQID"));
  EXPECT_EQ(Bytes(payload.begin(), payload.begin() + 5), Bytes({0, 1, 2, 3, 0}));
  std::string text;
  EXPECT_TRUE(model::ReadBinary(payload, BytesAt(1, 3), text));
  EXPECT_EQ(text, "AQID");
  EXPECT_FALSE(model::ReadBinary(payload, BytesAt(0, 65536), text));
  EXPECT_FALSE(model::ReadBinary(payload, BitsAt(0, 0, 8, 1), text));
}

TEST(ModelReaders, AcceptNumbersInText) {
  const Json::Value object =
      ParseJson(R"({"dec": "5", "hex": "0x1F", "oct": "017", "no": "abc", "none": "", "yes": true,
      "real": 2.9, "zero": 0.0, "minus": -3.7, "wide": 4294967295, "low": "0x10", "bare": "10", "high": "0X10"})");
  int32_t integer = 9;
  EXPECT_TRUE(model::ReadInteger(object, "dec", integer));
  EXPECT_EQ(integer, 5);
  EXPECT_TRUE(model::ReadInteger(object, "hex", integer));
  EXPECT_EQ(integer, 31);
  EXPECT_TRUE(model::ReadInteger(object, "oct", integer));
  EXPECT_EQ(integer, 15);
  EXPECT_FALSE(model::ReadInteger(object, "no", integer));
  EXPECT_TRUE(model::ReadInteger(object, "none", integer));
  EXPECT_EQ(integer, 15);
  EXPECT_TRUE(model::ReadInteger(object, "yes", integer));
  EXPECT_EQ(integer, 1);
  EXPECT_FALSE(model::ReadInteger(object, "real", integer));
  EXPECT_TRUE(model::ReadInteger(object, "wide", integer));
  EXPECT_EQ(integer, -1);
  int64_t wide = 0;
  EXPECT_TRUE(model::ReadInteger64(object, "real", wide));
  EXPECT_EQ(wide, 2);
  EXPECT_FALSE(model::ReadInteger64(object, "zero", wide));
  EXPECT_TRUE(model::ReadInteger64(object, "minus", wide));
  EXPECT_EQ(wide, -3);
  uint32_t hex = 0;
  EXPECT_TRUE(model::ReadHex(object, "low", hex));
  EXPECT_EQ(hex, 16u);
  EXPECT_FALSE(model::ReadHex(object, "bare", hex));
  EXPECT_FALSE(model::ReadHex(object, "high", hex));
  EXPECT_TRUE(model::ReadHex(object, "wide", hex));
  EXPECT_EQ(hex, 4294967295u);
  double real = 0;
  EXPECT_FALSE(model::ReadDouble(object, "yes", real));
  EXPECT_TRUE(model::ReadDouble(object, "real", real));
  EXPECT_EQ(real, 2.9);
}

namespace {

// Four attributes: a switch and a mode in byte 0, a level in byte 1, an alert in byte 2.
Json::Value SampleEntity() {
  return ParseJson(R"({"id": 0, "name": "main", "display_name": "Main", "attrs": [
      {"id": 1, "name": "switch", "display_name": "Switch", "desc": "", "type": "status_writable", "data_type": "BOOL",
       "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}},
      {"id": 2, "name": "mode", "display_name": "Mode", "desc": "", "type": "Status_Writable", "data_type": "enum",
       "position": {"byte_offset": 0, "bit_offset": 1, "unit": "BIT", "len": 2}, "enum": ["low", 5, "mid", "high"]},
      {"id": 3, "name": "level", "display_name": "Level", "desc": "", "type": "status_writable", "data_type": "uint8",
       "position": {"byte_offset": 1, "bit_offset": 0, "unit": "", "len": "0x1"},
       "uint_spec": {"min": 0, "max": 100, "ratio": 0.5, "addition": 0}},
      {"id": 4, "name": "hot", "display_name": "Overheat", "desc": "", "type": "alert", "data_type": "bool",
       "position": {"byte_offset": 2, "bit_offset": 0, "unit": "bit", "len": 1}}]})");
}

}  // namespace

TEST(ModelParse, SizesGroupsAndCarriesOver) {
  const model::Parsed parsed = model::Parse(SampleEntity(), 15);
  ASSERT_TRUE(parsed.usable);
  EXPECT_EQ(parsed.entity.name, "main");
  const Attributes& attributes = parsed.attributes;
  ASSERT_EQ(attributes.size(), 4u);
  EXPECT_EQ(attributes[0].position.groupByteLength, 1u);
  EXPECT_EQ(attributes[1].position.groupByteLength, 1u);
  EXPECT_EQ(attributes[2].position.groupByteLength, 0u);
  EXPECT_EQ(attributes[3].position.groupByteLength, 1u);
  const std::vector<std::string> items = {"low", "mid", "high"};
  EXPECT_TRUE(attributes[0].enumList.empty());
  EXPECT_EQ(attributes[1].enumList, items);
  EXPECT_EQ(attributes[2].enumList, items);
  EXPECT_EQ(attributes[3].enumList, items);
  EXPECT_EQ(attributes[0].uint_spec.step, 0);
  EXPECT_EQ(attributes[3].uint_spec.max, 100);
  EXPECT_EQ(attributes[3].uint_spec.step, 1);
  EXPECT_EQ(parsed.lines, model::Lines({{2, "", "Filter entity: id='0' name='main' display_name='Main'"}}));
  EXPECT_EQ(model::Parse(SampleEntity(), 1).attributes.size(), 3u);
}

TEST(ModelParse, SkipsWhatInheritsAnIncompleteScaling) {
  Json::Value entity = SampleEntity();
  entity["attrs"][2]["uint_spec"].removeMember("ratio");
  const model::Parsed parsed = model::Parse(entity, 15);
  EXPECT_EQ(parsed.attributes.size(), 2u);
  ASSERT_EQ(parsed.lines.size(), 3u);
  EXPECT_EQ(parsed.lines[1], (model::Line{1, "FilterConfigType", "Warning: 'ratio' is invalid, skip."}));
  EXPECT_EQ(parsed.lines[2], parsed.lines[1]);
}

TEST(ModelParse, NamesWhatMakesAnEntityUnusable) {
  EXPECT_EQ(model::Parse(Json::Value(3), 15).lines, model::Lines({{1, "GetEntityInfo", "Warning: Invalid entity."}}));
  Json::Value entity = SampleEntity();
  entity["attrs"] = Json::Value(Json::objectValue);
  const model::Parsed parsed = model::Parse(entity, 15);
  EXPECT_FALSE(parsed.usable);
  EXPECT_EQ(parsed.lines, model::Lines({{1, "GetEntityInfo", "Warning: Can't find 'attrs' key."}}));
}

TEST(ModelEncode, WritesTheSample) {
  const model::Encoded encoded =
      model::EncodeEntity(SampleEntity(), ParseJson(R"({"main": {"switch": "1", "level": 30, "hot": 1}})"));
  EXPECT_TRUE(encoded.hasBuffers);
  EXPECT_EQ(encoded.flags, Bytes({0x05}));
  EXPECT_EQ(encoded.value, Bytes({0x01, 0x3c}));
  EXPECT_EQ(encoded.sizeFlags, 1u);
  EXPECT_EQ(encoded.sizeValue, 2u);
}

TEST(ModelEncode, EndsAtAWrongIndex) {
  const model::Encoded encoded =
      model::EncodeEntity(SampleEntity(), ParseJson(R"({"main": {"switch": 2, "mode": 3, "level": 30}})"));
  EXPECT_TRUE(encoded.hasBuffers);
  EXPECT_EQ(encoded.flags, Bytes({0x01}));
  EXPECT_EQ(encoded.value, Bytes({0x01, 0x00}));
  EXPECT_EQ(encoded.sizeFlags, 0u);
  EXPECT_EQ(encoded.sizeValue, 0u);
  ASSERT_EQ(encoded.lines.size(), 2u);
  EXPECT_EQ(encoded.lines[1], (model::Line{1, "ProtocolEncodeEntity_4_0", "Invalid enum value: 3, range: 0-3"}));
}

TEST(ModelEncode, PutsTheNinthFlagIntoTheFirstOfTwoBytes) {
  Attributes attributes(9);
  Json::Value root;
  for (size_t i = 0; i < attributes.size(); ++i) {
    attributes[i].name = std::to_string(i);
    attributes[i].data_type = MorvixProtocolDataTypeBool_4_0;
    attributes[i].position = BitsAt(0, static_cast<int32_t>(i), 1, 2);
  }
  Entity entity;
  entity.name = "main";
  root["main"]["8"] = true;
  const model::Encoded encoded = model::EncodeAttributes(entity, attributes, root);
  EXPECT_EQ(encoded.flags, Bytes({0x01, 0x00}));
  EXPECT_EQ(encoded.value, Bytes({0x01, 0x00}));
}

TEST(ModelEncode, NeedsAPayload) {
  EXPECT_EQ(model::EncodeAttributes(Entity(), Attributes(), Json::Value()).lines,
            model::Lines({{1, "ProtocolEncodeEntity_4_0", "No data will encode."}}));
  EXPECT_FALSE(model::EncodeAttributes(Entity(), Attributes(), Json::Value()).hasBuffers);
  Attributes attributes(1);
  attributes[0].position = BitsAt(-2, 9, 8, 0);  // bits 9 to 16 of a group that begins 2 bytes early: 3 bytes
  EXPECT_EQ(model::PayloadLength(attributes), 1u);
  attributes[0].position = BitsAt(3, -24, 8, 0);
  EXPECT_EQ(model::PayloadLength(attributes), 1u);
  attributes[0].position = BytesAt(-5, 4);
  EXPECT_EQ(model::PayloadLength(attributes), 0u);
}

TEST(ModelDecode, ReadsTheSample) {
  const model::Decoded decoded =
      model::DecodeEntity(SampleEntity(), {0x05, 0x05, 0x01}, ParseJson(R"({"main": {"switch": {"old": 1}}})"));
  EXPECT_EQ(decoded.document, ParseJson(R"({"main": {"switch": {"old": 1, "type": 1, "value": true},
      "mode": {"type": 1, "value": "2"}, "level": {"type": 1, "value": "2.5"},
      "Overheat": {"type": 4, "value": true}}})"));
}

TEST(ModelDecode, LeavesOutFailsAndWipes) {
  // A level above its maximum is left out.
  EXPECT_EQ(model::DecodeEntity(SampleEntity(), {0x00, 0x65, 0x00}, Json::Value()).document,
            ParseJson(R"({"main": {"switch": {"type": 1, "value": false}, "mode": {"type": 1, "value": "0"},
      "Overheat": {"type": 4, "value": false}}})"));
  // A wrong index ends the decoding and keeps what was decoded.
  const model::Decoded wrong = model::DecodeEntity(SampleEntity(), {0x07, 0x05, 0x01}, Json::Value());
  EXPECT_EQ(wrong.document, ParseJson(R"({"main": {"switch": {"type": 1, "value": true}}})"));
  EXPECT_EQ(wrong.lines.back().text, "Invalid enum value: 3, range: 0-3");
  // A bool that is not there takes everything with it.
  const model::Decoded missing = model::DecodeEntity(SampleEntity(), {0x01, 0x05}, Json::Value(5));
  EXPECT_EQ(missing.document, Json::Value(Json::objectValue));
  EXPECT_EQ(missing.lines.back(), (model::Line{1, "ProtocolDecodeEntity_4_0", "Decode value is invalid."}));
  EXPECT_EQ(model::DecodeEntity(SampleEntity(), {}, Json::Value(5)).lines,
            model::Lines({{1, "ProtocolDecodeEntity_4_0", "No data to decode."}}));
}

TEST(ModelConvert, FlattensAndSeparates) {
  const model::Converted converted = model::Convert(R"({"version": 4.0, "list": [1], "main": {"hot": {"type": 4,
      "value": true}, "leak": {"type": 8, "value": "2", "more": 1}, "level": {"type": 1, "value": 25}, "odd":
      {"type": 4.0}, "plain": 3}, "rest": {"hot": {"type": 4, "value": false}}})");
  EXPECT_EQ(ParseJson(converted.text), ParseJson(R"({"version": 4.0, "list": [1], "main": {"level": 25, "odd": null,
      "plain": 3}, "rest": {}})"));
  EXPECT_EQ(converted.alerts, ParseJson(R"([{"name": "hot", "value": true}, {"name": "hot", "value": false}])"));
  EXPECT_EQ(converted.faults, ParseJson(R"([{"more": 1, "name": "leak", "value": "2"}])"));
  EXPECT_EQ(model::Convert(R"({"version": 4})").text, "");
  EXPECT_EQ(model::Convert(R"({"version": 4.5})").text, "");
  EXPECT_EQ(model::Convert(R"({"version": 4.0})").text, "{\"version\":4.0}\n");
}

TEST(ModelAddActive, KeepsWhatIsNotZero) {
  std::vector<TavelReceiveInfo> active;
  model::AddActive(ParseJson(R"([{"name": "a", "value": true}, {"name": "b", "value": false}, {"name": "c", "value": 3},
      {"name": "d", "value": 0}, {"name": "e", "value": "0x10"}, {"name": "f", "value": "12abc"},
      {"name": "g", "value": "abc"}, {"name": "h", "value": "0"}, {"name": "i", "value": ""},
      {"name": "j", "value": 1.5}, {"name": "k", "value": 2.0}, {"name": 7, "value": 1}])"),
                   active);
  EXPECT_EQ(CompareActive("active", active, {{"a", 1}, {"c", 3}, {"e", 16}, {"f", 12}}), "");
}

TEST(ModelPack, LaysOutTheWorkedExample) {
  byte flags = 0xaa;
  byte value = 0x55;
  model::Package package;
  package.cmd = MorvixProtocolCommandWriteReq_4_0;
  std::memcpy(&package.subDid, "\x04\x03\x02\x01", 4);
  package.needInsertSubDid = 1;
  package.flags = &flags;
  package.sizeFlags = 1;
  package.value = &value;
  package.sizeValue = 1;
  Bytes buffer(7);
  model::Lines lines;
  EXPECT_EQ(model::Pack(package, buffer, 3, lines), 7u);
  EXPECT_EQ(buffer, Bytes({0x01, 0x04, 0x03, 0x02, 0x01, 0xaa, 0x55}));
  package.sizeValue = 0;
  EXPECT_EQ(model::Pack(package, buffer, 3, lines), 0u);
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(model::Unpack({0x04, 0x12, 0x34}).value, Bytes({0x12, 0x34}));
  EXPECT_FALSE(model::Unpack({0x02, 0x00}).isAccepted);
}

// The rules of positions, words and shifts together give what a drawing of a group shows: bit k of a group is bit
// k mod 8 of its byte k / 8 from the end.
TEST(ModelValues, LieWhereTheGroupNumbersItsBits) {
  ForEachCase(2026040601, 20000, [](Random& random) -> std::string {
    const Bytes payload = random.SomeBytes(20);
    const int32_t groupBytes = random.SmallInt(1, 9);
    const int32_t len = random.SmallInt(1, std::min(groupBytes * 8, 57));
    const Position position = BitsAt(random.SmallInt(0, 20 - groupBytes), random.SmallInt(0, groupBytes * 8 - len), len,
                                     static_cast<size_t>(groupBytes));
    const auto isSet = [&](const Bytes& bytes, int32_t groupBit) {
      return (bytes[static_cast<size_t>(position.byte_offset + groupBytes - 1 - groupBit / 8)] >> groupBit % 8 & 1) ==
             1;
    };
    uint64_t expected = 0;
    for (int32_t i = len; i > 0; --i) expected = expected * 2 + isSet(payload, position.bit_offset + i - 1);
    uint64_t read = 0;
    if (!model::ReadNumber(payload, position, read) || read != expected) return Text(position) + Text(payload);

    const uint64_t value = random.Next();
    Bytes written = payload;
    model::WriteNumber(written, position, value);
    const int32_t first = position.bit_offset / 8;
    const int32_t last = (position.bit_offset + len - 1) / 8;
    for (int32_t bit = 0; bit < groupBytes * 8; ++bit) {
      const bool isField = bit >= position.bit_offset && bit < position.bit_offset + len;
      // Other bits of several spanned bytes may have moved.
      if (!isField && first != last && bit / 8 >= first && bit / 8 <= last) continue;
      const bool wanted = isField ? (value >> (bit - position.bit_offset) & 1) == 1 : isSet(payload, bit);
      if (isSet(written, bit) != wanted) return Text(position) + ", bit " + std::to_string(bit);
    }
    return "";
  });
}

// --- Positions and bits of the module ---

namespace {

// Much address space without memory, so that positions can be huge and yet inside: beyond 4 GiB if the machine lets us.
class Region {
 public:
  Region() {
    for (const uint64_t size : {uint64_t{6} << 30, uint64_t{1} << 30, uint64_t{1} << 24}) {
      if (data_ != MAP_FAILED || size > SIZE_MAX) continue;
      size_ = static_cast<size_t>(size);
      data_ = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    }
  }
  ~Region() {
    if (data_ != MAP_FAILED) munmap(data_, size_);
  }
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;

  size_t Size() const { return size_; }
  byte* Data() const { return data_ == MAP_FAILED ? nullptr : static_cast<byte*>(data_); }

 private:
  void* data_ = MAP_FAILED;
  size_t size_ = 0;
};

}  // namespace

TEST(OffsetPosition, AgreesWithTheModel) {
  Tally places({"bytes found", "bytes start outside", "too many bytes", "no bytes", "bytes end outside", "bits found",
                "bits outside their group", "bits start outside", "bits span too many bytes", "bits span no bytes",
                "bits end outside", "unknown unit"});
  const Region region;
  ASSERT_NE(region.Data(), nullptr);
  ForEachCase(2026040602, 1000000, [&](Random& random) -> std::string {
    size_t payloadBytes = random.Index(20);
    if (random.OneIn(4)) payloadBytes = static_cast<size_t>(random.Word() % region.Size());
    const Position position = SomePosition(random, payloadBytes);
    const size_t untouched = 0x5555;
    size_t byteLength = untouched;
    const byte* found = OffsetPosition(region.Data(), payloadBytes, position, byteLength);

    const model::Field field = model::Locate(payloadBytes, position);
    places.Count(field.place);
    const byte* expected = field.IsFound() ? region.Data() + static_cast<size_t>(field.firstByte) : nullptr;
    const size_t expectedLength = field.isSized ? static_cast<size_t>(field.byteLength) : untouched;
    if (found == expected && byteLength == expectedLength) return "";
    return Text(position) + " in " + std::to_string(payloadBytes) + " bytes" +
           Compare("found", found != nullptr, expected != nullptr) +
           Compare("first byte", found == nullptr ? 0 : found - region.Data(),
                   expected == nullptr ? 0 : expected - region.Data()) +
           Compare("length", byteLength, expectedLength);
  });
}

namespace {

// Lengths and starts of bit fields: mostly such that they fit into a word.
struct BitRange {
  int32_t start = 0;
  int32_t length = 0;
};

BitRange SomeRange(Random& random) {
  BitRange range;
  range.start = random.SmallInt(0, 63);
  range.length = random.SmallInt(1, 64 - range.start % 8);
  if (random.OneIn(6)) range.length = random.SmallInt(1, 8) * 8;
  if (random.OneIn(6)) range.start = random.SmallInt(0, 20) * 8;
  if (random.OneIn(10)) range.length = random.SmallInt(-2, 70);
  if (random.OneIn(20)) range.start = random.Int();
  if (random.OneIn(20)) range.length = random.Int();
  return range;
}

std::string Text(const BitRange& range) {
  return "start " + std::to_string(range.start) + ", length " + std::to_string(range.length);
}

// As many bytes as the field spans, or some other number.
size_t SpannedBytes(Random& random, const BitRange& range) {
  if (random.OneIn(3)) return random.Index(11);
  const int64_t bits = std::max<int64_t>(0, range.start % 8 + int64_t{range.length});
  return static_cast<size_t>(std::min<int64_t>((bits + 7) / 8, 10));
}

}  // namespace

TEST(BitCopy, ReadsLikeTheModel) {
  Tally outcomes({"refused", "read"});
  ForEachCase(2026040603, 400000, [&](Random& random) -> std::string {
    const BitRange range = SomeRange(random);
    const Bytes spanned = random.SomeBytes(SpannedBytes(random, range));
    const uint64_t before = random.Flip() ? 0 : random.Next();
    uint64_t word = before;
    const bool isRead = BitCopy(spanned.data(), range.start, range.length, spanned.size(), word);
    uint64_t expected = before;
    const bool isExpected = model::ReadBits(spanned, range.start, range.length, expected);
    outcomes.Count(isExpected ? 1 : 0);
    return With(Compare("result", isRead, isExpected) + Compare("word", word, expected),
                [&] { return Text(range) + ", bytes " + Text(spanned) + ", word before " + std::to_string(before); });
  });
}

TEST(BitCopy, WritesLikeTheModel) {
  Tally outcomes({"refused", "whole bytes", "a part of one byte", "a part of several bytes"});
  ForEachCase(2026040604, 400000, [&](Random& random) -> std::string {
    const BitRange range = SomeRange(random);
    const Bytes before = random.SomeBytes(SpannedBytes(random, range));
    const uint64_t word = random.Word();
    Bytes spanned = before;
    // The word is an input to some and scratch to others: hand in a copy.
    uint64_t scratch = word;
    const bool isWritten = BitCopy(scratch, range.start, range.length, spanned.size(), spanned.data());
    Bytes expected = before;
    const bool isExpected = model::WriteBits(word, range.start, range.length, expected);
    const bool isWhole = range.start % 8 == 0 && range.length % 8 == 0;
    outcomes.Count(!isExpected ? 0 : isWhole ? 1 : before.size() == 1 ? 2 : 3);
    return With(Compare("result", isWritten, isExpected) + Compare("bytes", spanned, expected),
                [&] { return Text(range) + ", word " + std::to_string(word) + ", bytes before " + Text(before); });
  });
}

TEST(FixIntegerInBitRange, AgreesWithTheModel) {
  Tally outcomes({"nothing kept", "something kept", "everything kept"});
  ForEachCase(2026040605, 200000, [&](Random& random) -> std::string {
    const uint64_t before = random.Word();
    const BitRange range = {random.OneIn(10) ? random.Int() : random.SmallInt(-2, 66),
                            random.OneIn(10) ? random.Int() : random.SmallInt(-2, 66)};
    uint64_t word = before;
    FixIntegerInBitRange(word, range.start, range.length);
    const uint64_t expected = model::KeepBits(before, range.start, range.length);
    outcomes.Count(expected == 0 ? 0 : expected != before ? 1 : 2);
    return With(Compare("word", word, expected),
                [&] { return Text(range) + ", word before " + std::to_string(before); });
  });
}

TEST(ClearIntegerInBitRange, AgreesWithTheModel) {
  Tally outcomes({"nothing left", "something left", "everything left"});
  ForEachCase(2026040606, 200000, [&](Random& random) -> std::string {
    const uint64_t before = random.Word() | 1;
    const size_t start = random.OneIn(10) ? static_cast<size_t>(random.Word()) : random.Index(67);
    const size_t length = random.OneIn(10) ? static_cast<size_t>(random.Word()) : random.Index(67);
    uint64_t word = before;
    ClearIntegerInBitRange(word, start, length);
    const uint64_t expected = model::DropBits(before, start, length);
    outcomes.Count(expected == 0 ? 0 : expected != before ? 1 : 2);
    return With(Compare("word", word, expected), [&] {
      return "start " + std::to_string(start) + ", length " + std::to_string(length) + ", word before " +
             std::to_string(before);
    });
  });
}

TEST(EncodeBitAndDecodeBit, AgreeWithTheModel) {
  Tally outcomes({"refused", "done"});
  ForEachCase(2026040607, 200000, [&](Random& random) -> std::string {
    const uint64_t bits = random.Word();
    const uint64_t before = random.Word();
    const size_t shift = random.OneIn(10) ? static_cast<size_t>(random.Word()) : random.Index(66);
    size_t length = random.OneIn(10) ? static_cast<size_t>(random.Word()) : random.Index(67);
    if (random.Flip()) length = random.Index(66 - std::min<size_t>(shift, 65));
    uint64_t encoded = before;
    EncodeBit(bits, shift, length, encoded);
    uint64_t decoded = before;
    const bool isDecoded = DecodeBit(bits, shift, length, decoded);

    uint64_t expectedEncoded = before;
    const bool isExpected = model::PutField(bits, shift, length, expectedEncoded);
    uint64_t expectedDecoded = before;
    model::GetField(bits, shift, length, expectedDecoded);
    outcomes.Count(isExpected ? 1 : 0);
    return With(Compare("encoded", encoded, expectedEncoded) + Compare("result", isDecoded, isExpected) +
                    Compare("decoded", decoded, expectedDecoded),
                [&] {
                  return "bits " + std::to_string(bits) + ", shift " + std::to_string(shift) + ", length " +
                         std::to_string(length) + ", before " + std::to_string(before);
                });
  });
}

TEST(EncodeUIntAndDecodeUInt, AgreeWithTheModel) {
  Tally outcomes({"refused", "done"});
  ForEachCase(2026040608, 200000, [&](Random& random) -> std::string {
    const uint64_t word = random.Word();
    const size_t count = random.OneIn(10) ? static_cast<size_t>(random.Word()) : random.Index(11);
    const Bytes before = random.SomeBytes(random.OneIn(4) ? 10 : std::min<size_t>(count, 10));
    Bytes encoded = before;
    const bool isEncoded = EncodeUInt(word, count, encoded.data(), encoded.size());
    uint64_t decoded = word;
    const bool isDecoded = DecodeUInt(before.data(), before.size(), count, decoded);

    Bytes expectedEncoded = before;
    const bool isExpected = model::WriteBigEndian(word, count, expectedEncoded);
    uint64_t expectedDecoded = word;
    model::ReadBigEndian(before, count, expectedDecoded);
    outcomes.Count(isExpected ? 1 : 0);
    return With(Compare("encoded", isEncoded, isExpected) + Compare("bytes", encoded, expectedEncoded) +
                    Compare("decoded", isDecoded, isExpected) + Compare("word", decoded, expectedDecoded),
                [&] {
                  return "word " + std::to_string(word) + ", count " + std::to_string(count) + ", bytes before " +
                         Text(before);
                });
  });
}

// --- Scaling and texts of the module ---

namespace {

const double kInfinity = std::numeric_limits<double>::infinity();

struct SomeScaling {
  explicit SomeScaling(Random& random) {
    const uint64_t limit = uint64_t{1} << 52;
    max = random.OneIn(3) ? random.Below(300) : random.Next() >> random.Between(12, 63);
    if (random.OneIn(10)) max = limit - 3 + random.Below(5);
    if (random.OneIn(30)) max = random.Word();
    min = random.OneIn(3) ? 0 : random.Below(max + (max == UINT64_MAX ? 0 : 1));
    if (random.OneIn(10)) min = max - 2 + random.Below(5);
    if (random.OneIn(30)) min = random.Word();
    step = 1;
    if (random.OneIn(4)) step = random.Below(9);
    if (random.OneIn(20)) step = max - min - 1 + random.Below(3);
    if (random.OneIn(20)) step = static_cast<uint64_t>(int64_t{random.Int()});
    static const double kRatios[] = {1, 1, 0.5, 0.1, 2, 10, 0.01, 1.0 / 3, -1, -0.5, 1e-7, 1e300, 0, -0.0};
    static const double kAdditions[] = {0, 0, 0, -40, 0.5, 0.05, 100, -1e15, 1e300, kInfinity, -kInfinity};
    ratio = random.Pick(kRatios);
    addition = random.Pick(kAdditions);
    if (random.OneIn(50)) ratio = random.Flip() ? kInfinity : std::numeric_limits<double>::quiet_NaN();
    if (random.OneIn(10)) ratio = std::ldexp(static_cast<double>(random.Next()), random.SmallInt(-120, 10));
  }

  // A raw value inside the range or near it.
  uint64_t Raw(Random& random) const {
    uint64_t raw = max >= min && max - min < UINT64_MAX ? min + random.Below(max - min + 1) : random.Word();
    if (random.OneIn(3) && step != 0) raw -= (raw - min) % step;
    if (random.OneIn(6)) raw = max - 2 + random.Below(5);
    if (random.OneIn(6)) raw = min - 2 + random.Below(5);
    if (random.OneIn(20)) raw = random.Word();
    return raw;
  }

  std::string Text() const {
    std::ostringstream text;
    text.precision(17);
    text << "min " << min << ", max " << max << ", step " << step << ", ratio " << ratio << ", addition " << addition;
    return text.str();
  }

  uint64_t min;
  uint64_t max;
  uint64_t step;
  double ratio;
  double addition;
};

// Around the user value of a raw value: on it, next to it, half a step off, a little off; or any number.
double SomeUser(Random& random, const SomeScaling& scaling) {
  static const double kFractions[] = {0, 0, 0, 0.5, -0.5, 0.3, -0.3, 0.49999999, 0.50000001, 1e-9};
  const double raw = static_cast<double>(scaling.Raw(random)) + random.Pick(kFractions);
  const volatile double product = raw * scaling.ratio;
  double user = product + scaling.addition;
  if (random.OneIn(8)) user = std::nextafter(user, random.Flip() ? kInfinity : -kInfinity);
  static const double kOddNumbers[] = {
      0,       -0.0,   4503599627370495.0, 4503599627370495.5, 4503599627370496.0, 1e300,
      -1e-300, 5e-324, kInfinity,          -kInfinity,         std::nan("")};
  if (random.OneIn(15)) user = random.Pick(kOddNumbers);
  return user;
}

}  // namespace

TEST(EncodeUIntSpec, AgreesWithTheModel) {
  Tally outcomes({"at the maximum", "on the grid", "maximum too large", "minimum above maximum", "range below the step",
                  "too large", "negative", "below the minimum", "above the maximum", "off the grid"});
  ForEachCase(2026040609, 400000, [&](Random& random) -> std::string {
    const SomeScaling scaling(random);
    const double user = SomeUser(random, scaling);
    uint64_t raw = 0;
    const bool isEncoded =
        EncodeUIntSpec(scaling.min, scaling.max, scaling.step, scaling.ratio, scaling.addition, user, raw);
    uint64_t expected = 0;
    const Scaling outcome =
        model::ToRaw(scaling.min, scaling.max, scaling.step, scaling.ratio, scaling.addition, user, expected);
    outcomes.Count(outcome);
    return With(Compare("result", isEncoded, model::IsAccepted(outcome)) + Compare("raw", raw, expected),
                [&] { return scaling.Text() + ", user " + std::to_string(user); });
  });
}

TEST(DecodeUIntSpec, AgreesWithTheModel) {
  Tally outcomes({"at the maximum", "on the grid", "maximum or raw value too large", "minimum above maximum",
                  "range below the step", "(never too large)", "(never negative)", "below the minimum",
                  "above the maximum", "off the grid"});
  outcomes.Count(Scaling::kTooLarge);
  outcomes.Count(Scaling::kNegative);
  ForEachCase(2026040610, 400000, [&](Random& random) -> std::string {
    const SomeScaling scaling(random);
    const uint64_t raw = scaling.Raw(random);
    double user = -77;
    const bool isDecoded =
        DecodeUIntSpec(scaling.min, scaling.max, scaling.step, scaling.ratio, scaling.addition, raw, user);
    double expected = -77;
    const Scaling outcome =
        model::ToUser(scaling.min, scaling.max, scaling.step, scaling.ratio, scaling.addition, raw, expected);
    outcomes.Count(outcome);
    return With(Compare("result", isDecoded, model::IsAccepted(outcome)) + CompareNumbers("user", user, expected),
                [&] { return scaling.Text() + ", raw " + std::to_string(raw); });
  });
}

TEST(RemoveFloatLastZero, AgreesWithTheModelOnAnyText) {
  Tally outcomes({"unchanged", "changed"});
  ForEachCase(2026040611, 200000, [&](Random& random) -> std::string {
    static const char kLetters[] = {'0', '0', '0', '.', '.', '1', '9', '-', 'E', '+'};
    std::string text(random.Index(12), ' ');
    for (char& letter : text) letter = random.Pick(kLetters);
    if (random.OneIn(8)) text.insert(random.Index(text.size() + 1), "E+");
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    const std::string trimmed = removeFloatLastZero(buffer.data());
    const std::string expected = model::TrimNumber(text);
    outcomes.Count(expected == text ? 0 : 1);
    return With(Compare("text", trimmed, expected), [&] { return text; });
  });
}

namespace {

// A ratio under which raw values become numbers of all sizes, with many that lie between two printed ones.
double SomeRatio(Random& random) {
  static const double kDecimals[] = {1, 0.5, 0.1, 0.01, 0.001, 1e-4, 1e-5, 1e-6, 5e-7, 1e-7, 1.0 / 3, 1e3, 1e15, 1e300};
  const double ratio =
      random.Flip() ? random.Pick(kDecimals) : std::ldexp(random.Flip() ? 1 : 5, random.SmallInt(-60, 60));
  return random.OneIn(4) ? -ratio : ratio;
}

}  // namespace

TEST(NumberFormatting, AgreesWithTheModel) {
  Tally outcomes({"whole", "with decimals", "cut off", "no number"});
  Entity entity;
  entity.name = "main";
  Attributes attributes(1);
  attributes[0].name = "number";
  attributes[0].data_type = MorvixProtocolDataTypeUInt64_4_0;
  attributes[0].position = BytesAt(0, 8);
  attributes[0].uint_spec.max = (int64_t{1} << 52) - 1;
  attributes[0].uint_spec.step = 1;
  ForEachCase(2026040612, 150000, [&](Random& random) -> std::string {
    const uint64_t raw = random.Next() >> random.Between(12, 63);
    MorvixProtocolUIntSpec_4_0& scaling = attributes[0].uint_spec;
    static const double kAdditions[] = {0, 0, 0, 0, 0.5, -40, 1e-6, 1e15, -1e22, kInfinity};
    scaling.ratio = SomeRatio(random);
    scaling.addition = random.Pick(kAdditions);
    Bytes payload(8);
    model::WriteBigEndian(raw, 8, payload);
    MorvixProtocolPackage_4_0 package;
    package.value = payload.data();
    package.sizeValue = payload.size();
    Json::Value document;
    ProtocolDecodeAttributes_4_0(entity, attributes, package, document);

    const volatile double product = static_cast<double>(raw) * scaling.ratio;
    const std::string expected = model::NumberText(product + scaling.addition);
    const bool isFinite = std::isfinite(product + scaling.addition);
    outcomes.Count(!isFinite ? 3 : expected.size() == 31 ? 2 : expected.find('.') == std::string::npos ? 0 : 1);
    return With(Compare("text", document["main"]["number"]["value"], Json::Value(expected)),
                [&] { return "raw " + std::to_string(raw) + Text(attributes); });
  });
}

namespace {

// Base64 text of some bytes, whole, spoilt or spread out.
std::string SomeBase64(Random& random, size_t count) {
  std::string text = model::Base64Text(random.SomeBytes(count));
  static const char kOthers[] = {' ', '\n', '\t', '\v', '=', '-', '\0', '\x80', 'A', '/'};
  while (random.OneIn(3)) text.insert(random.Index(text.size() + 1), 1, random.Pick(kOthers));
  if (random.OneIn(6)) text.resize(random.Index(text.size() + 1));
  return text;
}

}  // namespace

TEST(Base64, AgreesWithTheModel) {
  Tally outcomes({"none", "fewer bytes than room", "all the room"});
  ForEachCase(2026040613, 50000, [&](Random& random) -> std::string {
    const Bytes bytes = random.SomeBytes(random.Index(20));
    std::vector<char> encoded(bytes.size() * 2 + 9);
    const std::string text =
        __internal_base64_encode(encoded.data(), static_cast<uint32_t>(encoded.size()), bytes.data(), bytes.size());
    const std::string base64 = SomeBase64(random, random.Index(12));
    Bytes decoded(random.Index(12), 0xee);
    const int count = __internal_base64_decode(decoded.data(), base64.c_str(), static_cast<uint32_t>(decoded.size()));
    const Bytes expected = model::Base64Bytes(base64, decoded.size());
    outcomes.Count(expected.empty() ? 0 : expected.size() < decoded.size() ? 1 : 2);
    Bytes whole = expected;
    whole.resize(decoded.size(), 0xee);
    return With(Compare("encoded", text, model::Base64Text(bytes)) +
                    Compare("count", count, static_cast<int>(expected.size())) + Compare("decoded", decoded, whole),
                [&] { return Text(bytes) + ", " + base64; });
  });
}

// --- Values in a payload of the module ---

namespace {

size_t SomePayloadSize(Random& random) { return random.OneIn(6) ? random.Index(3) : 1 + random.Index(24); }

// A position for a binary, and in the end the size of its payload: now and then around the longest that there may be.
Position SomeBinary(Random& random, size_t& payloadBytes) {
  if (random.OneIn(1000)) {
    payloadBytes = 65535 + random.Index(5);
    return BytesAt(random.SmallInt(0, 1), random.SmallInt(65534, 65537));
  }
  payloadBytes = SomePayloadSize(random);
  Position position = SomePosition(random, payloadBytes);
  if (!random.OneIn(10)) position.unit = MorvixProtocolUnitByte_4_0;
  return position;
}

}  // namespace

TEST(WriteBoolValue, AgreesWithTheModel) {
  Tally outcomes({"refused", "done", "bit -1"});
  ForEachCase(2026040614, 100000, [&](Random& random) -> std::string {
    const Bytes before = random.SomeBytes(SomePayloadSize(random));
    Position position = SomePosition(random, before.size());
    if (!random.OneIn(10)) position.len = 1;
    const bool value = random.Flip();
    Bytes payload = before;
    size_t size = payload.size();
    const bool isWritten = WriteBoolValue(payload.data(), size, position, value);
    Bytes expected = before;
    const model::Write write = model::WriteBool(expected, position, value);
    outcomes.Count(!write.isDone ? 0 : position.bit_offset < 0 ? 2 : 1);
    return With(Compare("result", isWritten, write.isDone) + Compare("size", uint64_t{size}, write.size) +
                    Compare("payload", payload, expected),
                [&] { return Text(position) + ", value " + std::to_string(value) + ", payload " + Text(before); });
  });
}

TEST(WriteUIntValue, AgreesWithTheModel) {
  Tally outcomes({"refused", "found and refused", "bytes done", "bits of one byte done", "bits of more bytes done"});
  ForEachCase(2026040615, 200000, [&](Random& random) -> std::string {
    const Bytes before = random.SomeBytes(SomePayloadSize(random));
    const Position position = SomePosition(random, before.size());
    const uint64_t value = random.Word();
    Bytes payload = before;
    size_t size = payload.size();
    const bool isWritten = WriteUIntValue(payload.data(), size, position, value);
    Bytes expected = before;
    const model::Write write = model::WriteNumber(expected, position, value);
    if (!write.isDone) {
      outcomes.Count(write.size == before.size() ? 0 : 1);
    } else {
      outcomes.Count(position.unit == MorvixProtocolUnitByte_4_0 ? 2 : write.size == 1 ? 3 : 4);
    }
    return With(Compare("result", isWritten, write.isDone) + Compare("size", uint64_t{size}, write.size) +
                    Compare("payload", payload, expected),
                [&] { return Text(position) + ", value " + std::to_string(value) + ", payload " + Text(before); });
  });
}

TEST(WriteBinaryValue, AgreesWithTheModel) {
  Tally outcomes({"refused", "longer than a binary may be", "done"});
  ForEachCase(2026040616, 50000, [&](Random& random) -> std::string {
    size_t payloadBytes = 0;
    const Position position = SomeBinary(random, payloadBytes);
    const Bytes before = random.SomeBytes(payloadBytes);
    const std::string text = SomeBase64(random, random.Index(12));
    Bytes payload = before;
    size_t size = payload.size();
    const bool isWritten = WriteBinaryValue(payload.data(), size, position, text);
    Bytes expected = before;
    const bool isExpected = model::WriteBinary(expected, position, text);
    const bool isTooLong = position.len > 65535 && model::Locate(before.size(), position).IsFound();
    outcomes.Count(isExpected ? 2 : isTooLong ? 1 : 0);
    return With(Compare("result", isWritten, isExpected) + Compare("payload", payload, expected),
                [&] { return Text(position) + ", value " + text + ", payload of " + std::to_string(before.size()); });
  });
}

TEST(ReadBoolValue, AgreesWithTheModel) {
  Tally outcomes({"refused", "false", "true", "bit -1"});
  ForEachCase(2026040617, 100000, [&](Random& random) -> std::string {
    const Bytes payload = random.SomeBytes(SomePayloadSize(random));
    Position position = SomePosition(random, payload.size());
    if (!random.OneIn(10)) position.len = 1;
    bool value = false;
    const bool isRead = ReadBoolValue(payload.data(), payload.size(), position, value);
    bool expected = false;
    const bool isExpected = model::ReadBool(payload, position, expected);
    outcomes.Count(!isExpected ? 0 : position.bit_offset < 0 ? 3 : expected ? 2 : 1);
    return With(Compare("result", isRead, isExpected) + Compare("value", value, expected),
                [&] { return Text(position) + ", payload " + Text(payload); });
  });
}

TEST(ReadUIntValue, AgreesWithTheModel) {
  Tally outcomes({"refused", "bytes read", "bits read", "bits found, their range refused"});
  ForEachCase(2026040618, 200000, [&](Random& random) -> std::string {
    const Bytes payload = random.SomeBytes(SomePayloadSize(random));
    const Position position = SomePosition(random, payload.size());
    const uint64_t before = random.OneIn(3) ? random.Next() : 0;
    uint64_t value = before;
    const bool isRead = ReadUIntValue(payload.data(), payload.size(), position, value);
    uint64_t expected = before;
    const bool isExpected = model::ReadNumber(payload, position, expected);
    const int64_t end = int64_t{position.bit_offset % 8} + position.len;
    const bool isInRange = position.bit_offset >= 0 && position.len >= 1 && end <= 64;
    outcomes.Count(!isExpected ? 0 : position.unit == MorvixProtocolUnitByte_4_0 ? 1 : isInRange ? 2 : 3);
    return With(Compare("result", isRead, isExpected) + Compare("value", value, expected), [&] {
      return Text(position) + ", value before " + std::to_string(before) + ", payload " + Text(payload);
    });
  });
}

TEST(ReadBinaryValue, AgreesWithTheModel) {
  Tally outcomes({"refused", "longer than a binary may be", "read"});
  ForEachCase(2026040619, 50000, [&](Random& random) -> std::string {
    size_t payloadBytes = 0;
    const Position position = SomeBinary(random, payloadBytes);
    const Bytes payload = random.SomeBytes(payloadBytes);
    std::string text;
    const bool isRead = ReadBinaryValue(payload.data(), payload.size(), position, text);
    std::string expected;
    const bool isExpected = model::ReadBinary(payload, position, expected);
    const bool isTooLong = position.len > 65535 && model::Locate(payload.size(), position).IsFound();
    outcomes.Count(isExpected ? 2 : isTooLong ? 1 : 0);
    return With(Compare("result", isRead, isExpected) + (isExpected ? Compare("text", text, expected) : ""),
                [&] { return Text(position) + ", payload of " + std::to_string(payload.size()); });
  });
}

// --- JSON of all kinds ---

namespace {

std::string SomeText(Random& random) {
  static const char* const kTexts[] = {"",
                                       " ",
                                       "abc",
                                       "0",
                                       "1",
                                       "5",
                                       "17",
                                       "-1",
                                       "+3",
                                       " 7",
                                       "\t9",
                                       "0x1F",
                                       "0X1f",
                                       "0x",
                                       "0x ",
                                       "017",
                                       "08",
                                       "12abc",
                                       "4294967295",
                                       "4294967296",
                                       "2147483648",
                                       "99999999999999999999",
                                       "-99999999999999999999",
                                       "1e3",
                                       "1e",
                                       "-1.5e2x",
                                       ".5",
                                       "-",
                                       "nan",
                                       "inf",
                                       "-infinity",
                                       "infi",
                                       "0x1p4",
                                       "0x.8",
                                       "0b1",
                                       "3.",
                                       "1.7976931348623159e308",
                                       "18446744073709551615",
                                       "18446744073709551616",
                                       "9223372036854775807",
                                       "9223372036854775808",
                                       "-9223372036854775809",
                                       "- 5",
                                       "true",
                                       "AQID"};
  std::string text = random.Pick(kTexts);
  if (random.OneIn(10)) text += '\0' + std::to_string(random.Below(100));
  if (random.OneIn(10)) text = std::to_string(random.Int());
  return text;
}

Json::Value SomeScalar(Random& random) {
  static const double kReals[] = {0.0,
                                  -0.0,
                                  1.0,
                                  2.0,
                                  2.9,
                                  -3.7,
                                  4.0,
                                  8.0,
                                  1e10,
                                  1e19,
                                  -1e19,
                                  9223372036854775808.0,
                                  -9223372036854775808.0,
                                  1e300,
                                  0.5,
                                  kInfinity,
                                  -kInfinity};
  switch (random.Below(9)) {
    case 0:
      return Json::Value();
    case 1:
      return random.Flip();
    case 2:
      return static_cast<Json::Int>(random.Int());
    case 3:
      return static_cast<Json::UInt>(random.Int());
    case 4:
      return static_cast<Json::Int64>(random.Word());
    case 5:
      return static_cast<Json::UInt64>(random.Word());
    case 6:
      return random.Pick(kReals);
    default:
      return SomeText(random);
  }
}

Json::Value SomeJson(Random& random) {
  if (!random.OneIn(4)) return SomeScalar(random);
  Json::Value value(random.Flip() ? Json::arrayValue : Json::objectValue);
  if (random.Flip()) {
    if (value.isArray()) {
      value.append(SomeScalar(random));
    } else {
      static const char* const kNames[] = {"a", "type", "value", "min", "x"};
      value[random.Pick(kNames)] = SomeScalar(random);
    }
  }
  return value;
}

// A name that is not quite `name`: one letter other, less or more.
std::string Misspelt(Random& random, std::string name) {
  const size_t index = random.Index(name.size() + 1);
  const char letter = static_cast<char>('a' + random.Below(26));
  if (random.OneIn(4) || index == name.size()) return name.insert(index, 1, letter);
  if (random.OneIn(4)) return name.erase(index, 1);
  name[index] = letter;
  return name;
}

}  // namespace

TEST(JsonReaders, AgreeWithTheModel) {
  Tally kinds({"null", "bool", "signed", "unsigned", "real", "text", "array", "object"});
  Tally results({"read", "not read", "thrown"});
  ForEachCase(2026040620, 100000, [&](Random& random) -> std::string {
    std::string key(1 + random.Index(14), 'k');
    for (char& letter : key) letter = static_cast<char>('a' + random.Below(26));
    Json::Value object;
    object[Misspelt(random, key)] = SomeJson(random);
    object[Misspelt(random, key)] = SomeJson(random);
    if (!random.OneIn(8)) object[key] = SomeJson(random);
    if (random.OneIn(10)) key += std::string("\0x", 2);
    if (random.OneIn(10)) object[key] = SomeJson(random);
    if (random.OneIn(30)) object = SomeJson(random);
    const Json::Value& read = object;
    if (object.isObject()) kinds.Count(model::KindOf(object.get(key.c_str(), Json::Value())));

    std::string difference;
    int32_t integers[2] = {77, 77};
    const bool hasInteger = model::ReadInteger(read, key, integers[1]);
    difference += Compare("integer", ProtocolGetAttrInteger_4_0(read, key.c_str(), integers[0]), hasInteger);
    difference += Compare("value", integers[0], integers[1]);
    dword hexes[2] = {77, 77};
    const bool hasHex = model::ReadHex(read, key, hexes[1]);
    difference += Compare("hex", ProtocolGetAttrHex_4_0(read, key.c_str(), hexes[0]), hasHex);
    difference += Compare("value", hexes[0], hexes[1]);
    double reals[2] = {77, 77};
    const bool hasReal = model::ReadDouble(read, key, reals[1]);
    difference += Compare("double", ProtocolGetAttrDouble_4_0(read, key.c_str(), reals[0]), hasReal);
    difference += CompareNumbers("value", reals[0], reals[1]);
    std::string texts[2] = {"77", "77"};
    const bool hasText = model::ReadText(read, key, texts[1]);
    difference += Compare("text", ProtocolGetAttrString_4_0(read, key.c_str(), texts[0]), hasText);
    difference += Compare("value", texts[0], texts[1]);
    Json::Value values[2] = {77, 77};
    const bool hasObject = model::ReadObject(read, key, values[1]);
    difference += Compare("object", ProtocolGetAttrObject_4_0(read, key.c_str(), values[0]), hasObject);
    difference += Compare("value", values[0], values[1]);

    int64_t longs[2] = {77, 77};
    std::string outcomes[2];
    try {
      outcomes[0] = ProtocolGetAttrInteger64_4_0(read, key.c_str(), longs[0]) ? "read" : "not read";
    } catch (const Json::LogicError&) {
      outcomes[0] = "thrown";
    }
    try {
      outcomes[1] = model::ReadInteger64(read, key, longs[1]) ? "read" : "not read";
    } catch (const model::NotANumber&) {
      outcomes[1] = "thrown";
    }
    difference += Compare("long", outcomes[0], outcomes[1]);
    difference += Compare("value", longs[0], longs[1]);
    results.Count(outcomes[1] == "read" ? 0 : outcomes[1] == "thrown" ? 2 : 1);
    return With(difference, [&] { return Text(object); });
  });
}

// --- Entities ---

namespace {

struct Sample {
  Entity entity;
  Attributes attributes;
};

std::string Text(const Sample& sample) { return "entity '" + sample.entity.name + "'" + Text(sample.attributes); }

// Lays attributes out one behind the other, as a good configuration has them: bit groups in ascending order, each
// followed by a number, so that they stay groups of their own whichever of the other groups are selected.
class Layout {
 public:
  // `spansBytes`: a bit field may span several bytes, and then disturbs its neighbours.
  Layout(Random& random, bool spansBytes) : random_(random), spansBytes_(spansBytes) {
    sample_.entity.id = random.Int();
    sample_.entity.name = "main";
    sample_.entity.display_name = "Main";
    for (size_t parts = random.Index(4) + 1; parts > 0; --parts) AddPart(MorvixProtocolTypeStatusWritable_4_0);
    static const MorvixProtocolType_4_0 kTypes[] = {MorvixProtocolTypeStatusReadonly_4_0, MorvixProtocolTypeAlert_4_0,
                                                    MorvixProtocolTypeFault_4_0};
    for (const MorvixProtocolType_4_0 type : kTypes) {
      if (random.OneIn(3)) AddPart(type);
    }
  }

  const Sample& Get() const { return sample_; }

 private:
  void AddPart(MorvixProtocolType_4_0 type) {
    if (random_.Flip()) AddBits(type);
    if (random_.OneIn(4)) {
      AddBinary(type);
    } else {
      AddNumber(type);
    }
  }

  Attribute& Add(MorvixProtocolType_4_0 type, MorvixProtocolDataType_4_0 dataType, const Position& position) {
    sample_.attributes.emplace_back();
    Attribute& attribute = sample_.attributes.back();
    attribute.id = static_cast<int32_t>(sample_.attributes.size());
    attribute.name = "a" + std::to_string(sample_.attributes.size());
    attribute.display_name = "A" + std::to_string(sample_.attributes.size());
    attribute.type = type;
    attribute.data_type = dataType;
    attribute.position = position;
    return attribute;
  }

  void AddBits(MorvixProtocolType_4_0 type) {
    const size_t first = sample_.attributes.size();
    int32_t bit = 0;
    for (size_t fields = random_.Index(6) + 1; fields > 0; --fields) {
      int32_t len = random_.OneIn(2) ? 1 : random_.SmallInt(1, spansBytes_ ? 20 : 8);
      if (!spansBytes_ && bit / 8 != (bit + len - 1) / 8) bit = (bit / 8 + 1) * 8;
      const bool isBool = len == 1 && random_.OneIn(2);
      Attribute& attribute = Add(type, isBool ? MorvixProtocolDataTypeBool_4_0 : MorvixProtocolDataTypeEnum_4_0,
                                 BitsAt(byte_, bit, len, 0));
      if (!isBool) AddItems(attribute.enumList, len);
      bit += len + random_.SmallInt(0, 1);
    }
    const Position& last = sample_.attributes.back().position;
    const int32_t groupBytes = (last.bit_offset + last.len + 7) / 8;
    for (size_t i = first; i < sample_.attributes.size(); ++i) {
      sample_.attributes[i].position.groupByteLength = static_cast<size_t>(groupBytes);
    }
    byte_ += groupBytes;
  }

  void AddItems(std::vector<std::string>& items, int32_t len) {
    const size_t most = std::min<size_t>(size_t{1} << len, 9);
    const size_t count = random_.OneIn(3) ? random_.Index(most) + 1 : most;
    while (items.size() < count) items.push_back("i" + std::to_string(items.size()));
  }

  void AddNumber(MorvixProtocolType_4_0 type) {
    static const int32_t kLengths[] = {1, 2, 4, 8};
    const size_t size = random_.Index(4);
    const int32_t len = kLengths[size];
    Attribute& attribute = Add(type, MorvixProtocolDataType_4_0(4 + size), BytesAt(byte_, len));
    MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
    const int64_t most = len < 6 ? (int64_t{1} << 8 * len) - 1 : int64_t{1} << 48;
    scaling.max = random_.Flip() ? most : random_.Between(1, most);
    scaling.min = random_.Flip() ? 0 : random_.Between(0, scaling.max - 1);
    scaling.step = 1;
    static const double kRatios[] = {1, 0.5, 0.1, 2, 10, 0.01, -1, 0.125};
    static const double kAdditions[] = {0, -40, 0.5, 100};
    scaling.ratio = random_.Pick(kRatios);
    scaling.addition = random_.Pick(kAdditions);
    byte_ += len;
  }

  void AddBinary(MorvixProtocolType_4_0 type) {
    const int32_t len = random_.SmallInt(1, 7);
    Add(type, MorvixProtocolDataTypeBinary_4_0, BytesAt(byte_, len));
    byte_ += len;
  }

  Random& random_;
  const bool spansBytes_;
  Sample sample_;
  int32_t byte_ = 0;
};

// Around what JSON writes as it is, around "version" in the order of names, and with long beginnings in common.
std::string SomeName(Random& random) {
  static const char* const kNames[] = {"",
                                       "a1",
                                       "a2",
                                       "A1",
                                       "main",
                                       "type",
                                       "version",
                                       "versions",
                                       "versio",
                                       "z",
                                       "/",
                                       "with space",
                                       "~",
                                       "\x7f",
                                       "\x1f",
                                       "\"",
                                       "back\\slash",
                                       "\xc3\xbc",
                                       "\xff\xfe",
                                       "temperature",
                                       "temperature 1",
                                       "temperature 2",
                                       "temperatuRe"};
  if (random.OneIn(20)) return std::string("a1\0b", 4);
  return random.Pick(kNames);
}

// Changes one thing of one attribute, or of the entity.
void Spoil(Random& random, Sample& sample) {
  if (sample.attributes.empty()) return;
  Attribute& attribute = sample.attributes[random.Index(sample.attributes.size())];
  Position& position = attribute.position;
  const uint64_t payloadBytes = std::min<uint64_t>(model::PayloadLength(sample.attributes), 99);
  switch (random.Below(17)) {
    case 0: {
      static const uint32_t kTypes[] = {0, 1, 2, 4, 8, 3, 12, 16};
      attribute.type = MorvixProtocolType_4_0(random.Pick(kTypes));
      break;
    }
    case 1: {
      static const uint32_t kDataTypes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x7fffffff, 0x80000000, 0xffffffff};
      attribute.data_type = MorvixProtocolDataType_4_0(random.Pick(kDataTypes));
      break;
    }
    case 2:
      position = SomePosition(random, payloadBytes);
      break;
    case 3:
      position.byte_offset = Clamped(position.byte_offset + random.Between(-3, 3));
      break;
    case 4:
      position.bit_offset = Clamped(position.bit_offset + random.Between(-9, 9));
      break;
    case 5:
      position.len = Clamped(position.len + random.Between(-3, 9));
      break;
    case 6:
      position.groupByteLength = GroupLength(random, payloadBytes);
      break;
    case 7: {
      static const int32_t kUnits[] = {-1, 0, 1, 2};
      position.unit = MorvixProtocolUnit_4_0(random.Pick(kUnits));
      break;
    }
    case 8: {
      const SomeScaling scaling(random);
      attribute.uint_spec.min = static_cast<int64_t>(scaling.min);
      attribute.uint_spec.max = static_cast<int64_t>(scaling.max);
      attribute.uint_spec.step = random.Flip() ? 1 : static_cast<int32_t>(static_cast<uint32_t>(scaling.step));
      attribute.uint_spec.ratio = scaling.ratio;
      attribute.uint_spec.addition = scaling.addition;
      break;
    }
    case 9:
      attribute.enumList.resize(random.Index(5));
      break;
    case 10:
      attribute.name = SomeName(random);
      break;
    case 11:
      attribute.display_name = SomeName(random);
      break;
    case 12:
      sample.entity.name = SomeName(random);
      break;
    case 13:
      sample.attributes.push_back(attribute);
      break;
    case 14:
      sample.attributes.clear();
      break;
    case 15:
      position.byte_offset = random.Flip() ? random.SmallInt(-70000, -1) : random.SmallInt(0, 300);
      break;
    default:
      std::swap(attribute, sample.attributes[random.Index(sample.attributes.size())]);
      break;
  }
}

Sample SomeSample(Random& random) {
  Sample sample = Layout(random, random.Flip()).Get();
  if (random.OneIn(3)) return sample;
  do {
    Spoil(random, sample);
  } while (random.Flip());
  return sample;
}

// More than this is not encoded here: it would take the model long and the cases' rules are the same.
const uint64_t kMostPayloadBytes = 70000;

// --- Value documents ---

// A value that the attribute takes.
Json::Value GoodValue(Random& random, const Attribute& attribute) {
  if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) {
    static const Json::Value kValues[] = {0, 1, true, false, "0", "1", 2, -1, "17", "", 3000000000u};
    return random.Pick(kValues);
  }
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
    const int32_t index = static_cast<int32_t>(random.Index(std::max<size_t>(attribute.enumList.size(), 1)));
    if (random.OneIn(3)) return std::to_string(index);
    return random.OneIn(3) ? Json::Value(static_cast<Json::UInt>(index)) : Json::Value(index);
  }
  if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
    if (random.OneIn(4)) return SomeBase64(random, random.Index(9));
    const int32_t len = std::min(std::max(attribute.position.len, 0), 99);
    return model::Base64Text(random.SomeBytes(static_cast<size_t>(len)));
  }
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  const bool isRange = scaling.min >= 0 && scaling.max >= scaling.min;
  const double raw = isRange ? static_cast<double>(random.Between(scaling.min, scaling.max)) : 3;
  const volatile double product = raw * scaling.ratio;
  double user = product + scaling.addition;
  if (random.OneIn(4)) user += scaling.ratio * (random.Flip() ? 0.4 : 0.5);
  if (random.OneIn(4)) return model::NumberText(user);
  const bool isInteger = std::fabs(user) < 1e9 && user == std::floor(user);
  return isInteger && random.Flip() ? Json::Value(static_cast<Json::Int>(user)) : Json::Value(user);
}

Json::Value SomeValues(Random& random, const Attributes& attributes) {
  Json::Value values(Json::objectValue);
  const uint64_t badOnesIn = random.OneIn(3) ? 3 : 30;
  for (const Attribute& attribute : attributes) {
    if (random.OneIn(4)) continue;
    const std::string key = random.OneIn(10) ? attribute.name : std::string(attribute.name.c_str());
    values[key] = random.OneIn(badOnesIn) ? SomeJson(random) : GoodValue(random, attribute);
  }
  return values;
}

Json::Value SomeRoot(Random& random, const Sample& sample) {
  if (random.OneIn(30)) return SomeJson(random);
  Json::Value root(Json::objectValue);
  root["other"] = SomeScalar(random);
  root[random.OneIn(30) ? "else" : sample.entity.name] =
      random.OneIn(30) ? SomeJson(random) : SomeValues(random, sample.attributes);
  return root;
}

// --- Configurations as JSON ---

std::string InSomeCase(Random& random, std::string text) {
  if (!random.OneIn(4)) return text;
  for (char& letter : text) {
    if (letter >= 'a' && letter <= 'z' && random.Flip()) letter = static_cast<char>(letter - 'a' + 'A');
  }
  return text;
}

Json::Value SomeForm(Random& random, int64_t number) {
  if (random.OneIn(6)) return std::to_string(number);
  if (random.OneIn(12) && number >= 0) {
    std::ostringstream text;
    text << (random.Flip() ? "0x" : " 0x") << std::hex << number;
    return text.str();
  }
  if (number >= INT32_MIN && number <= INT32_MAX) {
    if (number >= 0 && random.OneIn(6)) return static_cast<Json::UInt>(number);
    return static_cast<Json::Int>(number);
  }
  return static_cast<Json::Int64>(number);
}

Json::Value SomeForm(Random& random, double number) {
  if (random.OneIn(6)) return model::NumberText(number);
  return number;
}

const char* TypeKeyword(uint32_t type) {
  switch (type) {
    case 1:
      return "status_writable";
    case 2:
      return "status_readonly";
    case 4:
      return "alert";
    case 8:
      return "fault";
    default:
      return "status";
  }
}

const char* DataTypeKeyword(uint32_t type) {
  static const char* const kKeywords[] = {"int8", "bool", "enum", "binary", "uint8", "uint16", "uint32", "uint64"};
  return kKeywords[type < 8 ? type : 0];
}

Json::Value ToJson(Random& random, const Attribute& attribute) {
  Json::Value json;
  json["id"] = SomeForm(random, int64_t{attribute.id});
  json["name"] = attribute.name;
  json["display_name"] = attribute.display_name;
  json["desc"] = attribute.desc;
  json["type"] = InSomeCase(random, TypeKeyword(attribute.type));
  json["data_type"] = InSomeCase(random, DataTypeKeyword(attribute.data_type));
  Json::Value& position = json["position"];
  position["byte_offset"] = SomeForm(random, int64_t{attribute.position.byte_offset});
  position["bit_offset"] = SomeForm(random, int64_t{attribute.position.bit_offset});
  static const char* const kUnits[] = {"bits", "byte", "bit"};
  const int32_t unit = attribute.position.unit;
  position["unit"] = InSomeCase(random, unit == 0 && random.Flip() ? "" : kUnits[unit == 0 ? 1 : unit == 1 ? 2 : 0]);
  position["len"] = SomeForm(random, int64_t{attribute.position.len});
  if (ProtocolDataTypeIsUInt(attribute.data_type) || random.OneIn(20)) {
    Json::Value& scaling = json["uint_spec"];
    scaling["min"] = SomeForm(random, attribute.uint_spec.min);
    scaling["max"] = SomeForm(random, attribute.uint_spec.max);
    scaling["ratio"] = SomeForm(random, attribute.uint_spec.ratio);
    scaling["addition"] = SomeForm(random, attribute.uint_spec.addition);
  }
  if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0 || random.OneIn(20)) {
    Json::Value& items = json["enum"] = Json::Value(Json::arrayValue);
    for (const std::string& item : attribute.enumList) {
      if (random.OneIn(20)) items.append(SomeScalar(random));
      if (random.OneIn(60)) items[items.size() + 1] = SomeScalar(random);
      items.append(item);
    }
  }
  return json;
}

// Takes one member of an object away, misspells it, or puts something else in its place.
void SpoilMember(Random& random, Json::Value& object) {
  const std::vector<std::string> names = object.getMemberNames();
  if (names.empty()) return;
  const std::string& name = names[random.Index(names.size())];
  if (random.Flip()) {
    object[name] = random.OneIn(4) ? Json::Value("") : SomeJson(random);
    return;
  }
  const Json::Value member = object[name];
  object.removeMember(name);
  if (random.Flip()) object[Misspelt(random, name)] = member;
}

void SpoilConfiguration(Random& random, Json::Value& entity) {
  Json::Value& attributes = entity["attrs"];
  if (attributes.isArray() && !attributes.empty() && !random.OneIn(8)) {
    Json::Value& attribute = attributes[static_cast<Json::ArrayIndex>(random.Index(attributes.size()))];
    if (!attribute.isObject() || random.OneIn(10)) {
      attribute = SomeJson(random);
    } else if (attribute["position"].isObject() && random.OneIn(3)) {
      SpoilMember(random, attribute["position"]);
    } else if (attribute.isMember("uint_spec") && attribute["uint_spec"].isObject() && random.OneIn(2)) {
      SpoilMember(random, attribute["uint_spec"]);
    } else {
      SpoilMember(random, attribute);
    }
  } else if (random.OneIn(3)) {
    SpoilMember(random, entity);
  } else if (random.OneIn(3)) {
    entity["attrs"] = SomeJson(random);
  } else if (random.OneIn(6)) {
    entity = SomeJson(random);
  }
}

Json::Value ToJson(Random& random, const Sample& sample) {
  Json::Value json;
  json["id"] = SomeForm(random, int64_t{sample.entity.id});
  json["name"] = sample.entity.name;
  json["display_name"] = sample.entity.display_name;
  json["attrs"] = Json::Value(Json::arrayValue);
  for (const Attribute& attribute : sample.attributes) {
    Json::ArrayIndex next = json["attrs"].size();
    if (random.OneIn(100)) next += 1 + static_cast<Json::ArrayIndex>(random.Below(2));  // a gap reads as null
    json["attrs"][next] = ToJson(random, attribute);
  }
  return json;
}

Json::Value SomeConfiguration(Random& random, const Sample& sample) {
  Json::Value json = ToJson(random, sample);
  while (json.isObject() && random.Flip()) SpoilConfiguration(random, json);
  return json;
}

}  // namespace

// What a good configuration writes it reads back, so that the model's halves fit together.
TEST(ModelEncode, WritesWhatTheModelReads) {
  size_t values = 0;
  ForEachCase(2026040621, 1000, [&](Random& random) -> std::string {
    const Sample sample = Layout(random, false).Get();
    const Json::Value configuration = ToJson(random, sample);
    Json::Value root(Json::objectValue);
    Json::Value& given = root["main"] = Json::Value(Json::objectValue);
    std::map<std::string, Json::Value> expected;
    for (const Attribute& attribute : sample.attributes) {
      if (attribute.type != MorvixProtocolTypeStatusWritable_4_0 || random.OneIn(4)) continue;
      if (attribute.data_type == MorvixProtocolDataTypeBool_4_0) {
        given[attribute.name] = expected[attribute.name] = random.Flip();
      } else if (attribute.data_type == MorvixProtocolDataTypeEnum_4_0) {
        given[attribute.name] = expected[attribute.name] = std::to_string(random.Below(attribute.enumList.size()));
      } else if (attribute.data_type == MorvixProtocolDataTypeBinary_4_0) {
        given[attribute.name] = expected[attribute.name] =
            model::Base64Text(random.SomeBytes(static_cast<size_t>(attribute.position.len)));
      } else {
        const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
        const volatile double product = static_cast<double>(random.Between(scaling.min, scaling.max)) * scaling.ratio;
        given[attribute.name] = product + scaling.addition;
        expected[attribute.name] = model::NumberText(product + scaling.addition);
      }
    }
    const model::Encoded encoded = model::EncodeEntity(configuration, root);
    if (expected.empty() != (encoded.sizeValue == 0)) return Text(sample) + "\n" + Text(root);
    Bytes payload = encoded.value;
    payload.resize(static_cast<size_t>(model::PayloadLength(sample.attributes)));
    const model::Decoded decoded = model::DecodeEntity(configuration, payload, Json::Value());
    std::string difference;
    for (const auto& [name, value] : expected) {
      difference += Compare(name.c_str(), decoded.document["main"][name]["value"], value);
      ++values;
    }
    return With(difference, [&] { return Text(sample) + "\n" + Text(root) + "\n" + Text(payload); });
  });
  EXPECT_GT(values, 2000u);
}

TEST(CalculateAttributesGroupByteSizeWithRange, AgreesWithTheModel) {
  Tally outcomes({"unchanged", "changed"});
  ForEachCase(2026040622, 50000, [&](Random& random) -> std::string {
    Attributes before(random.Index(6));
    for (Attribute& attribute : before) {
      attribute.data_type = MorvixProtocolDataType_4_0(random.OneIn(3) ? random.Below(9) : 1 + random.Below(2));
      attribute.position = BitsAt(0, random.OneIn(4) ? random.Int() : random.SmallInt(-20, 40),
                                  random.OneIn(4) ? random.Int() : random.SmallInt(-20, 40), 777);
    }
    const size_t start = random.OneIn(8) ? SIZE_MAX - random.Index(2) : random.Index(6);
    const size_t end = random.OneIn(8) ? SIZE_MAX - random.Index(2) : start + random.Index(4) - 1;
    Attributes attributes = before;
    CalculateAttributesGroupByteSizeWithRange(attributes, start, end);
    Attributes expected = before;
    model::SizeRange(expected, start, end);
    bool isChanged = false;
    for (const Attribute& attribute : expected) isChanged = isChanged || attribute.position.groupByteLength != 777;
    outcomes.Count(isChanged ? 1 : 0);
    return With(CompareAttributes(attributes, expected),
                [&] { return "from " + std::to_string(start) + " to " + std::to_string(end) + Text(before); });
  });
}

TEST(ParseEntity, AgreesWithTheModel) {
  Tally outcomes({"unusable", "usable", "thrown"});
  LineTally lines({"Filter entity",
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
  LogCapture log;
  ForEachCase(2026040623, 10000, [&](Random& random) -> std::string {
    const Json::Value configuration = SomeConfiguration(random, SomeSample(random));
    static const int kMatchTypes[] = {1, 15, 15, 6, 0, -1};
    const int matchTypes = random.Pick(kMatchTypes);
    Attributes attributes;
    Entity entity;
    bool isUsable = false;
    bool hasThrown = false;
    try {
      isUsable = ProtocolParseEntity_4_0(configuration, matchTypes, attributes, entity);
    } catch (const Json::LogicError&) {
      hasThrown = true;
    }
    const model::Parsed parsed = model::Parse(configuration, matchTypes);
    outcomes.Count(parsed.hasThrown ? 2 : parsed.usable ? 1 : 0);
    lines.Count(parsed.lines);
    std::string difference = Compare("thrown", hasThrown, parsed.hasThrown);
    difference += Compare("usable", isUsable, parsed.usable);
    difference += CompareLines(log.Take(), parsed.lines);
    difference += CompareAttributes(attributes, parsed.attributes);
    difference += Compare("id", entity.id, parsed.entity.id);
    difference += Compare("name", entity.name, parsed.entity.name);
    difference += Compare("display_name", entity.display_name, parsed.entity.display_name);
    if (parsed.usable) {
      Attributes sized = parsed.attributes;
      model::SizeRuns(sized);
      difference += CompareAttributes(sized, parsed.attributes);
    }
    return With(difference, [&] { return "groups " + std::to_string(matchTypes) + " of " + Text(configuration); });
  });
}

// --- Encoding and decoding of the module ---

namespace {

// The module's package against what the model says it holds; the fields that are not the encoder's included.
std::string ComparePackages(const MorvixProtocolPackage_4_0& package, const model::Encoded& encoded) {
  std::string difference = Compare("flags", package.flags != nullptr, encoded.hasBuffers);
  difference += Compare("value", package.value != nullptr, encoded.hasBuffers);
  difference += Compare("sizeFlags", package.sizeFlags, encoded.sizeFlags);
  difference += Compare("sizeValue", package.sizeValue, encoded.sizeValue);
  if (difference.empty() && encoded.hasBuffers) {
    difference += Compare("flags", Bytes(package.flags, package.flags + encoded.flags.size()), encoded.flags);
    difference += Compare("payload", Bytes(package.value, package.value + encoded.value.size()), encoded.value);
  }
  difference += Compare("cmd", uint32_t{package.cmd}, 7u);
  difference += Compare("subDid", package.subDid, 0x01020304);
  difference += Compare("needInsertSubDid", unsigned{package.needInsertSubDid}, 9u);
  return difference;
}

void Prepare(OwnedPackage& package) {
  package.cmd = MorvixProtocolCommandCCWriteReq_4_0;
  package.subDid = 0x01020304;
  package.needInsertSubDid = 9;
}

// A payload as a device may send it, one of chance, or one of another length.
Bytes SomePayload(Random& random, const Sample& sample) {
  const uint64_t length = model::PayloadLength(sample.attributes);
  Bytes payload;
  if (length <= kMostPayloadBytes && !random.OneIn(3)) {
    Json::Value root;
    Json::Value& values = root[sample.entity.name] = Json::Value(Json::objectValue);
    for (const Attribute& attribute : sample.attributes) {
      values[attribute.name.c_str()] = GoodValue(random, attribute);
    }
    payload = model::EncodeAttributes(sample.entity, sample.attributes, root).value;
  } else {
    payload = random.SomeBytes(static_cast<size_t>(std::min(length, kMostPayloadBytes)));
  }
  if (!payload.empty() && random.OneIn(6)) payload[random.Index(payload.size())] = random.Byte();
  if (random.OneIn(8)) payload.resize(random.Index(payload.size() + 9));
  if (random.OneIn(60)) payload.clear();
  return payload;
}

Json::Value SomeDocument(Random& random, const Sample& sample) {
  if (random.Flip()) return Json::Value();
  if (random.OneIn(6)) return SomeJson(random);
  Json::Value document(Json::objectValue);
  document["other"] = SomeJson(random);
  if (random.OneIn(6)) {
    document[sample.entity.name] = SomeJson(random);
  } else if (random.Flip()) {
    Json::Value& values = document[sample.entity.name];
    values["a1"] = SomeJson(random);
    values["A2"]["more"] = 1;
    values["a2"]["value"] = SomeScalar(random);
  }
  return document;
}

// Without bytes either the pointer or the size is missing, or both.
MorvixProtocolPackage_4_0 PackageOf(Random& random, Bytes& payload) {
  static byte unread = 0;
  MorvixProtocolPackage_4_0 package;
  package.value = payload.data();
  package.sizeValue = payload.size();
  if (payload.empty()) {
    package.value = random.Flip() ? nullptr : &unread;
    package.sizeValue = package.value == nullptr && random.Flip() ? 1 : 0;
  }
  return package;
}

const std::initializer_list<const char*> kOutcomes = {"written", "left out", "failed"};

}  // namespace

TEST(EncodeAttributes, AgreesWithTheModel) {
  Tally outcomes(kOutcomes);
  Tally calls({"no buffers", "buffers without contents", "whole packages", "too large for the model"});
  LineTally lines({"No data will encode.", "Write bool value failed.", "Invalid enum value", "Write enum value failed.",
                   "Write binary value failed.", "Validate uint value failed.", "Write uint value failed.",
                   "Attribute type is unknown, skip."});
  LogCapture log;
  ForEachCase(2026040624, 40000, [&](Random& random) -> std::string {
    const Sample sample = SomeSample(random);
    const Json::Value root = SomeRoot(random, sample);
    if (model::PayloadLength(sample.attributes) > kMostPayloadBytes) {
      calls.Count(3);
      return "";
    }
    OwnedPackage package;
    Prepare(package);
    ProtocolEncodeAttributes_4_0(sample.entity, sample.attributes, package, root);
    const model::Encoded encoded = model::EncodeAttributes(sample.entity, sample.attributes, root);
    for (const Outcome outcome : encoded.outcomes) outcomes.Count(outcome);
    calls.Count(!encoded.hasBuffers ? 0 : encoded.sizeValue == 0 ? 1 : 2);
    lines.Count(encoded.lines);
    return With(ComparePackages(package, encoded) + CompareLines(log.Take(), encoded.lines),
                [&] { return Text(sample) + "\n" + Text(root); });
  });
}

TEST(DecodeAttributes, AgreesWithTheModel) {
  Tally outcomes(kOutcomes);
  LineTally lines({"No data to decode.", "Invalid enum value", "Unknown attribute type.", "Decode value is invalid."});
  LogCapture log;
  ForEachCase(2026040625, 30000, [&](Random& random) -> std::string {
    const Sample sample = SomeSample(random);
    Bytes payload = SomePayload(random, sample);
    const Json::Value before = SomeDocument(random, sample);
    Json::Value document = before;
    ProtocolDecodeAttributes_4_0(sample.entity, sample.attributes, PackageOf(random, payload), document);
    const model::Decoded decoded = model::DecodeAttributes(sample.entity, sample.attributes, payload, before);
    for (const Outcome outcome : decoded.outcomes) outcomes.Count(outcome);
    lines.Count(decoded.lines);
    return With(Compare("document", document, decoded.document) + CompareLines(log.Take(), decoded.lines),
                [&] { return Text(sample) + "\n" + Text(payload) + "\n" + Text(before); });
  });
}

TEST(EncodeEntity, AgreesWithTheModel) {
  Tally calls({"unusable", "thrown", "no buffers", "buffers without contents", "whole packages"});
  LogCapture log;
  ForEachCase(2026040626, 6000, [&](Random& random) -> std::string {
    const Sample sample = SomeSample(random);
    const Json::Value configuration = SomeConfiguration(random, sample);
    const Json::Value root = SomeRoot(random, sample);
    if (model::PayloadLength(model::Parse(configuration, 1).attributes) > kMostPayloadBytes) return "";
    OwnedPackage package;
    Prepare(package);
    bool hasThrown = false;
    try {
      ProtocolEncodeEntity_4_0(configuration, package, root);
    } catch (const Json::LogicError&) {
      hasThrown = true;
    }
    const model::Encoded encoded = model::EncodeEntity(configuration, root);
    const bool isUnusable = !encoded.lines.empty() && encoded.lines.back().text == "Get entity info failed.";
    calls.Count(isUnusable ? 0 : hasThrown ? 1 : !encoded.hasBuffers ? 2 : encoded.sizeValue == 0 ? 3 : 4);
    return With(Compare("thrown", hasThrown, encoded.hasThrown) + ComparePackages(package, encoded) +
                    CompareLines(log.Take(), encoded.lines),
                [&] { return Text(configuration) + "\n" + Text(root); });
  });
}

TEST(DecodeEntity, AgreesWithTheModel) {
  Tally calls({"unusable", "thrown", "nothing to decode", "decoded to the end", "ended early"});
  LogCapture log;
  ForEachCase(2026040627, 6000, [&](Random& random) -> std::string {
    const Sample sample = SomeSample(random);
    const Json::Value configuration = SomeConfiguration(random, sample);
    Bytes payload = SomePayload(random, sample);
    const Json::Value before = SomeDocument(random, sample);
    Json::Value document = before;
    bool hasThrown = false;
    try {
      ProtocolDecodeEntity_4_0(configuration, PackageOf(random, payload), document);
    } catch (const Json::LogicError&) {
      hasThrown = true;
    }
    const model::Decoded decoded = model::DecodeEntity(configuration, payload, before);
    const bool isUnusable = !decoded.lines.empty() && decoded.lines.back().text == "Get entity info failed.";
    const bool isFailed = !decoded.outcomes.empty() && decoded.outcomes.back() == Outcome::kFailed;
    calls.Count(isUnusable ? 0 : hasThrown ? 1 : decoded.outcomes.empty() ? 2 : isFailed ? 4 : 3);
    return With(Compare("thrown", hasThrown, decoded.hasThrown) + Compare("document", document, decoded.document) +
                    CompareLines(log.Take(), decoded.lines),
                [&] { return Text(configuration) + "\n" + Text(payload) + "\n" + Text(before); });
  });
}

// --- Packets and receive results of the module ---

TEST(PackPackage, AgreesWithTheModel) {
  Tally outcomes({"refused", "packed"});
  LineTally lines({"Invalid command 0", "Invalid command 3", "Invalid command 4", "Invalid command 5",
                   "Invalid command 6", "Invalid command 9", "Invalid command 10", "Invalid command 14",
                   "Invalid command 15", "Invalid command 16", "Invalid command -1"});
  LogCapture log;
  ForEachCase(2026040628, 50000, [&](Random& random) -> std::string {
    Bytes flags = random.SomeBytes(random.OneIn(200) ? 1023 + random.Index(3) : random.Index(4));
    Bytes value = random.SomeBytes(random.OneIn(500) ? 16383 + random.Index(3) : random.Index(9));
    MorvixProtocolPackage_4_0 package;
    package.cmd = MorvixProtocolCommand_4_0(random.Flip() ? 1 + 6 * random.Below(2) : random.Below(17));
    if (random.OneIn(60)) package.cmd = MorvixProtocolCommand_4_0(UINT32_MAX);
    package.subDid = static_cast<int32_t>(static_cast<uint32_t>(random.Next()));
    package.needInsertSubDid = random.Flip() ? 0 : random.Byte();
    package.flags = random.OneIn(10) ? nullptr : flags.data();
    package.sizeFlags = flags.size();
    package.value = random.OneIn(10) ? nullptr : value.data();
    package.sizeValue = value.size();
    const size_t bufLen = random.OneIn(3) ? random.Index(16) : 17500;
    const Bytes before(bufLen + 4, 0xee);
    Bytes buffer = before;
    const size_t size = ProtocolPackPackage_4_0(package, buffer.data(), bufLen);
    Bytes expected = before;
    model::Lines expectedLines;
    const size_t expectedSize = model::Pack(package, expected, bufLen, expectedLines);
    outcomes.Count(expectedSize == 0 ? 0 : 1);
    lines.Count(expectedLines);
    std::string difference = Compare("size", size, expectedSize) + CompareLines(log.Take(), expectedLines);
    if (expectedSize != 0) difference += Compare("packet", buffer, expected);
    return With(difference, [&] {
      return "command " + std::to_string(package.cmd) + ", flags " + std::to_string(flags.size()) + ", value " +
             std::to_string(value.size()) + ", buffer " + std::to_string(bufLen);
    });
  });
}

TEST(UnpackPackage, AgreesWithTheModel) {
  Tally outcomes({"too short", "wrong command", "too long", "unpacked"});
  ForEachCase(2026040629, 20000, [&](Random& random) -> std::string {
    Bytes packet = random.SomeBytes(random.OneIn(200) ? 16383 + random.Index(4) : random.Index(9));
    if (!packet.empty() && random.Flip()) packet[0] = static_cast<byte>(3 + random.Below(2));
    OwnedPackage package;
    Prepare(package);
    const bool isAccepted = ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package);
    const model::Unpacked unpacked = model::Unpack(packet);
    outcomes.Count(!unpacked.isCleared ? 0 : unpacked.isAccepted ? 3 : unpacked.sizeValue == 0 ? 1 : 2);
    std::string difference = Compare("result", isAccepted, unpacked.isAccepted);
    difference += Compare("cmd", uint32_t{package.cmd}, unpacked.isCleared ? unpacked.command : 7u);
    difference += Compare("subDid", package.subDid, unpacked.isCleared ? 0 : 0x01020304);
    difference += Compare("sizeValue", package.sizeValue, unpacked.sizeValue);
    difference += Compare("value", package.value != nullptr, unpacked.isAccepted);
    if (package.value != nullptr) {
      difference += Compare("value", Bytes(package.value, package.value + package.sizeValue), unpacked.value);
    }
    return With(difference, [&] { return "packet of " + std::to_string(packet.size()); });
  });
}

namespace {

Json::Value SomeItem(Random& random) {
  static const Json::Value kTypes[] = {1, 2, 4, 4, 4, 8, 8, 8, 4.0, "4", true, Json::Value()};
  if (random.OneIn(8)) return SomeJson(random);
  Json::Value item(Json::objectValue);
  if (!random.OneIn(10)) item["type"] = random.Pick(kTypes);
  if (!random.OneIn(10)) item["value"] = SomeJson(random);
  if (random.OneIn(10)) item["name"] = SomeJson(random);
  if (random.OneIn(10)) item[SomeName(random)] = SomeJson(random);
  return item;
}

std::string SomeReceiveDocument(Random& random) {
  Json::Value document(Json::objectValue);
  static const Json::Value kVersions[] = {4, 4.5, "4.0", Json::Value(), 8589934592};
  document["version"] = random.OneIn(8) ? random.Pick(kVersions) : Json::Value(4.0);
  for (size_t entities = random.Index(4); entities > 0; --entities) {
    Json::Value& entity = document[SomeName(random)];
    if (random.OneIn(8)) {
      entity = SomeJson(random);
      continue;
    }
    entity = Json::Value(Json::objectValue);
    for (size_t items = random.Index(6); items > 0; --items) entity[SomeName(random)] = SomeItem(random);
  }
  std::string text = WriteJson(document);
  if (random.OneIn(10)) text.resize(random.Index(text.size()));
  if (random.OneIn(10)) text.insert(random.Index(text.size() + 1), "/* */");
  if (random.OneIn(30)) text.insert(0, random.Flip() ? "[" : "[[[[");
  if (random.OneIn(30)) text = Text(SomeJson(random));
  return text;
}

std::string SomeActiveText(Random& random) {
  static const char* const kTexts[] = {"1", "0", "0x10", "12abc", "-3"};
  return random.Flip() ? random.Pick(kTexts) : SomeText(random);
}

}  // namespace

TEST(ConvertReceiveResult, AgreesWithTheModel) {
  Tally outcomes({"refused", "without lists", "with alerts", "with faults"});
  ForEachCase(2026040630, 20000, [&](Random& random) -> std::string {
    const std::string text = SomeReceiveDocument(random);
    Json::Value alerts = 3;
    Json::Value faults;
    const std::string document = ProtocolConvertReceiveResult_4_0(text, alerts, faults);
    const model::Converted converted = model::Convert(text);
    outcomes.Count(converted.text.empty() ? 0 : !converted.faults.empty() ? 3 : !converted.alerts.empty() ? 2 : 1);
    return With(Compare("document", document, converted.text) + Compare("alerts", alerts, converted.alerts) +
                    Compare("faults", faults, converted.faults),
                [&] { return text; });
  });
}

TEST(GetAlertsOrFaults, AgreesWithTheModel) {
  Tally outcomes({"none", "some"});
  ForEachCase(2026040631, 40000, [&](Random& random) -> std::string {
    Json::Value alerts = random.OneIn(20) ? SomeJson(random) : Json::Value(Json::arrayValue);
    for (size_t count = alerts.isArray() ? random.Index(4) : 0; count > 0; --count) {
      Json::Value alert(Json::objectValue);
      alert["name"] = random.OneIn(10) ? SomeJson(random) : Json::Value(SomeName(random));
      alert["value"] = random.OneIn(3) ? SomeJson(random) : Json::Value(SomeActiveText(random));
      alerts[alerts.size() + (random.OneIn(20) ? 1 : 0)] = random.OneIn(10) ? SomeJson(random) : alert;
    }
    std::vector<TavelReceiveInfo> active = {{"earlier", 5}};
    std::vector<TavelReceiveInfo> expected = active;
    ProtocolGetAlertsOrFaults_4_0(alerts, active);
    model::AddActive(alerts, expected);
    outcomes.Count(expected.size() > 1 ? 1 : 0);
    return With(CompareActive("active", active, expected), [&] { return Text(alerts); });
  });
}

TEST(ReceivePacket, AgreesWithTheModel) {
  Tally outcomes({"refused", "accepted", "with alerts", "with faults"});
  LogCapture log;
  ForEachCase(2026040632, 15000, [&](Random& random) -> std::string {
    Sample sample = SomeSample(random);
    if (random.Flip()) {
      // Alerts that can be active: numbers and indices.
      static const MorvixProtocolType_4_0 kTypes[] = {MorvixProtocolTypeAlert_4_0, MorvixProtocolTypeFault_4_0};
      for (Attribute& attribute : sample.attributes) attribute.type = random.Pick(kTypes);
    }
    Bytes packet = SomePayload(random, sample);
    if (random.OneIn(300)) packet.resize(16383 + random.Index(3));
    packet.insert(packet.begin(), random.OneIn(20) ? random.Byte() : static_cast<byte>(3 + random.Below(2)));
    std::string document = "earlier";
    std::vector<TavelReceiveInfo> alerts = {{"earlier", 5}};
    std::vector<TavelReceiveInfo> faults = alerts;
    const bool isAccepted = ProtocolReceivePacket_4_0(sample.entity, sample.attributes, packet.data(), packet.size(),
                                                      document, alerts, faults);
    model::Received received = model::Receive(sample.entity, sample.attributes, packet);
    outcomes.Count(!received.isAccepted ? 0 : !received.faults.empty() ? 3 : !received.alerts.empty() ? 2 : 1);
    received.alerts.insert(received.alerts.begin(), {"earlier", 5});
    received.faults.insert(received.faults.begin(), {"earlier", 5});
    return With(Compare("result", isAccepted, received.isAccepted) + Compare("document", document, received.document) +
                    CompareActive("alerts", alerts, received.alerts) +
                    CompareActive("faults", faults, received.faults) + CompareLines(log.Take(), received.lines),
                [&] { return Text(sample) + "\n" + Text(packet); });
  });
}

}  // namespace codec_model_test
