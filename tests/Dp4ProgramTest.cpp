// dp4 as a program: what only a process with real files, pipes and terminals shows.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestSupport.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

const std::string kPacket = "04055a04640101\n";

std::string KettleLine() { return ReadFile(std::string(GOLDEN_DIR) + "/dp4/kettle.decode.flat.jsonl"); }

std::string KettleStream(size_t packets) {
  std::string stream;
  for (size_t i = 0; i < packets; ++i) stream += kPacket;
  return stream;
}

// An open file, closed at its end and in every other program.
class File {
 public:
  explicit File(int descriptor) : descriptor_(descriptor) { EXPECT_GE(descriptor, 0); }
  explicit File(const char* path) : File(open(path, O_RDWR | O_CLOEXEC)) {}
  File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  File& operator=(File&&) = delete;
  ~File() { Close(); }

  int Descriptor() const { return descriptor_; }
  void Close() {
    if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  }
  void Write(const std::string& text) const {
    ASSERT_EQ(write(descriptor_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  // What comes until the text ends with `end`, or until the other side is closed. The test fails when that takes longer
  // than anyone would wait.
  std::string ReadUntil(const std::string& end) const {
    std::string text;
    const int kPatience = 60000;  // milliseconds
    while (end.empty() || text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0) {
      pollfd ready = {descriptor_, POLLIN, 0};
      if (poll(&ready, 1, kPatience) != 1) {
        ADD_FAILURE() << "waited in vain after: " << text;
        break;
      }
      char buffer[4096];
      const ssize_t count = read(descriptor_, buffer, sizeof buffer);
      if (count <= 0) break;
      text.append(buffer, static_cast<size_t>(count));
    }
    return text;
  }

 private:
  int descriptor_;
};

File FileWith(const std::string& text) {
  char path[] = "/tmp/dp4-test-XXXXXX";
  File file(mkostemp(path, O_CLOEXEC));
  unlink(path);
  file.Write(text);
  lseek(file.Descriptor(), 0, SEEK_SET);
  return file;
}

struct Pipe {
  Pipe() : Pipe(Ends()) {}

  File reader;
  File writer;

 private:
  explicit Pipe(std::pair<int, int> ends) : reader(ends.first), writer(ends.second) {}
  static std::pair<int, int> Ends() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {ends[0], ends[1]};
  }
};

// The user's side of a new terminal, or -1.
int OpenTerminal() {
  const int user = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (user < 0 || (grantpt(user) == 0 && unlockpt(user) == 0 && ptsname(user) != nullptr)) return user;
  close(user);
  return -1;
}

struct Terminal {
  File user{OpenTerminal()};
  File program{ptsname(user.Descriptor())};
};

// The tool as a process with the test's choice of files.
class Tool {
 public:
  Tool(std::vector<std::string> arguments, const File& in, const File& out, const File& err) {
    arguments.insert(arguments.begin(), DP4_PATH);
    child_ = fork();
    EXPECT_GE(child_, 0);
    if (child_ != 0) return;
    dup2(in.Descriptor(), STDIN_FILENO);
    dup2(out.Descriptor(), STDOUT_FILENO);
    dup2(err.Descriptor(), STDERR_FILENO);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (chdir(EXAMPLES_DIR) == 0) execv(DP4_PATH, argv.data());
    _exit(127);
  }
  ~Tool() {
    if (child_ <= 0) return;
    kill(child_, SIGKILL);
    Wait();
  }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  // The status as waitpid gives it.
  int Wait() {
    int status = -1;
    EXPECT_EQ(wait4(child_, &status, 0, &usage_), child_);
    child_ = -1;
    return status;
  }
  void ExpectExit(int code) {
    const int status = Wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == code) << status;
  }
  long MaxKilobytes() const { return usage_.ru_maxrss; }

 private:
  pid_t child_ = -1;
  rusage usage_ = {};
};

// A tool that ends with this message alone, and with exit code 2.
void ExpectMessage(const std::vector<std::string>& arguments, const File& in, const File& out,
                   const std::string& message) {
  Pipe err;
  Tool tool(arguments, in, out, err.writer);
  err.writer.Close();
  EXPECT_EQ(err.reader.ReadUntil(""), message);
  tool.ExpectExit(2);
}

const std::vector<std::string> kDecodeKettle = {"decode", "kettle.json"};

// ---- Streams that fail ----

TEST(Program, TellsWhenNothingCanBeWritten) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--help"},
                                                    {"show", "kettle.json"},
                                                    {"vectors", "kettle.json"},
                                                    {"completion", "bash"}}) {
    ExpectMessage(arguments, File("/dev/null"), File("/dev/full"), "dp4: standard output cannot be written\n");
  }
  ExpectMessage(kDecodeKettle, FileWith(KettleStream(100000)), File("/dev/full"),
                "dp4: standard output cannot be written\n");
}

