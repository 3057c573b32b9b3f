// Uses the C interface, which has host services of its own inside, beside the C++ libraries.
#include <morvix_protocol.h>

#include <iostream>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/Logging.h"

int main() {
  const LogCapture log;
  MorvixProtocolPackage_4_0 package;
  package.cmd = MorvixProtocolCommandReadReq_4_0;
  byte packet[8];
  const size_t size = ProtocolPackPackage_4_0(package, packet, sizeof packet - 4);
  morvix_bytes request;
  if (morvix_request(2, nullptr, &request, nullptr) != MORVIX_OK) return 1;
  const bool isSame = request.size == size && request.data[0] == packet[0];
  morvix_free(request.data);
  std::cout << "version " << morvix_version() << ", the same request of " << size << " byte\n";
  return isSame ? 0 : 1;
}
