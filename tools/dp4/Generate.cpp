// dp4 generate: code from a configuration.

#include "inspect/generate/Generate.h"

#include <optional>
#include <ostream>

#include "Commands.h"
#include "Files.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

std::string PathIn(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + '/' + name;
}

}  // namespace

int GenerateC(const GenerateOptions& options, Environment& environment) {
  const std::string bytes = ReadBytes(options.configuration, environment);
  const json::Document configuration = ReadJson(options.configuration, bytes);
  const Json::Value& chosen = ChooseEntity(configuration, options.entity);
  const std::vector<Finding> findings = FindingsAgainstCode(configuration.Name(), configuration.Text(), options.entity);
  if (!findings.empty()) {
    const FileFindings all = {options.configuration, configuration.Name(), PlaceAll(configuration.Text(), findings)};
    environment.err << FindingsText({all}, false) << "dp4: " << Escaped(configuration.Name())
                    << ": no code is made until this is fixed\n";
    return kProblems;
  }
  DeviceCodeChoices choices;
  choices.prefix = options.prefix;
  choices.sha256 = Sha256Text(bytes);
  std::string problem;
  const std::vector<GeneratedFile> files = DeviceCode(ModelOf(configuration, chosen), choices, problem);
  if (!problem.empty()) {
    environment.err << "dp4: " << Escaped(configuration.Name()) << ": " << problem << '\n';
    return kProblems;
  }
  for (const GeneratedFile& file : files) UpdateFile(PathIn(options.output, file.name), file.text, environment);
  return kFine;
}

}  // namespace dp4
