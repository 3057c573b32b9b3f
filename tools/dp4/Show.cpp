// dp4 show: the entities and attributes of a configuration as tables.

#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "inspect/layout/AttributeTable.h"
#include "inspect/text/Error.h"

namespace dp4 {

using namespace morvix::inspect;

int Show(const EntityOptions& options, Environment& environment) {
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const Json::Value& entities = EntitiesOf(configuration);
  const bool areAll = options.entity.empty() && entities.size() > 1;
  const Json::Value* chosen = areAll ? nullptr : &ChooseEntity(configuration, options.entity);
  std::optional<InputError> unusable;
  for (const Json::Value& entity : entities) {
    if (chosen != nullptr && chosen != &entity) continue;
    try {
      environment.out << AttributeTable(ModelOf(configuration, entity), options.color);
    } catch (const InputError& error) {
      if (!unusable) unusable = error;  // the entities after it are still shown
    }
  }
  if (unusable) throw InputError(*unusable);
  environment.out << kAttributeTableKey;
  return kFine;
}

}  // namespace dp4
