// dp4 generate: code from a configuration.

#include "inspect/generate/Generate.h"

#include <optional>
#include <ostream>
#include <utility>

#include "Commands.h"
#include "Files.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

std::string PathIn(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + '/' + name;
}

// A configuration, and the SHA-256 of its bytes.
using Source = std::pair<json::Document, std::string>;

// Nothing, with the reasons printed, when no code is made of the entity, or of one of all entities.
std::optional<Source> ReadSource(const GenerateOptions& options, bool isForOne, Environment& environment) {
  const std::string bytes = ReadBytes(options.configuration, environment);
  json::Document configuration = ReadJson(options.configuration, bytes);
  if (isForOne) ChooseEntity(configuration, options.entity);  // throws when it is not clear which one
  const std::vector<Finding> findings = FindingsAgainstCode(configuration.Name(), configuration.Text(), options.entity);
  if (findings.empty()) return Source{std::move(configuration), Sha256Text(bytes)};
  const FileFindings all = {options.configuration, configuration.Name(), PlaceAll(configuration.Text(), findings)};
  environment.err << FindingsText({all}, false) << "dp4: " << Escaped(configuration.Name())
                  << ": no code is made until this is fixed\n";
  return std::nullopt;
}

// Writes the files unless there is a problem.
int Finish(const std::vector<GeneratedFile>& files, const std::string& problem, const GenerateOptions& options,
           Environment& environment) {
  if (!problem.empty()) {
    environment.err << "dp4: " << Escaped(NameOfFile(options.configuration)) << ": " << problem << '\n';
    return kProblems;
  }
  if (!options.output.empty()) MakeFolder(options.output);
  for (const GeneratedFile& file : files) UpdateFile(PathIn(options.output, file.name), file.text, environment);
  return kFine;
}

}  // namespace

int GenerateC(const GenerateOptions& options, Environment& environment) {
  const std::optional<Source> source = ReadSource(options, true, environment);
  if (!source) return kProblems;
  const json::Document& configuration = source->first;
  DeviceCodeChoices choices;
  choices.prefix = options.prefix;
  choices.sha256 = source->second;
  std::string problem;
  const EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, options.entity));
  return Finish(DeviceCode(entity, choices, problem), problem, options, environment);
}

int GenerateWireshark(const GenerateWiresharkOptions& options, Environment& environment) {
  const std::optional<Source> source = ReadSource(options, false, environment);
  if (!source) return kProblems;
  const json::Document& configuration = source->first;
  std::vector<EntityModel> entities;
  for (const Json::Value& entity : EntitiesOf(configuration)) {
    const bool isChosen = options.entity.empty() || &entity == &ChooseEntity(configuration, options.entity);
    if (isChosen) entities.push_back(ModelOf(configuration, entity));
  }
  if (entities.empty()) throw InputError(Escaped(configuration.Name()) + ": expected an entity, found none");
  WiresharkChoices choices = options.choices;
  choices.sha256 = source->second;
  std::string problem;
  const GeneratedFile file = WiresharkDissector(entities, choices, problem);
  return Finish({file}, problem, options, environment);
}

}  // namespace dp4
