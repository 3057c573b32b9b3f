// Vectors as JSON and as C.

#include <fmt/format.h>

#include <iterator>
#include <set>

#include "inspect/json/Document.h"
#include "inspect/text/CSource.h"
#include "inspect/vectors/Vectors.h"

namespace morvix::inspect {

namespace {

// {"power": true, "target": 85}: of attributes that share a name, the first.
std::string ValuesText(const std::vector<VectorValue>& values) {
  std::string text;
  std::set<std::string> names;
  for (const VectorValue& value : values) {
    const std::string& name = value.field->attribute->name;
    if (!names.insert(name).second) continue;
    fmt::format_to(std::back_inserter(text), "{}{}: {}", text.empty() ? "" : ", ", json::CompactText(name),
                   value.value);
  }
  return "{" + text + "}";
}

std::string HexText(const Bytes& packet) { return inspect::HexText(packet.data(), packet.size()); }

template <typename List, typename TextOf>
std::string JsonList(const char* name, const List& list, const TextOf& textOf) {
  std::string text = fmt::format(",\n  \"{}\": [", name);
  const char* separator = "\n    ";
  for (const auto& vector : list) {
    text += separator + textOf(vector);
    separator = ",\n    ";
  }
  return text + (list.empty() ? "]" : "\n  ]");
}

// An array of one line for each vector.
template <typename List, typename TextOf>
std::string CList(const std::string& prefix, const char* name, const char* members, const List& list,
                  const TextOf& textOf) {
  if (list.empty()) return fmt::format("\n#define {}_{}_COUNT 0\n", CConstant(prefix), CConstant(name));
  std::string text = fmt::format("\n#define {}_{}_COUNT {}\nstatic const struct {{\n{}}} {}_{}[] = {{\n",
                                 CConstant(prefix), CConstant(name), list.size(), members, prefix, name);
  for (const auto& vector : list) text += "    {" + textOf(vector) + "},\n";
  return text + "};\n";
}

template <typename List>
size_t LongestPacket(const List& list) {
  size_t longest = 1;
  for (const auto& vector : list) longest = std::max(longest, vector.packet.size());
  return longest;
}

}  // namespace

std::string VectorsJson(const Vectors& vectors) {
  const auto writeText = [](const WriteVector& write) {
    return fmt::format(R"({{"values": {}, "packet": "{}"}})", ValuesText(write.values), HexText(write.packet));
  };
  const auto notificationText = [](const NotificationVector& notification) {
    return fmt::format(R"({{"packet": "{}", "document": {}, "values": {}}})", HexText(notification.packet),
                       notification.document, ValuesText(notification.values));
  };
  const auto refusedText = [](const RefusedVector& refused) {
    return fmt::format(R"({{"values": {}, "reason": {}}})", ValuesText(refused.values),
                       json::CompactText(refused.reason));
  };
  return "{\n  \"entity\": " + json::CompactText(vectors.entity) + JsonList("writes", vectors.writes, writeText) +
         JsonList("notifications", vectors.notifications, notificationText) +
         JsonList("refused", vectors.refused, refusedText) + "\n}\n";
}

std::string VectorsC(const Vectors& vectors) {
  const std::string prefix = CIdentifier(vectors.entity);
  const auto packetText = [](const Bytes& bytes) {
    return fmt::format("{}, {{{}}}", bytes.size(), CBytes(bytes.data(), bytes.size()));
  };
  const auto writeText = [&](const WriteVector& write) {
    return fmt::format("{}, {}", CString(ValuesText(write.values)), packetText(write.packet));
  };
  const auto notificationText = [&](const NotificationVector& notification) {
    return fmt::format("{}, {}, {}", CString(ValuesText(notification.values)), CString(notification.document),
                       packetText(notification.packet));
  };
  const auto refusedText = [](const RefusedVector& refused) {
    return CString(ValuesText(refused.values)) + ", " + CString(refused.reason);
  };
  const auto sized = [](const char* members, size_t longest) {
    return fmt::format("{}  size_t size;\n  unsigned char packet[{}];\n", members, longest);
  };
  return fmt::format(
             "/* Test vectors of {}: values in user units, and the packets that stand for them. */\n\n"
             "#include <stddef.h>\n",
             CCommentText(vectors.entity)) +
         CList(prefix, "writes", sized("  const char* values;\n", LongestPacket(vectors.writes)).c_str(),
               vectors.writes, writeText) +
         CList(prefix, "notifications",
               sized("  const char* values;\n  const char* document;\n", LongestPacket(vectors.notifications)).c_str(),
               vectors.notifications, notificationText) +
         CList(prefix, "refused", "  const char* values;\n  const char* reason;\n", vectors.refused, refusedText);
}

}  // namespace morvix::inspect
