// dp4 encode: values to a packet: a write, or what a device would send.

#include <algorithm>
#include <cctype>
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

bool IsCName(const std::string& name) {
  const auto isPart = [](char c) { return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0; };
  return std::all_of(name.begin(), name.end(), isPart) && std::isdigit(static_cast<unsigned char>(name[0])) == 0;
}

void CheckOptions(const EncodeOptions& options) {
  const bool isCArray = options.output == PacketForm::kCArray;
  const bool isWrite =
      options.command == MorvixProtocolCommandWriteReq_4_0 || options.command == MorvixProtocolCommandCCWriteReq_4_0;
  if (options.explain && !options.json && options.output == PacketForm::kBinary) {
    throw InputError("--explain is text and cannot follow a binary packet; expected another --output");
  }
  if (options.json && (!options.explain || options.output != PacketForm::kHex)) {
    throw InputError("--format json is a form of the explanation; expected --explain, and --output hex or none");
  }
  if (!options.name.empty() && !isCArray) throw InputError("--name is for an array of C; expected --output c-array");
  if (!options.name.empty() && !IsCName(options.name)) {
    throw InputError("--name " + Escaped(options.name) + ": expected a name of C");
  }
  if (options.subDevice && !isWrite) {
    throw InputError(std::string(CommandName(options.command)) + " names no sub-device; expected no --sub-device");
  }
  if (options.values.empty() && options.set.empty()) {
    throw InputError("no values to encode: expected a value document or --set NAME=VALUE");
  }
  if (options.values == "-" && options.configuration == "-") {
    throw InputError("standard input cannot be both the configuration and the value document");
  }
}

// The packet and what explains it. An array of C has its explanation before it, as a comment.
std::string ResultText(const Encoding& encoding, const EncodeOptions& options, bool isSent) {
  std::string explanation = encoding.TableText(isSent, options.color && options.output != PacketForm::kCArray);
  if (!isSent) return options.explain ? explanation : "";
  explanation = encoding.PartsText() + '\n' + explanation;
  const std::string packet =
      PacketText(encoding.Packet(), options.output, options.name.empty() ? "packet" : options.name);
  if (options.output == PacketForm::kCArray && (options.explain || !options.name.empty())) {
    return CComment(explanation) + packet;
  }
  return options.explain ? packet + '\n' + explanation : packet;
}

}  // namespace

int Encode(const EncodeOptions& options, Environment& environment) {
  CheckOptions(options);
  const json::Document configuration = ReadJsonFile(options.configuration, environment);
  const EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, options.entity));
  Values values(configuration, entity, DirectionOf(entity, options.command));
  if (!options.values.empty()) values.TakeDocument(ReadJsonFile(options.values, environment));
  for (const std::string& setting : options.set) values.TakeSetting(setting);
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = options.command;
  package.subDid = options.subDevice.value_or(0);
  package.needInsertSubDid = options.subDevice ? 1 : 0;
  const Encoding encoding(entity, Escaped(configuration.Name()) + ": " + InQuotes(entity.Info().name), values,
                          std::move(package));

  std::vector<std::string> problems = values.Problems();
  for (std::string& problem : encoding.Problems()) problems.push_back(std::move(problem));
  for (const std::string& problem : problems) environment.err << "dp4: " << problem << '\n';
  const bool isSent = encoding.HasPacket() && (options.lenient || problems.empty());
  environment.out << (options.json ? encoding.JsonText(isSent, problems) : ResultText(encoding, options, isSent));
  return isSent ? kFine : kProblems;
}

}  // namespace dp4
