// What an entity, its attributes and their items are called in C.

#ifndef MORVIX_INSPECT_GENERATE_C_NAMES_H
#define MORVIX_INSPECT_GENERATE_C_NAMES_H

#include <string>
#include <vector>

#include "inspect/model/EntityModel.h"

namespace morvix::inspect {

// One attribute: its fields in both directions, and its names.
struct CAttribute {
  const Field* read;
  const Field* written;            // null when it is not writable
  std::string member;              // of the structs
  std::string constant;            // beginning of its constants' names
  std::vector<std::string> items;  // constants of an enum

  const Attribute& Record() const { return *read->attribute; }
};

struct CNames {
  std::string prefix;                  // of types, functions and files
  std::string constants;               // of constants
  std::vector<CAttribute> attributes;  // in configuration order
};

// The names for an entity of which every attribute is read, and every writable one is written. `problem` is set when
// two attributes cannot be told apart. Throws InputError when `prefix` is neither empty nor an identifier.
CNames NamesFor(const EntityModel& entity, const std::string& prefix, std::string& problem);

}  // namespace morvix::inspect

#endif
