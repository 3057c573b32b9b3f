// dp4 vectors: test vectors of an entity.

#include "inspect/vectors/Vectors.h"

#include <ostream>

#include "Commands.h"
#include "Files.h"

namespace dp4 {

using namespace morvix::inspect;

int Vectors(const VectorsOptions& options, Environment& environment) {
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ReadEntity(configuration, options.entity, environment);
  const morvix::inspect::Vectors vectors = VectorsOf(entity, options.choices);
  environment.out << (options.format == VectorsForm::kC ? VectorsC(vectors) : VectorsJson(vectors));
  return kFine;
}

}  // namespace dp4
