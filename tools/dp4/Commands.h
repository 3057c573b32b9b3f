// The commands of dp4. Each takes its options, writes results to the environment's `out` and everything else to its
// `err`, and returns the exit code. Throws InputError for unusable arguments and files.

#ifndef MORVIX_DP4_COMMANDS_H
#define MORVIX_DP4_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "Environment.h"
#include "inspect/findings/Finding.h"
#include "inspect/generate/Generate.h"
#include "inspect/packets/Packet.h"
#include "inspect/packets/ResultForms.h"
#include "inspect/vectors/Vectors.h"

namespace dp4 {

// The options of most commands.
struct EntityOptions {
  std::string configuration;
  std::string entity;  // name or id; empty for the only entity, or for all
  bool color = false;
};

// The forms of a result that is one document.
enum class DataForm { kText, kJson, kCsv };

// Of one entity or all.
struct ShowOptions : EntityOptions {
  DataForm format = DataForm::kText;
};
int Show(const ShowOptions& options, Environment& environment);

struct LayoutOptions : EntityOptions {
  DataForm format = DataForm::kText;
  std::string svg;  // the file of the picture; empty for the text form
};
int Layout(const LayoutOptions& options, Environment& environment);

enum class FindingsForm { kText, kJson, kSarif };

struct LintOptions : EntityOptions {
  std::vector<std::string> configurations;  // instead of the one
  FindingsForm format = FindingsForm::kText;
  morvix::inspect::Severity severity = morvix::inspect::Severity::kWarning;
  bool listRules = false;             // instead of linting
  std::string explained;              // a rule, to be explained instead of linting
  std::vector<std::string> disabled;  // rules
  bool roundtrip = false;
};
int Lint(const LintOptions& options, Environment& environment);

struct CompareOptions {
  std::string before;
  std::string after;
  FindingsForm format = FindingsForm::kText;
  morvix::inspect::Severity severity = morvix::inspect::Severity::kError;  // from which on findings are problems
  bool listRules = false;                                                  // instead of comparing
  bool color = false;
};
int Compare(const CompareOptions& options, Environment& environment);

struct EncodeOptions : EntityOptions {
  std::string values;            // file of a value document, "-" for standard input; empty with --set only
  std::vector<std::string> set;  // "name=value" each; after the document's values
  std::optional<MorvixProtocolCommand_4_0> command;  // empty: that of the document, if it is a record, or a write
  std::optional<int32_t> subDevice;                  // empty: that of the document, if a write is made of it
  morvix::inspect::PacketForm output = morvix::inspect::PacketForm::kHex;
  std::string name;      // of an array of C; empty for "packet"
  bool explain = false;  // what was set, or why it was not
  bool json = false;     // the explanation is JSON
  bool lenient = false;  // sends what can be sent
};
int Encode(const EncodeOptions& options, Environment& environment);

struct RequestOptions {
  std::string command;  // read, cc-read, cc-add, cc-delete or cc-list
  std::optional<int32_t> subDevice;
  morvix::inspect::PacketForm output = morvix::inspect::PacketForm::kHex;
};
int Request(const RequestOptions& options, Environment& environment);

struct DecodeOptions : EntityOptions {
  std::vector<std::string> packets;  // empty: a stream on standard input
  morvix::inspect::DocumentForm document = morvix::inspect::DocumentForm::kFlat;
  std::string line;  // how lines are taken apart: a ready-made pattern or one of RE2; empty: they are packets
  std::optional<std::string> member;  // of lines that are JSON objects; empty for "packet"
  std::vector<std::string> only;      // names of attributes; empty for all
  bool items = false;                 // enums by name
  bool changes = false;               // a record only when something changed
  bool strict = false;                // notes and unmatched lines are problems
  bool quiet = false;                 // no summary
};
int Decode(const DecodeOptions& options, Environment& environment);

enum class VectorsForm { kJson, kC };

struct VectorsOptions : EntityOptions {
  VectorsForm format = VectorsForm::kJson;
  morvix::inspect::VectorChoices choices;
};
int Vectors(const VectorsOptions& options, Environment& environment);

struct GenerateOptions : EntityOptions {
  std::string prefix;  // an identifier; empty for one made from the entity's name
  std::string output;  // a folder; empty for the current one
};
int GenerateC(const GenerateOptions& options, Environment& environment);

struct GenerateWiresharkOptions : GenerateOptions {
  morvix::inspect::WiresharkChoices choices;
};
int GenerateWireshark(const GenerateWiresharkOptions& options, Environment& environment);

struct DevicesOptions {
  std::string list;
  std::string protocol;       // with packetVersion: filter
  std::string packetVersion;  // as given, like 0x4
  std::string find;           // a product key
  bool keys = false;          // lists the product keys
  std::optional<bool> debug;  // the build whose keys are used; empty: as in the file
  DataForm format = DataForm::kText;
};
int Devices(const DevicesOptions& options, Environment& environment);

}  // namespace dp4

#endif
