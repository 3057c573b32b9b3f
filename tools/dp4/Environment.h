// The streams of a command and their properties.

#ifndef MORVIX_DP4_ENVIRONMENT_H
#define MORVIX_DP4_ENVIRONMENT_H

#include <cstddef>
#include <functional>
#include <iosfwd>

namespace dp4 {

struct Environment {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
  bool hasColors = false;                       // results may be coloured unless the user says otherwise
  bool isOutTerminal = false;                   // results are shown as soon as they are available
  bool isProgressShown = false;                 // `err` is a terminal and `out` is not
  size_t inBytes = 0;                           // the size of the input; 0 when unknown
  std::function<void()> clearProgress = [] {};  // before anything else is written to `err`
};

// Exit codes of the tool.
enum ExitCode { kFine = 0, kProblems = 1, kUnusable = 2 };

}  // namespace dp4

#endif
