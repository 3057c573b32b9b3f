// Packets in the forms in which they are given out.

#ifndef MORVIX_INSPECT_PACKETS_RESULT_FORMS_H
#define MORVIX_INSPECT_PACKETS_RESULT_FORMS_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/model/EntityModel.h"
#include "inspect/packets/Reading.h"

namespace morvix::inspect {

// Packets in one form for people or programs:
//
//   flat     one line of JSON a packet (here broken for the page):
//              {"command": 4, "values": {"kettle": {"power": true, "target": "85"}, "version": 4.0},
//               "alerts": {"Lid open": false, "Low water": true}, "faults": {"Sensor broken": true},
//               "active": {"alerts": {"Low water": 1}, "faults": {"Sensor broken": 1}},
//               "notes": [{"kind": "surplus", "place": {"firstBit": 48, "bits": 8}}]}
//            "values" is the application's document, "alerts" and "faults" are the decoded values of all of them by
//            name, "active" holds the integers of those that are active; "notes" tells what is missing and why, and is
//            absent when there is nothing to tell. Lists of the module become objects, since the names of one entity
//            cannot repeat in them, and a pipe can then ask for one by its name. A request has what applies of
//              {"command": 1, "subDevice": 5, "set": ["power"], "values": {"kettle": {"power": true}}}
//   decoded  the decoded document as one line of JSON; of received packets only.
//   table    for people: every attribute with its place, bits and value.
//   csv      "command,error" and a cell for each attribute.
enum class DocumentForm { kFlat, kDecoded, kTable, kCsv };

struct FormOptions {
  bool hasItems = false;          // enums by the names of their items
  std::vector<std::string> only;  // names or document keys of the attributes that are told; empty for all
  bool color = false;             // of tables
};

// The results of packets in one form.
class ResultForm {
 public:
  virtual ~ResultForm() = default;

  // Whether packets with this command have a result in this form.
  virtual bool Takes(const PacketReading& reading) const;

  // Whether the form tells of what this note is about.
  virtual bool Tells(const Note& note) const = 0;

  // Appends the result of a packet. Only a table ends its last line. Returns the offset in `out` from which on the
  // result is the same for another packet that says the same of the same sub-device.
  virtual size_t Append(const PacketReading& reading, std::string& out) = 0;

  // Appends what stands in place of a result.
  virtual void AppendError(std::string_view error, std::string& out) const;
};

// The entity outlives the form. Throws InputError when `only` names no attribute of it.
std::unique_ptr<ResultForm> MakeForm(DocumentForm form, const EntityModel& entity, const FormOptions& options);

// The names of the columns of CSV: "command", "error" and those of the attributes.
std::vector<std::string> CsvColumns(const EntityModel& entity, const FormOptions& options);

// Appends one cell, in quotation marks where it needs them.
void AppendCsvCell(std::string_view text, std::string& out);

}  // namespace morvix::inspect

#endif
