// Received packets in the forms of `dp4 decode --document`:
//
//   flat     one line of JSON a packet (here broken for the page):
//              {"values": {"kettle": {"power": true, "target": "85"}, "version": 4.0},
//               "alerts": {"Lid open": false, "Low water": true}, "faults": {"Sensor broken": true},
//               "active": {"alerts": {"Low water": 1}, "faults": {"Sensor broken": 1}}}
//            "values" is the application's document, "alerts" and "faults" are the decoded values of all of them by
//            name, "active" holds the integers of those that are active. Lists of the module become objects, since the
//            names of one entity cannot repeat in them, and a pipe can then ask for one by its name.
//   decoded  the decoded document as one line of JSON.
//   table    for people: every attribute with its place, bits and value.

#ifndef MORVIX_DP4_DECODE_FORMS_H
#define MORVIX_DP4_DECODE_FORMS_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Input.h"

namespace dp4 {

// The results of packets in one form of --document.
class Form {
 public:
  explicit Form(const ParsedEntity& entity) : entity_(entity) {}
  virtual ~Form() = default;
  Form(const Form&) = delete;
  Form& operator=(const Form&) = delete;

  // Nothing when the module does not take the packet.
  virtual std::optional<std::string> ResultOf(const std::vector<byte>& packet) = 0;

  // The module's lines about the packet of the last call.
  const std::vector<LoggedLine>& Lines() const { return lines_; }

 protected:
  const ParsedEntity& Entity() const { return entity_; }
  void TakeLines() { lines_ = log_.Take(); }

  Json::Value Decode(const MorvixProtocolPackage_4_0& package) const;

 private:
  const ParsedEntity& entity_;
  LogGatherer log_;
  std::vector<LoggedLine> lines_;
};

// The form of this name, "decoded", "flat" or "table", for packets of an entity that outlives it. Throws UsageError for
// another name.
std::unique_ptr<Form> MakeForm(const std::string& name, const ParsedEntity& entity, bool color);

// Why the module does not take a packet.
std::string RefusalText(const std::vector<byte>& packet);

// One of the module's lines about a packet, with the attribute that it is about and what was expected.
std::string FailureText(const ParsedEntity& entity, const std::vector<byte>& packet, const std::string& line);

}  // namespace dp4

#endif
