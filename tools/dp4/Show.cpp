// dp4 show: the entities and attributes of a configuration, as tables or for programs.

#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "inspect/layout/AttributeTable.h"
#include "inspect/model/Description.h"
#include "inspect/text/Error.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

std::string TextOf(const EntityModel& entity, const ShowOptions& options, size_t columns) {
  switch (options.format) {
    case DataForm::kJson:
      return DescriptionJson(entity);
    case DataForm::kCsv:
      return DescriptionCsv(entity);
    default:
      return AttributeTable(entity, options.color, columns);
  }
}

}  // namespace

int Show(const ShowOptions& options, Environment& environment) {
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const Json::Value& entities = EntitiesOf(configuration);
  const bool areAll = options.entity.empty() && entities.size() > 1;
  const Json::Value* chosen = areAll ? nullptr : &ChooseEntity(configuration, options.entity);
  std::optional<InputError> unusable;
  if (options.format == DataForm::kCsv) environment.out << DescriptionCsvHeader();
  for (const Json::Value& entity : entities) {
    if (chosen != nullptr && chosen != &entity) continue;
    try {
      environment.out << TextOf(ModelOf(configuration, entity), options, environment.columns);
    } catch (const InputError& error) {
      if (!unusable) unusable = error;  // the entities after it are still shown
    }
  }
  if (unusable) throw InputError(*unusable);
  if (options.format == DataForm::kText) environment.out << kAttributeTableKey;
  return kFine;
}

}  // namespace dp4