TEST(Program, TellsWhenItsInputCannotBeRead) {
  const File folder(open(EXAMPLES_DIR, O_RDONLY | O_CLOEXEC));
  const File null("/dev/null");
  ExpectMessage({"show", "-"}, folder, null, "dp4: standard input: cannot be read\n");
  ExpectMessage(kDecodeKettle, folder, null, "dp4: standard input:1: cannot be read\n");
  const File writeOnly(open("/dev/null", O_WRONLY | O_CLOEXEC));
  ExpectMessage({"lint", "-"}, writeOnly, null, "dp4: standard input: cannot be read\n");
  ExpectMessage({"show", "/dev/zero"}, null, null, "dp4: /dev/zero: expected at most 67108864 bytes\n");
}

TEST(Program, TellsWhereNoFolderCanBeMade) {
  const File null("/dev/null");
  ExpectMessage({"generate", "c", "kettle.json", "--output", "/dev/null"}, null, null,
                "dp4: /dev/null: cannot be made: Not a directory\n");
}

TEST(Program, GeneratesFromStandardInput) {
  const std::string folder = "/tmp/dp4-test-" + std::to_string(getpid());
  mkdir(folder.c_str(), 0700);
  const File configuration(open(EXAMPLES_DIR "/kettle.json", O_RDONLY | O_CLOEXEC));
  Pipe err;
  Tool tool({"generate", "c", "-", "--output", folder}, configuration, File("/dev/null"), err.writer);
  err.writer.Close();
  EXPECT_EQ(err.reader.ReadUntil(""), "");
  tool.ExpectExit(0);
  for (const char* name : {"kettle.h", "kettle.c", "kettle_test.c"}) {
    const std::string path = folder + "/" + name;
    EXPECT_EQ(ReadFile(path), ReadFile(std::string(GOLDEN_DIR) + "/dp4/" + name));
    unlink(path.c_str());
  }
  rmdir(folder.c_str());
}

TEST(Program, EndsQuietlyWhenItsReaderHasSeenEnough) {
  Pipe out;
  Pipe err;
  Tool tool(kDecodeKettle, FileWith(KettleStream(100000)), out.writer, err.writer);
  out.writer.Close();
  err.writer.Close();
  char first = 0;
  EXPECT_EQ(read(out.reader.Descriptor(), &first, 1), 1);
  EXPECT_EQ(first, '{');
  out.reader.Close();
  const int status = tool.Wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
  EXPECT_EQ(err.reader.ReadUntil(""), "");
}

// ---- Long streams ----

TEST(Program, NeedsNoMoreMemoryForALongStreamThanForAShortOne) {
  if (kIsSanitized) GTEST_SKIP() << "sanitizers keep released memory";
  const File null("/dev/null");
  long kilobytes[2] = {0, 0};
  const size_t packets[2] = {1000, 100000};
  for (int i = 0; i < 2; ++i) {
    Tool tool(kDecodeKettle, FileWith(KettleStream(packets[i])), null, null);
    tool.ExpectExit(0);
    kilobytes[i] = tool.MaxKilobytes();
  }
  // 100,000 packets are 1.5 megabytes, and their results 24.
  EXPECT_LT(kilobytes[1], kilobytes[0] + 1000);
}

TEST(Program, AnswersLineByLineWhileItWaits) {
  Pipe in;
  Pipe out;
  Tool tool(kDecodeKettle, in.reader, out.writer, File("/dev/null"));
  in.reader.Close();
  out.writer.Close();
  for (int round = 0; round < 3; ++round) {
    in.writer.Write(kPacket);
    EXPECT_EQ(out.reader.ReadUntil("\n"), KettleLine());
  }
  // A line that has just begun keeps no result back.
  in.writer.Write(kPacket + "04055a");
  EXPECT_EQ(out.reader.ReadUntil("\n"), KettleLine());
  in.writer.Write("04640101\n");
  EXPECT_EQ(out.reader.ReadUntil("\n"), KettleLine());
  in.writer.Close();
  tool.ExpectExit(0);
}

// ---- Terminals ----

class ProgramOnATerminal : public testing::Test {
 protected:
  void SetUp() override {
    const int terminal = OpenTerminal();
    if (terminal < 0) GTEST_SKIP() << "no terminal can be made here";
    close(terminal);
  }

  // Lines end in a carriage return and a line feed there.
  static std::string Shown(const std::vector<std::string>& arguments) {
    Terminal terminal;
    Tool tool(arguments, File("/dev/null"), terminal.program, terminal.program);
    terminal.program.Close();
    return terminal.user.ReadUntil("");
  }
};

TEST_F(ProgramOnATerminal, HasColoursUnlessNoColorSaysOtherwise) {
  const std::vector<std::string> show = {"show", "kettle.json"};
  const std::string coloured = "\x1b[1mkettle";
  unsetenv("NO_COLOR");
  EXPECT_THAT(Shown(show), HasSubstr(coloured));
  setenv("NO_COLOR", "", 1);
  EXPECT_THAT(Shown(show), HasSubstr(coloured));
  setenv("NO_COLOR", "1", 1);
  EXPECT_THAT(Shown(show), Not(HasSubstr("\x1b[")));
  EXPECT_THAT(Shown({"show", "kettle.json", "--color", "always"}), HasSubstr(coloured));
  unsetenv("NO_COLOR");
}

