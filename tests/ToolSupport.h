// Runs the command-line tool as its users do.

#ifndef MORVIX_TESTS_TOOL_SUPPORT_H
#define MORVIX_TESTS_TOOL_SUPPORT_H

#include <string>
#include <vector>

struct ToolRun {
  int exitCode = -1;  // -1 when the tool was ended by a signal
  std::string out;
  std::string err;
};

// The tool with these arguments and this text on its standard input. The working directory is the folder of the
// examples, so that file names in messages are short. NO_COLOR and the like are not set.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::string& standardInput = "");

#endif
