// Packets of a capture, taken apart attribute by attribute: what a device sends, and what it is asked.

#ifndef MORVIX_INSPECT_PACKETS_READING_H
#define MORVIX_INSPECT_PACKETS_READING_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"
#include "inspect/packets/Packet.h"

namespace morvix::inspect {

// Why a packet has no reading.
struct PacketError {
  const char* kind = "";  // a few words, the same for all errors of one kind
  std::string text;
};

// What a reading lacks, or has too much.
enum class NoteKind {
  kSurplus,     // bytes after the last attribute
  kShort,       // the payload ends before the attribute
  kOutOfRange,  // a number that its scaling refuses
  kNoItem,      // an enum's index without item
  kNotReached,  // a value that is not told, since decoding ended at another one
};
constexpr size_t kNoteKinds = 5;

// "surplus", "short", "out-of-range", "no-item" or "not-reached".
const char* NoteName(NoteKind kind);

struct Note {
  NoteKind kind;
  const Field* field;  // null for surplus bytes
  BitRange place;      // in the payload; empty when it has none
  uint64_t raw;        // of a number or an enum that was read
};

// `"target" out-of-range: raw 121, expected 0 to 120`
std::string NoteText(const Note& note);

// An attribute in a packet, and the text of its value; empty when there is none.
struct FieldValue {
  Result result;  // "absent" where a write does not set it
  std::string text;
};

// One packet. Its pointers are valid as long as the packet and the entity are.
struct PacketReading {
  MorvixProtocolCommand_4_0 command = MorvixProtocolCommandReadReq_4_0;
  std::optional<int32_t> subDevice;
  const Direction* direction = nullptr;  // whose attributes it carries; null for a request without payload
  const byte* payload = nullptr;
  size_t payloadBytes = 0;
  std::vector<FieldValue> values;  // one for each field of the direction
  std::vector<Note> notes;
  const Field* culprit = nullptr;  // the field at which decoding ended early
  std::string failure;             // why it did, with what was expected

  // Whether a device sent it.
  bool IsReceived() const;
  // Whether the application gets this field's value: a bool or binary that cannot be read takes all of them back.
  bool IsTold(const Field& field) const;
};

// Reads one packet after the other. The entity outlives it.
class PacketReader {
 public:
  explicit PacketReader(const EntityModel& entity);

  // The reading of a packet, valid until the next call; null, with `error` set, when a device or an application would
  // refuse it as a whole. Where decoding ends early, the module's lines are logged.
  const PacketReading* Read(const Bytes& packet, PacketError& error);

 private:
  bool ReadReceived(PacketError& error);
  bool ReadWrite(const Bytes& packet, PacketError& error);
  bool ReadAll();
  void ReadThroughModule();
  void NoteValues();
  void NoteValue(const Field& field);
  Note NoteOf(NoteKind kind, const Field& field) const;

  const EntityModel& entity_;
  const bool isLocated_;  // every attribute has a place in a payload that is long enough
  PacketReading reading_;
};

// The result of decoding each of these attributes from a payload. Nothing is logged.
std::vector<Result> DecodeSilently(const EntityModel& entity, const std::vector<Attribute>& attributes,
                                   const byte* payload, size_t size);

// The text of a field's value in a payload that was decoded with this result; empty when there is no value.
std::string ValueText(const Field& field, const Result& result, const byte* payload);

// The integer by which an alert or fault with this value counts as active; 0 when it is not.
int32_t ActiveInteger(const Attribute& attribute, const FieldValue& value);

}  // namespace morvix::inspect

#endif
