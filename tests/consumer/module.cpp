#include <cstdio>
#include <cstdlib>

#include "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h"
#include "host/TavelConfig.h"

int main() {
  MorvixProtocolPackage_4_0 request;
  request.cmd = MorvixProtocolCommandReadReq_4_0;
  byte packet[8];
  const size_t size = ProtocolPackPackage_4_0(request, packet, sizeof packet - 4);
  TavelConfig::sharedInstance()->SetDebug(true);
  std::printf("version %s, read request of %zu byte\n", MORVIX_PROTOCOL_VERSION, size);
  return size == 1 && packet[0] == 0x02 ? EXIT_SUCCESS : EXIT_FAILURE;
}
