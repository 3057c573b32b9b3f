// The commands of dp4. Each takes its options, writes results to `out` and everything else to `err`, and returns the
// exit code. Arguments and files that cannot be used are thrown as UsageError.

#ifndef MORVIX_DP4_COMMANDS_H
#define MORVIX_DP4_COMMANDS_H

#include <iosfwd>
#include <string>
#include <vector>

#include "Input.h"

namespace dp4 {

// What all commands know.
struct CommonOptions {
  std::string entity;           // name or id; empty for the only one
  std::ostream* log = nullptr;  // where the module's log lines go; null for nowhere
  bool color = false;           // whether results are coloured
};

struct ShowOptions {
  std::string configuration;
};
int Show(const ShowOptions& options, const CommonOptions& common, std::ostream& out);

struct LayoutOptions {
  std::string configuration;
  std::string svg;  // the file of the picture; empty for the text form on standard output
};
int Layout(const LayoutOptions& options, const CommonOptions& common, std::ostream& out);

struct LintOptions {
  std::vector<std::string> configurations;
  std::string format = "text";       // text, json or sarif
  std::string severity = "warning";  // findings below it are not shown and do not count: error, warning or info
  bool listRules = false;            // instead of linting
  bool roundtrip = false;            // encodes and decodes limits and middles as well
};
int Lint(const LintOptions& options, const CommonOptions& common, std::ostream& out);

struct EncodeOptions {
  std::string configuration;
  std::string values;             // file of a value document, "-" for standard input; empty with --set only
  std::vector<std::string> set;   // "name=value" each; after the document's values
  std::string command = "write";  // write or cc-write
  bool hasSubDevice = false;
  int subDevice = 0;
  std::string output = "hex";  // hex, c-array, base64 or binary
  bool explain = false;
  bool strict = false;  // a value that is left out is a problem
};
int Encode(const EncodeOptions& options, const CommonOptions& common, std::ostream& out, std::ostream& err);

struct RequestOptions {
  std::string command;  // read, cc-read, cc-add, cc-delete or cc-list
  bool hasSubDevice = false;
  int subDevice = 0;
  std::string output = "hex";
};
int Request(const RequestOptions& options, std::ostream& out);

struct DecodeOptions {
  std::string configuration;
  std::vector<std::string> packets;  // empty: a stream on standard input
  std::string document = "flat";     // decoded, flat or table
};
int Decode(const DecodeOptions& options, const CommonOptions& common, std::istream& in, std::ostream& out,
           std::ostream& err);

struct DevicesOptions {
  std::string list;
  std::string protocol;       // with packetVersion: filter
  std::string packetVersion;  // as text, 0x4
  std::string find;           // a product key
  bool keys = false;          // lists the product keys
  int build = 0;              // 1 --debug, -1 --release, 0 as the file says
};
int Devices(const DevicesOptions& options, std::ostream& out, std::ostream& err);

}  // namespace dp4

#endif
