// The command-line tool, run in the process of the test.

#ifndef MORVIX_TESTS_TOOL_SUPPORT_H
#define MORVIX_TESTS_TOOL_SUPPORT_H

#include <string>
#include <vector>

struct ToolRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// The tool with these arguments and this text on its standard input; nothing is a terminal. The working directory
// becomes the folder of the examples, so that file names in messages are short.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::string& standardInput = "");

// Results that are kept in tests/golden/dp4/. If MORVIX_UPDATE_GOLDEN is set, ExpectGolden writes `text` there.
std::string Golden(const std::string& name);
void ExpectGolden(const std::string& text, const std::string& name);

#endif
