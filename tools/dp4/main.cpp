// dp4 as a program: sets up its streams.

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

#include "Tool.h"

int main(int argc, char** argv) {
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));  // the tool ends silently when the reader of its output exits
  std::ios::sync_with_stdio(false);
  dp4::Environment environment{std::cin, std::cout, std::cerr};
  environment.isOutTerminal = isatty(STDOUT_FILENO) == 1;
  environment.isProgressShown = isatty(STDERR_FILENO) == 1 && !environment.isOutTerminal;
  const char* noColor = std::getenv("NO_COLOR");
  environment.hasColors = environment.isOutTerminal && (noColor == nullptr || *noColor == '\0');
  struct stat status = {};
  const bool isFile = fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
  if (isFile) environment.inBytes = static_cast<size_t>(status.st_size);
  return dp4::RunTool({argv + 1, argv + argc}, environment);
}
