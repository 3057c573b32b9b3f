// dp4 layout: the payload as a map of bits, in characters, as a picture, or for programs.

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
  if (!options.svg.empty()) {
    WriteFile(options.svg, MapSvg(map), environment);
  } else if (options.format == DataForm::kText) {
    environment.out << MapText(map, options.color, environment.columns);
  } else {
    environment.out << (options.format == DataForm::kJson ? MapJson(map) : MapCsv(map));
  }
  return kFine;
}

}  // namespace dp4
