// dp4 request: the requests without payload.

#include <ostream>

#include "Commands.h"
#include "Packets.h"
#include "Text.h"

namespace dp4 {

namespace {

MorvixProtocolCommand_4_0 CommandOf(const std::string& name) {
  if (name == "read") return MorvixProtocolCommandReadReq_4_0;
  if (name == "cc-read") return MorvixProtocolCommandCCReadReq_4_0;
  if (name == "cc-add") return MorvixProtocolCommandCCAddSubDeviceReq_4_0;
  if (name == "cc-delete") return MorvixProtocolCommandCCDelSubDeviceReq_4_0;
  if (name == "cc-list") return MorvixProtocolCommandCCGetSubDevicesReq_4_0;
  throw UsageError(Escaped(name) + " is no request; expected read, cc-read, cc-add, cc-delete or cc-list");
}

}  // namespace

int Request(const RequestOptions& options, std::ostream& out) {
  MorvixProtocolPackage_4_0 package;
  package.cmd = CommandOf(options.command);
  const std::vector<byte> anonymous = PackPackage(package);
  package.subDid = options.subDevice;
  package.needInsertSubDid = 1;
  const std::vector<byte> addressed = PackPackage(package);
  // The module refuses a request that lacks its sub-device, and passes over a sub-device that a request does not name.
  if (!options.hasSubDevice && anonymous.empty()) {
    throw UsageError(options.command + " is for one sub-device; expected --sub-device ID");
  }
  if (options.hasSubDevice && addressed == anonymous) {
    throw UsageError(options.command + " names no sub-device; expected no --sub-device");
  }
  out << PacketText(options.hasSubDevice ? addressed : anonymous, options.output);
  return kFine;
}

}  // namespace dp4
