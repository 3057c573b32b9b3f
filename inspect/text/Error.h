// The exception for unusable input.

#ifndef MORVIX_INSPECT_TEXT_ERROR_H
#define MORVIX_INSPECT_TEXT_ERROR_H

#include <stdexcept>

namespace morvix::inspect {

// Thrown for unusable input or arguments. what() names the input, the place in it and what was expected, in one or more
// lines.
class InputError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace morvix::inspect

#endif
