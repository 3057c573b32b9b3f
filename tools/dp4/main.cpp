// dp4: the command line. Knows the options and nothing of the work.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>

#include "Commands.h"
#include "Completion.h"
#include "Similar.h"
#include "Text.h"

namespace {

const char kDescription[] =
    "Shows what a product configuration means to the version 4.0 data-point protocol, and talks to its devices in "
    "packets.";

const char kNeededEntity[] = "the entity, by name or id; needed when there are several";
const char kOneEntity[] = "only this entity, by name or id; all without it";
const char kNoEntity[] = "taken by every command; this one has no use for it";

const char kDecodeExample[] =
    "dp4 decode kettle.json 04055a019f0100\n"
    "  dp4 decode kettle.json --document table < capture.txt\n"
    "\n"
    "Forms of --document:\n"
    "  flat     a line of JSON: \"values\", the application's document; \"alerts\" and \"faults\", the value of each "
    "by its\n"
    "           name; \"active\", the integers of those that are active\n"
    "  decoded  a line of JSON: the decoded document, each value with the type of its group\n"
    "  table    every attribute with its place, bits and value, for people\n"
    "\n"
    "A line of standard input is a packet, or a JSON object whose member \"packet\" is replaced by the result.";

const char kFooter[] =
    "Exit codes: 0 fine, 1 the input has problems, 2 unusable arguments or unreadable files.\n"
    "dp4 COMMAND --help tells more about a command, with an example.";

// What every command takes.
struct SharedFlags {
  std::string entity;
  std::string color = "auto";
  bool log = false;
};

// For texts that say nothing when they are empty.
const CLI::Validator kNotEmpty(
    [](const std::string& text) { return text.empty() ? "expected a text, found none" : ""; }, "");

void AddShared(CLI::App& command, SharedFlags& shared, const char* entityHelp) {
  command.add_option("--entity", shared.entity, entityHelp)->type_name("NAME|ID")->check(kNotEmpty);
  command.add_flag("--log", shared.log, "shows the protocol module's log lines on standard error");
  command.add_option("--color", shared.color, "colours in results: auto (on a terminal), always or never")
      ->type_name("WHEN")
      ->check(CLI::IsMember({"auto", "always", "never"}));
}

bool WantsColor(const std::string& when) {
  const char* noColor = std::getenv("NO_COLOR");
  if (when != "auto") return when == "always";
  return isatty(STDOUT_FILENO) != 0 && (noColor == nullptr || *noColor == '\0');
}

dp4::CommonOptions Common(const SharedFlags& shared) {
  dp4::CommonOptions common;
  common.entity = shared.entity;
  common.log = shared.log ? &std::cerr : nullptr;
  common.color = WantsColor(shared.color);
  return common;
}

CLI::Option* AddConfiguration(CLI::App& command, std::string& configuration) {
  return command.add_option("CONFIG", configuration, "product configuration (JSON); - for standard input")
      ->required()
      ->check(kNotEmpty);
}

// An id of 32 bits, decimal or hexadecimal, signed or not.
int ParseSubDevice(const std::string& text) {
  const bool isNegative = !text.empty() && text[0] == '-';
  const bool isHex = text.compare(0, 2, "0x") == 0;
  const std::string digits = text.substr(isHex ? 2 : isNegative ? 1 : 0);
  const bool isNumber = !digits.empty() && digits.size() <= 10 &&
                        digits.find_first_not_of(isHex ? "0123456789abcdefABCDEF" : "0123456789") == std::string::npos;
  const long long id = isNumber ? std::stoll(digits, nullptr, isHex ? 16 : 10) : INT64_MAX;
  if (id > (isNegative ? -int64_t{INT32_MIN} : int64_t{UINT32_MAX})) {
    throw CLI::ValidationError("--sub-device", text +
                                                   ": expected a number from -2147483648 to 4294967295, or 0x and up "
                                                   "to 8 hexadecimal digits");
  }
  return static_cast<int>(isNegative ? -id : id);
}

CLI::Option* AddSubDevice(CLI::App& command, int& subDevice) {
  return command
      .add_option_function<std::string>(
          "--sub-device", [&subDevice](const std::string& text) { subDevice = ParseSubDevice(text); },
          "id of the sub-device; travels in this machine's byte order")
      ->type_name("ID");
}

// The commands with their options. `run` becomes what the chosen command does.
struct CommandLine {
  CLI::App app{kDescription, "dp4"};
  SharedFlags shared;
  dp4::ShowOptions show;
  dp4::LayoutOptions layout;
  dp4::LintOptions lint;
  dp4::EncodeOptions encode;
  dp4::RequestOptions request;
  dp4::DecodeOptions decode;
  dp4::DevicesOptions devices;
  bool takesDebugKeys = false;
  bool takesReleaseKeys = false;
  std::string shell;
  std::function<int()> run;

