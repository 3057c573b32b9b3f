#include "ToolSupport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "TestSupport.h"
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

std::string Golden(const std::string& name) { return ReadFile(GOLDEN_DIR "/dp4/" + name); }

void ExpectGolden(const std::string& text, const std::string& name) {
  if (std::getenv("MORVIX_UPDATE_GOLDEN") != nullptr) std::ofstream(GOLDEN_DIR "/dp4/" + name) << text;
  EXPECT_EQ(text, Golden(name)) << name;
}
