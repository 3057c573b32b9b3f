#include "ToolSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// A temporary file that is gone at its end.
class TemporaryFile {
 public:
  TemporaryFile() : file_(std::tmpfile()) {
    if (file_ == nullptr) ADD_FAILURE() << "no temporary file";
  }
  ~TemporaryFile() { std::fclose(file_); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int Descriptor() const { return fileno(file_); }

  void Write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), file_);
    std::rewind(file_);
  }

  std::string Read() {
    std::string text;
    std::rewind(file_);
    char buffer[65536];
    size_t size = 0;
    while ((size = std::fread(buffer, 1, sizeof buffer, file_)) != 0) text.append(buffer, size);
    return text;
  }

 private:
  std::FILE* file_;
};

[[noreturn]] void BecomeTool(const std::vector<std::string>& arguments, const TemporaryFile& in,
                             const TemporaryFile& out, const TemporaryFile& err) {
  dup2(in.Descriptor(), STDIN_FILENO);
  dup2(out.Descriptor(), STDOUT_FILENO);
  dup2(err.Descriptor(), STDERR_FILENO);
  unsetenv("NO_COLOR");
  if (chdir(EXAMPLES_DIR) != 0) _exit(126);
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(DP4_PATH));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  execv(DP4_PATH, argv.data());
  _exit(127);
}

}  // namespace

ToolRun RunTool(const std::vector<std::string>& arguments, const std::string& standardInput) {
  TemporaryFile in;
  TemporaryFile out;
  TemporaryFile err;
  in.Write(standardInput);
  const pid_t child = fork();
  if (child == 0) BecomeTool(arguments, in, out, err);
  int status = 0;
  ToolRun run;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    ADD_FAILURE() << "the tool cannot be started";
    return run;
  }
  if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
  run.out = out.Read();
  run.err = err.Read();
  return run;
}