  CommandLine() {
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("dp4 ") + MORVIX_PROTOCOL_VERSION);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
      return "dp4: " + dp4::Escaped(error.what()) + "\ndp4 --help tells more.\n";
    });
    AddShow();
    AddLayout();
    AddLint();
    AddEncode();
    AddRequest();
    AddDecode();
    AddDevices();
    AddCompletion();
  }

  struct Texts {
    const char* name;
    const char* description;
    const char* example;
    const char* entityHelp;
  };

  CLI::App& Add(const Texts& texts) {
    CLI::App& command = *app.add_subcommand(texts.name, texts.description);
    command.footer(std::string("Example:\n  ") + texts.example);
    AddShared(command, shared, texts.entityHelp);
    return command;
  }

  void AddShow() {
    CLI::App& command =
        Add({"show", "Lists the entities and attributes of a configuration.", "dp4 show kettle.json", kOneEntity});
    AddConfiguration(command, show.configuration);
    command.callback([this] { run = [this] { return dp4::Show(show, Common(shared), std::cout); }; });
  }

  void AddLayout() {
    CLI::App& command = Add(
        {"layout", "Draws the payload as a map of bits.", "dp4 layout kettle.json --svg kettle.svg", kNeededEntity});
    AddConfiguration(command, layout.configuration);
    command.add_option("--svg", layout.svg, "writes a picture to this file instead; - for standard output")
        ->type_name("FILE")
        ->check(kNotEmpty);
    command.callback([this] { run = [this] { return dp4::Layout(layout, Common(shared), std::cout); }; });
  }

  void AddLint() {
    CLI::App& command = Add({"lint", "Finds the problems of configurations, and says what a device will make of them.",
                             "dp4 lint --severity info --roundtrip kettle.json", kOneEntity});
    auto* files =
        command.add_option("CONFIG", lint.configurations, "product configurations (JSON); - for standard input")
            ->check(kNotEmpty);
    command.add_option("--format", lint.format, "text, json or sarif")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json", "sarif"}))
        ->capture_default_str();
    command
        .add_option("--severity", lint.severity, "the least severity that is shown and counts: error, warning or info")
        ->type_name("SEVERITY")
        ->check(CLI::IsMember({"error", "warning", "info"}))
        ->capture_default_str();
    command.add_flag("--roundtrip", lint.roundtrip,
                     "encodes and decodes limits and middles of every attribute as well");
    auto* rules = command.add_flag("--rules", lint.listRules, "lists the rules instead");
    command.callback([this, files, rules] {
      if (files->count() == 0 && rules->count() == 0) throw CLI::RequiredError("CONFIG");
      run = [this] { return dp4::Lint(lint, Common(shared), std::cout); };
    });
  }

  void AddEncode() {
    CLI::App& command = Add({"encode", "Turns values into a write packet.",
                             "dp4 encode kettle.json --set power=1 --set target=85 --explain", kNeededEntity});
    AddConfiguration(command, encode.configuration);
    command.add_option("VALUES", encode.values, "value document (JSON); - for standard input")->check(kNotEmpty);
    command.add_option("--set", encode.set, "one value, after those of the document")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    command.add_option("--command", encode.command, "write or cc-write")
        ->type_name("COMMAND")
        ->check(CLI::IsMember({"write", "cc-write"}))
        ->capture_default_str();
    auto* subDevice = AddSubDevice(command, encode.subDevice);
    AddOutput(command, encode.output);
    command.add_flag("--explain", encode.explain, "prints attribute by attribute what was set, or why it was not");
    command.add_flag("--strict", encode.strict, "a value that is left out is a problem");
    command.callback([this, subDevice] {
      encode.hasSubDevice = subDevice->count() != 0;
      run = [this] { return dp4::Encode(encode, Common(shared), std::cout, std::cerr); };
    });
  }

  void AddRequest() {
    CLI::App& command =
        Add({"request", "Makes a request without payload.", "dp4 request cc-read --sub-device 7", kNoEntity});
    command.add_option("COMMAND", request.command, "read, cc-read, cc-add, cc-delete or cc-list")
        ->required()
        ->check(CLI::IsMember({"read", "cc-read", "cc-add", "cc-delete", "cc-list"}));
    auto* subDevice = AddSubDevice(command, request.subDevice);
    AddOutput(command, request.output);
    command.callback([this, subDevice] {
      request.hasSubDevice = subDevice->count() != 0;
      run = [this] { return dp4::Request(request, std::cout); };
    });
  }

  void AddDecode() {
    CLI::App& command = Add(
        {"decode", "Decodes received packets, given or one a line on standard input.", kDecodeExample, kNeededEntity});
    AddConfiguration(command, decode.configuration);
    command.add_option("PACKET", decode.packets, "packets in hexadecimal, with or without 0x, blanks and colons");
    command.add_option("--document", decode.document, "decoded, flat or table")
        ->type_name("FORM")
        ->check(CLI::IsMember({"decoded", "flat", "table"}))
        ->capture_default_str();
    command.callback(
        [this] { run = [this] { return dp4::Decode(decode, Common(shared), std::cin, std::cout, std::cerr); }; });
  }

  void AddDevices() {
    CLI::App& command = Add({"devices", "Answers queries over a device list.",
                             "dp4 devices devices.json --protocol data-point --packet-version 0x4", kNoEntity});
    command
        .add_option("LIST", devices.list,
                    "device list (JSON): an array, or an object with \"debug\" and \"devices\"; - for standard input")
        ->required()
        ->check(kNotEmpty);
    auto* protocol = command.add_option("--protocol", devices.protocol, "the devices that speak this protocol ...")
                         ->type_name("NAME")
                         ->check(kNotEmpty);
    auto* version = command.add_option("--packet-version", devices.packetVersion, "... at this packet version, as 0x4")
                        ->type_name("VERSION");
    protocol->needs(version);
    version->needs(protocol);
    auto* find = command.add_option("--find", devices.find, "the first device with this product key")
                     ->type_name("KEY")
                     ->check(kNotEmpty);
    auto* keys = command.add_flag("--keys", devices.keys, "the product keys of all devices");
    protocol->excludes(find)->excludes(keys);
    find->excludes(keys);
    auto* debug = command.add_flag("--debug", takesDebugKeys, "takes the keys of debug builds");
    auto* release = command.add_flag("--release", takesReleaseKeys, "takes the keys of release builds");
    debug->excludes(release);
    command.callback([=, this_ = this] {
      if (protocol->count() + find->count() + keys->count() == 0) {
        throw CLI::RequiredError("One of --protocol, --find and --keys");
      }
      this_->devices.build = this_->takesDebugKeys ? 1 : this_->takesReleaseKeys ? -1 : 0;
      this_->run = [this_] { return dp4::Devices(this_->devices, std::cout, std::cerr); };
    });
  }

  void AddCompletion() {
    CLI::App& command = Add({"completion", "Prints a completion script for a shell.",
                             "dp4 completion bash > ~/.local/share/bash-completion/completions/dp4", kNoEntity});
    command.add_option("SHELL", shell, "bash, zsh or fish")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
    command.callback([this] {
      run = [this] {
        std::cout << dp4::CompletionScript(app, shell);
        return dp4::kFine;
      };
    });
  }

  static void AddOutput(CLI::App& command, std::string& output) {
    command.add_option("--output", output, "hex, c-array, base64 or binary")
        ->type_name("FORM")
        ->check(CLI::IsMember({"hex", "c-array", "base64", "binary"}))
        ->capture_default_str();
  }
};

