// dp4 layout: the payload as a map of bits, in characters or as a picture.

#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "inspect/layout/PayloadMap.h"

namespace dp4 {

using namespace morvix::inspect;

int Layout(const LayoutOptions& options, Environment& environment) {
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, options.entity));
  const PayloadMap map = MapPayload(entity);
  if (options.svg.empty()) {
    environment.out << MapText(map, options.color);
  } else {
    WriteFile(options.svg, MapSvg(map), environment);
  }
  return kFine;
}

}  // namespace dp4
