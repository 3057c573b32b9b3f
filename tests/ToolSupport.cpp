#include "ToolSupport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>

#include "tools/dp4/Tool.h"

ToolRun RunTool(const std::vector<std::string>& arguments, const std::string& standardInput) {
  if (chdir(EXAMPLES_DIR) != 0) ADD_FAILURE() << "the examples are missing";
  std::istringstream in(standardInput);
  std::ostringstream out;
  std::ostringstream err;
  dp4::Environment environment{in, out, err};
  const int exitCode = dp4::RunTool(arguments, environment);
  return {exitCode, out.str(), err.str()};
}