TEST_F(ProgramOnATerminal, HasNoColoursWhereTheTerminalHasNone) {
  setenv("TERM", "dumb", 1);
  EXPECT_THAT(Shown({"show", "kettle.json"}), Not(HasSubstr("\x1b[")));
  setenv("TERM", "xterm", 1);
  EXPECT_THAT(Shown({"show", "kettle.json"}), HasSubstr("\x1b[1mkettle"));
  unsetenv("TERM");
}

TEST_F(ProgramOnATerminal, KeepsTablesWithinItsWidth) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"show", "air_conditioner.json"},
                                                    {"layout", "air_conditioner.json"},
                                                    {"lint", "--rules"},
                                                    {"compare", "--rules"}}) {
    for (const uint16_t columns : {uint16_t{80}, uint16_t{200}}) {
      Terminal terminal;
      winsize size = {};
      size.ws_col = columns;
      ASSERT_EQ(ioctl(terminal.program.Descriptor(), TIOCSWINSZ, &size), 0);
      std::vector<std::string> plain = arguments;
      plain.insert(plain.end(), {"--color", "never"});
      Tool tool(plain, File("/dev/null"), terminal.program, terminal.program);
      terminal.program.Close();
      std::istringstream lines(terminal.user.ReadUntil(""));
      size_t widest = 0;
      for (std::string line; std::getline(lines, line);) {
        const bool isTable = line.find("  ") != std::string::npos && line.find('[') == std::string::npos;
        if (isTable) widest = std::max(widest, line.size() - 1);  // without its carriage return
      }
      EXPECT_LE(widest, columns) << arguments[0];
      EXPECT_GT(widest, columns == 80 ? 60U : 90U) << arguments[0];
    }
  }
}

// The first line comes in time, the second one after the second that a stream has to last before it counts as long.
TEST_F(ProgramOnATerminal, ShowsItsProgressAndClearsItBeforeAProblem) {
  Pipe in;
  Terminal terminal;
  Tool tool(kDecodeKettle, in.reader, File("/dev/null"), terminal.program);
  in.reader.Close();
  in.writer.Write(kPacket);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  in.writer.Write(kPacket);
  EXPECT_THAT(terminal.user.ReadUntil("problems"), StartsWith("\r\x1b[K"));
  in.writer.Write("x\n");
  EXPECT_THAT(terminal.user.ReadUntil("\r\n"),
              HasSubstr("\r\x1b[Kdp4: standard input:3:1: expected a hexadecimal digit, found 'x'\r\n"));
  in.writer.Close();
  tool.ExpectExit(1);
}

TEST_F(ProgramOnATerminal, ShowsNoProgressWhereResultsGoToTheTerminalToo) {
  Pipe in;
  Terminal terminal;
  Tool tool(kDecodeKettle, in.reader, terminal.program, terminal.program);
  in.reader.Close();
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));
  in.writer.Write(kPacket);
  const std::string line = KettleLine();
  EXPECT_EQ(terminal.user.ReadUntil("\n"), line.substr(0, line.size() - 1) + "\r\n");
  in.writer.Write("x\n");
  EXPECT_EQ(terminal.user.ReadUntil("}\r\n"),
            "dp4: standard input:2:1: expected a hexadecimal digit, found 'x'\r\n"
            "{\"error\":\"expected a hexadecimal digit, found 'x'\"}\r\n");
}

// ---- Completion ----

// What bash offers for the last of these words.
std::string BashOffers(const std::string& words, int last) {
  const std::string script = "PATH=$(dirname " DP4_PATH "):$PATH; source <(dp4 completion bash); COMP_WORDS=(" + words +
                             "); COMP_CWORD=" + std::to_string(last) + "; _dp4; echo ${COMPREPLY[*]}";
  Pipe out;
  const pid_t child = fork();
  if (child == 0) {
    dup2(out.writer.Descriptor(), STDOUT_FILENO);
    execlp("bash", "bash", "-c", script.c_str(), nullptr);
    _exit(127);
  }
  out.writer.Close();
  std::string offers = out.reader.ReadUntil("");
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  return offers;
}

TEST(Completion, OffersWhatFitsInBash) {
  EXPECT_EQ(BashOffers("dp4 de", 1), "decode devices\n");
  EXPECT_EQ(BashOffers("dp4 --v", 1), "--version\n");
  EXPECT_EQ(BashOffers("dp4 compare --format s", 3), "sarif\n");
  EXPECT_EQ(BashOffers("dp4 show --format =", 3), "text json csv\n");
  EXPECT_EQ(BashOffers("dp4 lint --roundtrip --f", 3), "--format\n");
  EXPECT_EQ(BashOffers("dp4 lint --format s", 3), "sarif\n");
  EXPECT_EQ(BashOffers("dp4 lint --format =", 3), "text json sarif\n");
  EXPECT_EQ(BashOffers("dp4 lint --format = te", 4), "text\n");
  EXPECT_EQ(BashOffers("dp4 request cc-", 2), "cc-read cc-add cc-delete cc-list\n");
  EXPECT_EQ(BashOffers("dp4 request read c", 3), "\n");
  EXPECT_EQ(BashOffers("dp4 request read --o", 3), "--output\n");
}

}  // namespace
