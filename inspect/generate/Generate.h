// Source code made from a configuration: the device's end in C, and a dissector for Wireshark.

#ifndef MORVIX_INSPECT_GENERATE_GENERATE_H
#define MORVIX_INSPECT_GENERATE_GENERATE_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/findings/Finding.h"
#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"
#include "inspect/vectors/Vectors.h"

namespace morvix::inspect {

struct GeneratedFile {
  std::string name;
  std::string text;
};

// The findings for which no device code is made of an entity: errors, overlapping fields, no attributes. `entity` is
// its name or id, or empty for the only one.
std::vector<Finding> FindingsAgainstCode(const std::string& name, const std::string& text, const std::string& entity);

// The SHA-256 of a configuration's bytes, in hexadecimal.
std::string Sha256Text(const std::string& bytes);

struct DeviceCodeChoices {
  std::string prefix;     // an identifier; empty for one made from the entity's name
  std::string sha256;     // of the configuration
  VectorChoices vectors;  // those of the test program
};

// PREFIX.h, PREFIX.c and PREFIX_test.c of an entity against which there are no findings. No files, with `problem` set,
// when two attributes have one name in C. Throws InputError when the prefix is not an identifier.
std::vector<GeneratedFile> DeviceCode(const EntityModel& entity, const DeviceCodeChoices& choices,
                                      std::string& problem);

struct WiresharkChoices {
  std::optional<int> udpPort;
  std::optional<int> tcpPort;
  std::optional<int> userDlt;  // 0 to 15: of the link types 147 to 162
  std::string sha256;          // of the configuration
};

// A dissector in Lua of entities against which there are no findings, at least one. No file, with `problem` set, when
// two names are one in filters.
GeneratedFile WiresharkDissector(const std::vector<EntityModel>& entities, const WiresharkChoices& choices,
                                 std::string& problem);

}  // namespace morvix::inspect

#endif
