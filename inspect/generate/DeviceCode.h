// The parts of the device's code.

#ifndef MORVIX_INSPECT_GENERATE_DEVICE_CODE_H
#define MORVIX_INSPECT_GENERATE_DEVICE_CODE_H

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/generate/CNames.h"
#include "inspect/vectors/Vectors.h"

namespace morvix::inspect {

// The bits of the unsigned type that holds a field: 8, 16, 32 or 64.
int TypeBits(const BitRange& bits);

// A raw value as a constant of C.
std::string RawConstant(uint64_t raw);

// Texts with separators between them, as many in a line as fit; further lines begin with `indent` blanks. `column` is
// where the first one begins.
std::string WrappedList(const std::vector<std::string>& texts, const std::string& separator, size_t column,
                        size_t indent);

// The raw values that an attribute takes; of a bool or binary all that its bits hold.
struct RawRange {
  uint64_t min = 0;
  uint64_t max = 0;
};
RawRange RawRangeOf(const Attribute& attribute);

// The first line of every file that is made.
std::string FirstLine(const std::string& sha256);

std::string HeaderText(const EntityModel& entity, const CNames& names, const std::string& sha256);
std::string SourceText(const EntityModel& entity, const CNames& names, const std::string& sha256);
std::string TestText(const EntityModel& entity, const CNames& names, const Vectors& vectors, const std::string& sha256);

}  // namespace morvix::inspect

#endif
