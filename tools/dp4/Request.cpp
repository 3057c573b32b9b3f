// dp4 request: the requests without payload.

#include <ostream>

#include "Commands.h"

namespace dp4 {

namespace {

MorvixProtocolCommand_4_0 CommandOf(const std::string& name) {
  if (name == "read") return MorvixProtocolCommandReadReq_4_0;
  if (name == "cc-read") return MorvixProtocolCommandCCReadReq_4_0;
  if (name == "cc-add") return MorvixProtocolCommandCCAddSubDeviceReq_4_0;
  if (name == "cc-delete") return MorvixProtocolCommandCCDelSubDeviceReq_4_0;
  return MorvixProtocolCommandCCGetSubDevicesReq_4_0;
}

}  // namespace

int Request(const RequestOptions& options, Environment& environment) {
  using namespace morvix::inspect;
  const Bytes packet = RequestPacket(CommandOf(options.command), options.command, options.subDevice);
  environment.out << PacketText(packet, options.output);
  return kFine;
}

}  // namespace dp4
