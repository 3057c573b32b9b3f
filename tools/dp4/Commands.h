// The commands of dp4. Each takes its options, writes results to the environment's `out` and everything else to its
// `err`, and returns the exit code. Throws InputError for unusable arguments and files.

#ifndef MORVIX_DP4_COMMANDS_H
#define MORVIX_DP4_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "Environment.h"
#include "inspect/findings/Finding.h"
#include "inspect/packets/Packet.h"

namespace dp4 {

// The options of most commands.
struct EntityOptions {
  std::string configuration;
  std::string entity;  // name or id; empty for the only entity, or for all
  bool color = false;
};

// Of one entity or all.
int Show(const EntityOptions& options, Environment& environment);

struct LayoutOptions : EntityOptions {
  std::string svg;  // the file of the picture; empty for the text form
};
int Layout(const LayoutOptions& options, Environment& environment);

enum class FindingsForm { kText, kJson, kSarif };

struct LintOptions : EntityOptions {
  std::vector<std::string> configurations;  // instead of the one
  FindingsForm format = FindingsForm::kText;
  morvix::inspect::Severity severity = morvix::inspect::Severity::kWarning;
  bool listRules = false;  // instead of linting
  bool roundtrip = false;
};
int Lint(const LintOptions& options, Environment& environment);

struct EncodeOptions : EntityOptions {
  std::string values;            // file of a value document, "-" for standard input; empty with --set only
  std::vector<std::string> set;  // "name=value" each; after the document's values
  MorvixProtocolCommand_4_0 command = MorvixProtocolCommandWriteReq_4_0;
  std::optional<int32_t> subDevice;
  morvix::inspect::PacketForm output = morvix::inspect::PacketForm::kHex;
  bool explain = false;
  bool strict = false;  // treats a value that is left out as a problem
};
int Encode(const EncodeOptions& options, Environment& environment);

struct RequestOptions {
  std::string command;  // read, cc-read, cc-add, cc-delete or cc-list
  std::optional<int32_t> subDevice;
  morvix::inspect::PacketForm output = morvix::inspect::PacketForm::kHex;
};
int Request(const RequestOptions& options, Environment& environment);

enum class DocumentForm { kFlat, kDecoded, kTable };

struct DecodeOptions : EntityOptions {
  std::vector<std::string> packets;  // empty: a stream on standard input
  DocumentForm document = DocumentForm::kFlat;
};
int Decode(const DecodeOptions& options, Environment& environment);

struct DevicesOptions {
  std::string list;
  std::string protocol;       // with packetVersion: filter
  std::string packetVersion;  // as given, like 0x4
  std::string find;           // a product key
  bool keys = false;          // lists the product keys
  std::optional<bool> debug;  // the build whose keys are used; empty: as in the file
};
int Devices(const DevicesOptions& options, Environment& environment);

}  // namespace dp4

#endif
