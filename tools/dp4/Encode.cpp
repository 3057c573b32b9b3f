// dp4 encode: values to a write packet.

#include <ostream>
#include <utility>

#include "Commands.h"
#include "Files.h"
#include "inspect/packets/Encoding.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

void CheckOptions(const EncodeOptions& options) {
  if (options.explain && options.output == PacketForm::kBinary) {
    throw InputError("--explain is text and cannot follow a binary packet; expected another --output");
  }
  if (options.values.empty() && options.set.empty()) {
    throw InputError("no values to encode: expected a value document or --set NAME=VALUE");
  }
  if (options.values == "-" && options.configuration == "-") {
    throw InputError("standard input cannot be both the configuration and the value document");
  }
}

}  // namespace

int Encode(const EncodeOptions& options, Environment& environment) {
  CheckOptions(options);
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, options.entity));
  Values values(configuration, entity);
  if (!options.values.empty()) values.TakeDocument(ReadJsonFile(options.values, environment));
  for (const std::string& setting : options.set) values.TakeSetting(setting);
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = options.command;
  package.subDid = options.subDevice.value_or(0);
  package.needInsertSubDid = options.subDevice ? 1 : 0;
  const Encoding encoding(entity, Escaped(configuration.Name()) + ": " + InQuotes(entity.Info().name), values,
                          std::move(package));

  std::vector<std::string> problems = values.Unused();
  for (std::string& problem : encoding.Problems()) problems.push_back(std::move(problem));
  for (const std::string& problem : problems) environment.err << "dp4: " << problem << '\n';
  const bool isSent = encoding.HasPacket() && (!options.strict || problems.empty());
  if (isSent) environment.out << PacketText(encoding.Packet(), options.output);
  if (isSent && options.explain) environment.out << '\n' << encoding.PartsText() << '\n';
  if (options.explain) environment.out << encoding.TableText(isSent, options.color);
  return isSent ? kFine : kProblems;
}

}  // namespace dp4
