// dp4 as an operation: from arguments to exit code.

#ifndef MORVIX_DP4_TOOL_H
#define MORVIX_DP4_TOOL_H

#include <string>
#include <vector>

#include "Environment.h"

namespace dp4 {

// Runs the tool. The arguments come without the tool's own name. Nothing is thrown. While it runs, the host's log sink
// and level are the tool's.
int RunTool(const std::vector<std::string>& arguments, Environment& environment);

}  // namespace dp4

#endif
