#include "inspect/model/Summary.h"

#include <fmt/format.h>

#include <algorithm>

#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

BitRange InPacket(const BitRange& bits) {
  return bits.EndByte() <= MorvixProtocolMaxPayloadBytes_4_0 ? bits : BitRange();
}

// attrs[3] (mode)
std::string ElementText(const Element& element, size_t index) {
  std::string name;
  const bool isNamed = ProtocolGetAttrString_4_0(*element.json, "name", name);
  return fmt::format("attrs[{}]", index) + (isNamed ? " (" + Escaped(name) + ")" : "");
}

// How reading and writing of one element differ; empty when they do not.
std::string DifferenceText(const EntityModel& entity, size_t index) {
  const bool isRead = entity.Read(index) != nullptr;
  const bool isWritten = entity.Written(index) != nullptr;
  if (!isRead && !isWritten) return " is dropped";
  if (!isRead) return " can be written but not read: decoding drops it";
  if (!isWritten) {
    return entity.Elements()[index].IsWritable() ? " can be read but not written: encoding drops it; dp4 lint tells why"
                                                 : "";
  }
  const Places places = PlacesOf(entity, index);
  if (places.read == places.written) return "";
  const std::string read = PlaceText(places.read);
  const std::string written = PlaceText(places.written);
  if (places.written.IsEmpty()) return " is read at " + read + " but has no place in a write";
  if (places.read.IsEmpty()) return " is written at " + written + " but has no place in what is read";
  return " is read at " + read + " but written at " + written;
}

}  // namespace

Places PlacesOf(const EntityModel& entity, size_t element) {
  const Field* read = entity.Read(element);
  const Field* written = entity.Written(element);
  return {read == nullptr ? BitRange() : InPacket(read->bitsInLonger),
          written == nullptr ? BitRange() : InPacket(written->bits)};
}

size_t PayloadBytesOf(const EntityModel& entity) {
  return std::max(entity.Reading().payloadBytes, entity.Writing().payloadBytes);
}

std::string EntityTitle(const EntityModel& entity) {
  const MorvixProtocolEntity_4_0& info = entity.Info();
  return fmt::format("{} \"{}\", id {}", NameText(info.name), Escaped(info.display_name), info.id);
}

std::string PayloadSummary(const EntityModel& entity) {
  const size_t payloadBytes = PayloadBytesOf(entity);
  const size_t writtenBytes = entity.Writing().payloadBytes;
  const std::string payload = Count(payloadBytes, "byte") + " of payload";
  if (writtenBytes == 0) return payload + ", none in a write";
  if (writtenBytes == payloadBytes) return payload + ", all in a write";
  return fmt::format("{}, the first {} in a write", payload, writtenBytes);
}

std::string DroppedSummary(const EntityModel& entity) {
  std::vector<std::string> dropped;
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const Element& element = entity.Elements()[i];
    if (!element.droppedOnReading.empty() || !element.droppedOnWriting.empty()) {
      dropped.push_back(ElementText(element, i));
    }
  }
  if (dropped.empty()) return "";
  return Listed(dropped, dropped.size()) + (dropped.size() == 1 ? " is dropped" : " are dropped");
}

std::vector<std::string> Notes(const EntityModel& entity) {
  std::vector<std::string> notes;
  const size_t payloadBytes = PayloadBytesOf(entity);
  for (size_t i = 0; i < entity.Elements().size(); ++i) {
    const Element& element = entity.Elements()[i];
    const std::string difference = DifferenceText(entity, i);
    const std::string reason = element.droppedOnReading.empty() ? "" : ", for its '" + element.droppedOnReading + "'";
    if (!difference.empty()) notes.push_back(fmt::format("{}{}{}", ElementText(element, i), difference, reason));
    if (PlacesOf(entity, i).read.EndByte() > payloadBytes) {
      notes.push_back(ElementText(element, i) + " lies after the payload's end and is read from longer payloads only");
    }
  }
  if (payloadBytes > MorvixProtocolMaxPayloadBytes_4_0) {
    notes.push_back(fmt::format("a packet carries at most {} bytes of payload", MorvixProtocolMaxPayloadBytes_4_0));
  }
  return notes;
}

}  // namespace morvix::inspect