// A word where a command should be is told apart from no word at all, which CLI11 does not do.
void CheckCommand(const CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return;
  const std::string word = argv[1];
  std::vector<std::string> known;
  for (const CLI::App* command : app.get_subcommands(nullptr)) known.push_back(command->get_name());
  if (std::find(known.begin(), known.end(), word) != known.end()) return;
  const std::string similar = dp4::DidYouMean(word, known);
  std::string all;
  for (const std::string& name : known) all += (all.empty() ? "; expected one of " : ", ") + name;
  throw dp4::UsageError("no command is called " + dp4::InQuotes(word) + (similar.empty() ? all : similar));
}

int Run(int argc, char** argv) {
  CommandLine commandLine;
  CheckCommand(commandLine.app, argc, argv);
  try {
    commandLine.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (commandLine.app.exit(error) != 0) return dp4::kUnusable;
    return dp4::kFine;
  }
  return commandLine.run();
}

}  // namespace

int main(int argc, char** argv) {
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));  // a reader that has seen enough ends the tool quietly
  std::ios::sync_with_stdio(false);
  std::string problem;
  int exitCode = dp4::kUnusable;
  try {
    exitCode = Run(argc, argv);
  } catch (const dp4::UsageError& error) {
    problem = error.what();
  } catch (const std::bad_alloc&) {
    problem = "there is not enough memory for this";
  } catch (const std::exception& error) {
    problem = std::string("a defect of this tool: ") + error.what();
  }
  if (!std::cout.flush() && problem.empty()) problem = "standard output cannot be written";
  if (problem.empty()) return exitCode;
  std::cerr << "dp4: " << problem << '\n';
  return dp4::kUnusable;
}
