// An entity as decoding and encoding see it, and what it takes to write that down for people. Formatters are pure: they
// return text. Texts of a configuration are escaped before they reach a result.

#ifndef MORVIX_DP4_SHOW_H
#define MORVIX_DP4_SHOW_H

#include <iosfwd>
#include <string>
#include <vector>

#include "Input.h"

namespace dp4 {

// The longest payload that a packet carries.
constexpr size_t kMaxPayloadBytes = 16384;

// An attribute that decoding or encoding takes. The two may differ in its place, for each sizes the bit groups from the
// attributes that it takes itself.
struct AttributeView {
  MorvixProtocolAttribute_4_0 attribute;  // as decoding sees it, or as encoding does when decoding leaves it out
  bool isWritten = false;
  size_t flagBit = 0;        // of the flag bitmap, when it is written
  std::vector<size_t> bits;  // of the payload, as FieldBits gives them; empty when it has no place in any packet
};

struct EntityView {
  MorvixProtocolEntity_4_0 info;
  std::vector<AttributeView> attributes;  // in configuration order
  size_t payloadBytes = 0;
  size_t writtenBytes = 0;         // of the payload of a write
  std::vector<std::string> notes;  // what is not as it seems, a line each
};

// The module's log lines go to `log` unless that is null. Throws UsageError when the entity is unusable.
EntityView ViewEntity(const JsonText& configuration, const Json::Value& entity, std::ostream* log);

// kettle "Kettle", id 0
std::string EntityTitle(const EntityView& view);

// 6 bytes of payload, the first 2 in a write
std::string PayloadSummary(const EntityView& view);

// Payload bits as "2" or "2-3" for whole bytes, else from the most significant one on as "1.4" or "1.1-2.6" (byte.bit);
// "nowhere" for none.
std::string PlaceText(std::vector<size_t> bits);

// The same text without anything that could forge a line, steer a terminal, or hide: such characters, and bytes that
// are no UTF-8, become escapes with a backslash, and so does the backslash.
std::string Escaped(const std::string& text);

// An escaped name that can be seen even when it is empty.
std::string NameText(const std::string& name);

// The columns that an escaped text takes.
size_t TextWidth(const std::string& text);

// An escaped text in lines of at most `width` columns, if possible broken at its separators. What does not fit into
// `maxLines` is cut off and ends with `ellipsis`, one column wide.
std::vector<std::string> Wrapped(const std::string& text, size_t width, size_t maxLines, const char* ellipsis);

// SGR parameters of the group's colour.
const char* GroupColor(MorvixProtocolType_4_0 group);

// The text in a colour, given as SGR parameters, of a terminal; an empty colour changes nothing.
std::string Colored(const std::string& text, const std::string& color);

// Cells of the last column may have several lines.
struct TableCell {
  std::string text;
  std::string color;
};
std::string AlignedTable(const std::vector<std::vector<TableCell>>& rows);

// The table of `dp4 show` for one entity.
std::string EntityText(const EntityView& view, bool color);

}  // namespace dp4

#endif
