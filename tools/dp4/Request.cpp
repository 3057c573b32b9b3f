// dp4 request: the requests without payload.

#include <map>
#include <ostream>

#include "Commands.h"

namespace dp4 {

int Request(const RequestOptions& options, Environment& environment) {
  using namespace morvix::inspect;
  static const std::map<std::string, MorvixProtocolCommand_4_0> kCommands = {
      {"read", MorvixProtocolCommandReadReq_4_0},
      {"cc-read", MorvixProtocolCommandCCReadReq_4_0},
      {"cc-add", MorvixProtocolCommandCCAddSubDeviceReq_4_0},
      {"cc-delete", MorvixProtocolCommandCCDelSubDeviceReq_4_0},
      {"cc-list", MorvixProtocolCommandCCGetSubDevicesReq_4_0}};
  const Bytes packet = RequestPacket(kCommands.at(options.command), options.command, options.subDevice);
  environment.out << PacketText(packet, options.output);
  return kFine;
}

}  // namespace dp4
