// dp4: the command line. Knows the options and nothing of the work.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "Commands.h"
#include "Completion.h"

namespace {

const char kDescription[] =
    "Shows what a product configuration means to the version 4.0 data-point protocol, and talks to its devices in "
    "packets.";

const char kFooter[] =
    "Exit codes: 0 fine, 1 the input has problems, 2 unusable arguments or unreadable files.\n"
    "dp4 COMMAND --help tells more about a command, with an example.";

// What every command takes.
struct SharedFlags {
  std::string entity;
  std::string color = "auto";
  bool log = false;
};

void AddShared(CLI::App& command, SharedFlags& shared) {
  command.add_option("--entity", shared.entity, "the entity, by name or id; needed when there are several")
      ->type_name("NAME|ID");
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
  return command.add_option("CONFIG", configuration, "product configuration (JSON); - for standard input")->required();
}

CLI::Option* AddSubDevice(CLI::App& command, int& subDevice) {
  return command.add_option("--sub-device", subDevice, "id of the sub-device; travels in this machine's byte order")
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
  std::string shell;
  std::function<int()> run;

  CommandLine() {
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("dp4 ") + MORVIX_PROTOCOL_VERSION);
    app.require_subcommand(1);
    AddShow();
    AddLayout();
    AddLint();
    AddEncode();
    AddRequest();
    AddDecode();
    AddDevices();
    AddCompletion();
  }

  CLI::App& Add(const char* name, const char* description, const char* example) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer(std::string("Example:\n  ") + example);
    AddShared(command, shared);
    return command;
  }

  void AddShow() {
    CLI::App& command = Add("show", "Lists the entities and attributes of a configuration.", "dp4 show kettle.json");
    AddConfiguration(command, show.configuration);
    command.callback([this] { run = [this] { return dp4::Show(show, Common(shared), std::cout); }; });
  }

  void AddLayout() {
    CLI::App& command = Add("layout", "Draws the payload as a map of bits.", "dp4 layout kettle.json --svg kettle.svg");
    AddConfiguration(command, layout.configuration);
    command.add_option("--svg", layout.svg, "writes a picture to this file instead")->type_name("FILE");
    command.callback([this] { run = [this] { return dp4::Layout(layout, Common(shared), std::cout); }; });
  }

  void AddLint() {
    CLI::App& command = Add("lint", "Finds the problems of configurations, and says what a device will make of them.",
                            "dp4 lint --severity info --roundtrip kettle.json");
    auto* files = command.add_option("CONFIG", lint.configurations, "product configurations (JSON)");
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
      run = [this] { return dp4::Lint(lint, Common(shared), std::cout, std::cerr); };
    });
  }

  void AddEncode() {
    CLI::App& command = Add("encode", "Turns values into a write packet.",
                            "dp4 encode kettle.json --set power=1 --set target=85 --explain");
    AddConfiguration(command, encode.configuration);
    command.add_option("VALUES", encode.values, "value document (JSON); - for standard input");
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
    CLI::App& command = Add("request", "Makes a request without payload.", "dp4 request cc-read --sub-device 7");
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
    CLI::App& command =
        Add("decode", "Decodes received packets, given or one a line on standard input.",
            "dp4 decode kettle.json 04055a019f0100\n  dp4 decode kettle.json --document table < capture.txt");
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
    CLI::App& command = Add("devices", "Answers queries over a device list.",
                            "dp4 devices devices.json --protocol data-point --packet-version 0x4");
    command.add_option("LIST", devices.list, "device list (JSON)")->required();
    auto* protocol = command.add_option("--protocol", devices.protocol, "the devices that speak this protocol ...")
                         ->type_name("NAME");
    auto* version = command.add_option("--packet-version", devices.packetVersion, "... at this packet version, as 0x4")
                        ->type_name("VERSION");
    protocol->needs(version);
    version->needs(protocol);
    auto* find = command.add_option("--find", devices.find, "the first device with this product key")->type_name("KEY");
    auto* keys = command.add_flag("--keys", devices.keys, "the product keys of all devices");
    protocol->excludes(find)->excludes(keys);
    find->excludes(keys);
    auto* debug = command.add_flag("--debug", "takes the keys of debug builds");
    auto* release = command.add_flag("--release", "takes the keys of release builds");
    debug->excludes(release);
    command.callback([=, this_ = this] {
      if (protocol->count() + find->count() + keys->count() == 0) {
        throw CLI::RequiredError("One of --protocol, --find and --keys");
      }
      this_->devices.build = debug->count() != 0 ? 1 : release->count() != 0 ? -1 : 0;
      this_->run = [this_] { return dp4::Devices(this_->devices, std::cout, std::cerr); };
    });
  }

  void AddCompletion() {
    CLI::App& command = Add("completion", "Prints a completion script for a shell.",
                            "dp4 completion bash > ~/.local/share/bash-completion/completions/dp4");
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

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_DFL);  // a reader that has seen enough ends the tool quietly
  std::ios::sync_with_stdio(false);
  CommandLine commandLine;
  try {
    commandLine.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return commandLine.app.exit(error) == 0 ? dp4::kFine : dp4::kUnusable;
  }
  try {
    const int exitCode = commandLine.run();
    if (!std::cout.flush()) {
      std::cerr << "dp4: standard output cannot be written\n";
      return dp4::kUnusable;
    }
    return exitCode;
  } catch (const dp4::UsageError& error) {
    std::cout.flush();
    std::cerr << "dp4: " << error.what() << '\n';
    return dp4::kUnusable;
  }
}
