// A second implementation of the codec, for tests and fuzzers only: every rule again, in plain steps, bit by bit for
// bit fields. It shares no code with the module and calls none of its operations; of the module's
// headers it uses the records and enumerations as plain data. It is slow, and it needs memory for whatever payload a
// configuration asks for (see PayloadLength).
//
// When the module fails, the model tells by which rule, so that a test can count the rules that its cases reached.

#ifndef MORVIX_TESTS_SUPPORT_CODEC_MODEL_H
#define MORVIX_TESTS_SUPPORT_CODEC_MODEL_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Protocol/AllVersions/v4/ProtocolInspection_v4.0.h"
#include "host/Logging.h"

namespace model {

using Attribute = MorvixProtocolAttribute_4_0;
using Attributes = std::vector<Attribute>;
using Bytes = std::vector<byte>;
using Element = MorvixProtocolElement_4_0;
using Entity = MorvixProtocolEntity_4_0;
using Line = LogCapture::Line;
using Lines = std::vector<Line>;
using Outcome = MorvixProtocolOutcome_4_0;
using Package = MorvixProtocolPackage_4_0;
using Position = MorvixProtocolPosition_4_0;
using Result = MorvixProtocolResult_4_0;

// --- Members of JSON objects ---

// What a JSON value counts as. Integers beyond 32 bits count as real.
enum class Kind { kNull, kBool, kSigned, kUnsigned, kReal, kText, kArray, kObject };
Kind KindOf(const Json::Value& value);

// What ReadInteger64 throws where the JSON library throws: at an array or object.
struct NotANumber {};

// The lenient readers of one member. `key` ends at its first NUL. False: no value, and `value` is as it was, except
// that ReadObject gives the member of an object whatever it is.
bool ReadInteger(const Json::Value& object, const std::string& key, int32_t& value);
bool ReadInteger64(const Json::Value& object, const std::string& key, int64_t& value);
bool ReadHex(const Json::Value& object, const std::string& key, uint32_t& value);
bool ReadDouble(const Json::Value& object, const std::string& key, double& value);
bool ReadText(const Json::Value& object, const std::string& key, std::string& value);
bool ReadObject(const Json::Value& object, const std::string& key, Json::Value& value);

// --- Configurations ---

struct Parsed {
  bool usable = false;     // the entity is; otherwise `entity` holds what was read before the fault
  bool hasThrown = false;  // at a "min" or "max" that is an array or object; what stands here was read before that
  Entity entity;
  Attributes attributes;
  std::vector<Element> elements;
  Lines lines;
};

// The attributes of the groups in `matchTypes`, in order, of one entity of a configuration.
Parsed Parse(const Json::Value& entity, int matchTypes);

// Sizes one range of attributes, both ends included, as the walk over a configuration does: from the list's last one.
void SizeRange(Attributes& attributes, size_t start, size_t end);

// Sizes a whole list at once: every run of neighbouring bools and enums of one group, from the run's last member. What
// Parse has done already; here without the walk's bookkeeping.
void SizeRuns(Attributes& attributes);

// --- Positions and bits ---

// Where a field lies or why it lies nowhere, in the order of the tests.
enum class Place {
  kBytesFound,
  kBytesStartOutside,
  kBytesTooMany,
  kBytesNone,
  kBytesEndOutside,
  kBitsFound,
  kBitsOutsideGroup,
  kBitsStartOutside,
  kBitsSpanTooMany,
  kBitsSpanNone,
  kBitsEndOutside,
  kUnknownUnit,
};

struct Field {
  Place place = Place::kUnknownUnit;
  bool isSized = false;     // byteLength is known, which may be so of a field that lies nowhere
  uint64_t byteLength = 0;  // spanned bytes
  uint64_t firstByte = 0;   // of a field that was found, from the payload's start
  bool IsFound() const { return place == Place::kBytesFound || place == Place::kBitsFound; }
};

Field Locate(uint64_t payloadBytes, const Position& position);

// The bits from `start` on, `length` of them, in place; all others become 0. Out of range: see KeepBits in the source.
uint64_t KeepBits(uint64_t word, int64_t start, int64_t length);
// These bits become 0; lengths from 64 on reach to the end.
uint64_t DropBits(uint64_t word, uint64_t start, uint64_t length);

// `spanned` are the bytes that hold the field, most significant one first. False: refused, and nothing has changed.
bool ReadBits(const Bytes& spanned, int32_t start, int32_t length, uint64_t& word);
// Writes the field's bits of `word`. The other bits of the spanned bytes come back byte-reversed if there are several.
bool WriteBits(uint64_t word, int32_t start, int32_t length, Bytes& spanned);

// One field of a word set to the low bits of `bits`, or read from it. False: no such field, and `word` or `bits` is as
// it was.
bool PutField(uint64_t bits, uint64_t shift, uint64_t length, uint64_t& word);
bool GetField(uint64_t word, uint64_t shift, uint64_t length, uint64_t& bits);

// 1 to 8 bytes, most significant first. Bytes of `word` above those are kept.
bool WriteBigEndian(uint64_t word, uint64_t count, Bytes& bytes);
bool ReadBigEndian(const Bytes& bytes, uint64_t count, uint64_t& word);

// --- Scaling and texts ---

// Whether a number is accepted, and the rule that refused it, in the order of the tests.
enum class Scaling {
  kAtMax,
  kOnGrid,
  kMaxTooLarge,  // or the raw value is
  kRangeInverted,
  kRangeBelowStep,
  kTooLarge,
  kNegative,
  kBelowMin,
  kAboveMax,
  kOffGrid,
};
bool IsAccepted(Scaling scaling);

// User value to raw value. `raw` is set if a raw value was worked out, even one that is then refused.
Scaling ToRaw(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, double user, uint64_t& raw);
// Raw value to user value. `user` is set if the raw value is accepted.
Scaling ToUser(uint64_t min, uint64_t max, uint64_t step, double ratio, double addition, uint64_t raw, double& user);

// Without the zeros after its point, nor the point if it is last. `text` ends at its first NUL.
std::string TrimNumber(const std::string& text);
std::string NumberText(double number);
std::string IndexText(uint64_t index);

std::string Base64Text(const Bytes& bytes);
// At most `capacity` bytes. `text` ends at its first NUL.
Bytes Base64Bytes(const std::string& text, size_t capacity);

// --- Values in a payload ---

struct Write {
  bool isDone = false;
  // What the writer leaves as its size: the field's bytes once a bool or number is found, else the payload's.
  uint64_t size = 0;
};
Write WriteBool(Bytes& payload, const Position& position, bool value);
Write WriteNumber(Bytes& payload, const Position& position, uint64_t value);
bool WriteBinary(Bytes& payload, const Position& position, const std::string& base64);

bool ReadBool(const Bytes& payload, const Position& position, bool& value);
// Keeps the bytes of `value` that it does not read; zero it first.
bool ReadNumber(const Bytes& payload, const Position& position, uint64_t& value);
bool ReadBinary(const Bytes& payload, const Position& position, std::string& base64);

// --- Encoding ---

struct Encoded {
  bool hasThrown = false;   // see Parsed
  bool hasBuffers = false;  // the package holds two new buffers, which hold `flags` and `value`
  Bytes flags;
  Bytes value;
  size_t sizeFlags = 0;  // what the package says is valid
  size_t sizeValue = 0;
  std::vector<Result> results;
  Lines lines;
};

// The bytes from the payload's start to the end of the attribute that reaches furthest. May be some 4 GiB; the encoding
// below allocates that much.
uint64_t PayloadLength(const Attributes& attributes);
Encoded EncodeAttributes(const Entity& entity, const Attributes& attributes, const Json::Value& root);
Encoded EncodeEntity(const Json::Value& entity, const Json::Value& root);

// --- Decoding ---

struct Decoded {
  bool hasThrown = false;  // see Parsed
  Json::Value document;
  std::vector<Result> results;
  Lines lines;
};

// `document` is what the document holds before. No bytes stand for a null payload as well.
Decoded DecodeAttributes(const Entity& entity, const Attributes& attributes, const Bytes& payload,
                         const Json::Value& document);
Decoded DecodeEntity(const Json::Value& entity, const Bytes& payload, const Json::Value& document);

// --- Packets and receive results ---

// Lays a packet out in `buffer`, which has at least bufLen + 4 bytes; gives its size, or 0.
size_t Pack(const Package& package, Bytes& buffer, size_t bufLen, Lines& lines);

struct Unpacked {
  bool isAccepted = false;
  bool isCleared = false;  // the package was cleared, then `command` and `sizeValue` set
  uint32_t command = 0;
  size_t sizeValue = 0;
  Bytes value;  // of an accepted packet
};
Unpacked Unpack(const Bytes& packet);

struct Converted {
  std::string text;  // empty when the document is rejected
  Json::Value alerts = Json::Value(Json::arrayValue);
  Json::Value faults = Json::Value(Json::arrayValue);
};
// The text of a receive document to the application's document.
Converted Convert(const std::string& text);

// Appends the active ones.
void AddActive(const Json::Value& alerts, std::vector<TavelReceiveInfo>& active);

struct Received {
  bool isAccepted = false;
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  Lines lines;
};
// Everything from the received bytes to the active alerts, one step after the other.
Received Receive(const Entity& entity, const Attributes& attributes, const Bytes& packet);

}  // namespace model

#endif
