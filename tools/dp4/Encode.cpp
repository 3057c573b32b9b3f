// dp4 encode: values to a packet: a write, or what a device would send.

#include <ostream>
#include <utility>

#include "Commands.h"
#include "Files.h"
#include "inspect/packets/Encoding.h"
#include "inspect/text/CSource.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

void CheckOptions(const EncodeOptions& options) {
  const bool isCArray = options.output == PacketForm::kCArray;
  if (options.explain && !options.json && options.output == PacketForm::kBinary) {
    throw InputError("--explain is text and cannot follow a binary packet; expected another --output");
  }
  if (options.json && (!options.explain || options.output != PacketForm::kHex)) {
    throw InputError("--format json is a form of the explanation; expected --explain, and --output hex or none");
  }
  if (!options.name.empty() && !isCArray) throw InputError("--name is for an array of C; expected --output c-array");
  if (!options.name.empty() && !IsCIdentifier(options.name)) {
    throw InputError("--name " + Escaped(options.name) + ": expected an identifier of C");
  }
  if (options.values.empty() && options.set.empty()) {
    throw InputError("no values to encode: expected a value document or --set NAME=VALUE");
  }
  if (options.values == "-" && options.configuration == "-") {
    throw InputError("standard input cannot be both the configuration and the value document");
  }
}

// The command and sub-device that are asked for, or else those of the record.
MorvixProtocolOwnedPackage_4_0 PackageFor(const EncodeOptions& options, const RecordHead& head) {
  MorvixProtocolOwnedPackage_4_0 package;
  package.cmd = options.command.value_or(head.command.value_or(MorvixProtocolCommandWriteReq_4_0));
  const bool isWrite = IsWriteCommand(package.cmd);
  if (options.subDevice && !isWrite) {
    throw InputError(std::string(CommandName(package.cmd)) + " names no sub-device; expected no --sub-device");
  }
  const std::optional<int32_t> subDevice = options.subDevice ? options.subDevice : head.subDevice;
  package.needInsertSubDid = isWrite && subDevice ? 1 : 0;
  package.subDid = subDevice.value_or(0);
  return package;
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
  const EntityModel entity = ReadEntity(configuration, options.entity, environment);
  std::optional<json::Document> document;
  if (!options.values.empty()) document = ReadJsonFile(options.values, environment);
  MorvixProtocolOwnedPackage_4_0 package =
      PackageFor(options, document ? HeadOf(configuration, *document) : RecordHead());
  Values values(configuration, entity, DirectionOf(entity, package.cmd));
  if (document) values.TakeDocument(*document);
  for (const std::string& setting : options.set) values.TakeSetting(setting);
  if (document) values.CheckNotes(*document);
  const Encoding encoding(entity, Escaped(configuration.Name()) + ": " + InQuotes(entity.Info().name), values,
                          std::move(package), options.lenient);

  std::vector<std::string> problems = values.Problems();
  for (std::string& problem : encoding.Problems()) problems.push_back(std::move(problem));
  for (const std::string& problem : problems) environment.err << "dp4: " << problem << '\n';
  const bool isSent = encoding.HasPacket() && (options.lenient || problems.empty());
  if (isSent) {
    for (const std::string& warning : encoding.Warnings()) environment.err << "dp4: warning: " << warning << '\n';
  }
  environment.out << (options.json ? encoding.JsonText(isSent, problems) : ResultText(encoding, options, isSent));
  return isSent ? kFine : kProblems;
}

}  // namespace dp4
