// How the library reports input that it cannot use.

#ifndef MORVIX_INSPECT_TEXT_ERROR_H
#define MORVIX_INSPECT_TEXT_ERROR_H

#include <stdexcept>

namespace morvix::inspect {

// Input or arguments that cannot be used. what() names the input, the place in it and what was expected, in one or more
// lines for people.
class InputError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace morvix::inspect

#endif
