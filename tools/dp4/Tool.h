// dp4 as a function: from arguments to exit code.

#ifndef MORVIX_DP4_TOOL_H
#define MORVIX_DP4_TOOL_H

#include <string>
#include <vector>

#include "Environment.h"

namespace dp4 {

// Runs the tool. The arguments do not include the tool's own name. Does not throw. While it runs, it replaces the
// host's log sink and level.
int RunTool(const std::vector<std::string>& arguments, Environment& environment);

}  // namespace dp4

#endif
