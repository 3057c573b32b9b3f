// The output forms of received packets.

#ifndef MORVIX_INSPECT_PACKETS_RESULT_FORMS_H
#define MORVIX_INSPECT_PACKETS_RESULT_FORMS_H

#include <memory>
#include <string>

#include "inspect/model/EntityModel.h"
#include "inspect/packets/Packet.h"

namespace morvix::inspect {

// Packets in one form for people or programs:
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

// Converts packets to one output form. The entity outlives it.
class ResultForm {
 public:
  virtual ~ResultForm() = default;

  // The result of a packet that RefusalOf accepts, ending with a line feed. `failure` becomes the reason why decoding
  // ended early, or empty. The module's lines are logged once.
  virtual std::string ResultOf(const Bytes& packet, std::string& failure) = 0;
};

std::unique_ptr<ResultForm> FlatForm(const EntityModel& entity);
std::unique_ptr<ResultForm> DecodedForm(const EntityModel& entity);
std::unique_ptr<ResultForm> TableForm(const EntityModel& entity, bool color);

}  // namespace morvix::inspect

#endif
