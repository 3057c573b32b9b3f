// dp4 devices: the module's queries over a list of known devices.

#include "inspect/devices/Devices.h"

#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "host/TavelConfig.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

int Devices(const DevicesOptions& options, Environment& environment) {
  UseDevices(ReadJsonFile(options.list, environment));
  if (options.debug) TavelConfig::sharedInstance()->SetDebug(*options.debug);
  std::string problem;
  const Json::Value results = options.keys            ? ListProductKeys(problem)
                              : !options.find.empty() ? FindDevice(options.find, problem)
                                                      : FilterDevices(options.protocol, options.packetVersion, problem);
  environment.out << (options.format == DataForm::kText   ? ResultLines(results)
                      : options.format == DataForm::kJson ? ResultJson(results)
                                                          : ResultCsv(results));
  if (problem.empty()) return kFine;
  environment.err << "dp4: " << Escaped(NameOfFile(options.list)) << ": " << problem << '\n';
  return kProblems;
}

}  // namespace dp4
