// The command line: parses the options and calls the commands.

#include "Tool.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdint>
#include <functional>
#include <limits>
#include <new>
#include <ostream>
#include <utility>

#include "Commands.h"
#include "Completion.h"
#include "host/Logging.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"
#include "inspect/text/Similar.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

const char kDescription[] =
    "Shows what a product configuration means to the version 4.0 data-point protocol, and talks to its devices in "
    "packets.";

const char kNeededEntity[] = "the entity, by name or id; needed when there are several";
const char kOneEntity[] = "only this entity, by name or id; all without it";

const char kDecodeExample[] =
    R"(dp4 decode kettle.json 04055a019f0100
  dp4 decode kettle.json --document table < capture.txt
  dp4 decode kettle.json --line time --document csv < log.txt > kettle.csv

Forms of --document:
  flat     a line of JSON: "values", the application's document; "alerts" and "faults", the value of each by its
           name; "active", the integers of those that are active; "notes", what is missing or too much. Of a write,
           "set" has the attributes whose flags are set
  decoded  a line of JSON: the decoded document, each value with the type of its group
  table    every attribute with its place, bits and value, for people
  csv      a row for each packet, a column for each attribute

A line of standard input is a packet in hexadecimal: one run of digits, or groups of one even length with the same
separator between all of them (blanks, colons or commas), 0x before each or braces around all. Or it is a JSON object
whose member "packet" is replaced by the result. Other lines are read with --line:
  time       a timestamp, then the packet
  direction  a timestamp; <, >, <-, ->, RX or TX; then the packet
  candump    what candump prints or logs
  PATTERN    a pattern of RE2 with a group (?P<packet>...); its other named groups are kept)";

const char kEncodeExample[] =
    R"(dp4 encode kettle.json --set power=1 --set program=keep_warm --explain
  dp4 encode kettle.json --set power=1 --output c-array --name kettle_on
  dp4 encode kettle.json --set temperature=85.5 --command notify

The value of an enum is an index in decimal digits, or an item. A document that decode made may be VALUES; what
a flat record tells of its command, sub-device, alerts and faults is taken as well. If a value cannot be taken, there is
no packet, unless --lenient is given.)";

const char kFooter[] =
    "Exit codes: 0 fine, 1 the input has problems, 2 unusable arguments or unreadable files.\n"
    "dp4 COMMAND --help tells more about a command, with an example.";

// For options that must not be empty.
const CLI::Validator kNotEmpty(
    [](const std::string& text) { return text.empty() ? "expected text, found an empty string" : ""; }, "");

// Without leading zeros, which would make a number octal.
const CLI::Validator kDecimal(
    [](std::string& text) {
      const size_t first = text.find_first_not_of("+-");
      while (first != std::string::npos && first + 1 < text.size() && text[first] == '0' &&
             std::isdigit(static_cast<unsigned char>(text[first + 1])) != 0) {
        text.erase(first, 1);
      }
      return std::string();
    },
    "");

template <typename Value>
using Choices = std::vector<std::pair<std::string, Value>>;

const Choices<PacketForm> kPacketForms = {{"hex", PacketForm::kHex},
                                          {"c-array", PacketForm::kCArray},
                                          {"base64", PacketForm::kBase64},
                                          {"binary", PacketForm::kBinary}};
const Choices<std::optional<MorvixProtocolCommand_4_0>> kEncodeCommands = {
    {"write", MorvixProtocolCommandWriteReq_4_0},
    {"cc-write", MorvixProtocolCommandCCWriteReq_4_0},
    {"notify", MorvixProtocolCommandNotifyResp_4_0},
    {"read-response", MorvixProtocolCommandReadResp_4_0}};
const Choices<bool> kExplanationForms = {{"text", false}, {"json", true}};
const Choices<FindingsForm> kFindingsForms = {
    {"text", FindingsForm::kText}, {"json", FindingsForm::kJson}, {"sarif", FindingsForm::kSarif}};
const Choices<Severity> kSeverities = {
    {"error", Severity::kError}, {"warning", Severity::kWarning}, {"info", Severity::kInfo}};
const Choices<DataForm> kDataForms = {{"text", DataForm::kText}, {"json", DataForm::kJson}, {"csv", DataForm::kCsv}};
const Choices<VectorsForm> kVectorsForms = {{"json", VectorsForm::kJson}, {"c", VectorsForm::kC}};
const Choices<DocumentForm> kDocumentForms = {{"flat", DocumentForm::kFlat},
                                              {"decoded", DocumentForm::kDecoded},
                                              {"table", DocumentForm::kTable},
                                              {"csv", DocumentForm::kCsv}};

// An option whose value is one of a few words. `value` holds the default.
template <typename Value>
CLI::Option* AddChoice(CLI::App& command, const std::string& name, const Choices<Value>& choices, Value& value,
                       const std::string& help = "") {
  std::vector<std::string> words;
  std::string byDefault;
  for (const auto& [word, meaning] : choices) {
    words.push_back(word);
    if (meaning == value) byDefault = word;
  }
  const auto choose = [&choices, &value](const std::string& chosen) {
    for (const auto& [word, meaning] : choices) {
      if (word == chosen) value = meaning;
    }
  };
  return command.add_option_function<std::string>(name, choose, help + Series(words, "or"))
      ->check(CLI::IsMember(words))
      ->default_str(byDefault);
}

// During its lifetime, all log lines go to a sink, warnings included.
class LogScope {
 public:
  explicit LogScope(LogSink sink) : sink_(SetLogSink(std::move(sink))), level_(SetLogLevel(2)) {}
  ~LogScope() {
    SetLogSink(sink_);
    SetLogLevel(level_);
  }
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  const LogSink sink_;
  const int level_;
};

// The commands with their options.
class CommandLine {
 public:
  explicit CommandLine(Environment& environment) : environment_(environment) {
    app_.footer(kFooter);
    app_.set_version_flag("--version", std::string("dp4 ") + MORVIX_PROTOCOL_VERSION);
    app_.require_subcommand(1);
    app_.failure_message([](const CLI::App*, const CLI::Error& error) {
      return "dp4: " + Escaped(error.what()) + "\ndp4 --help tells more.\n";
    });
    AddShow();
    AddLayout();
    AddLint();
    AddCompare();
    AddEncode();
    AddRequest();
    AddDecode();
    AddVectors();
    AddGenerate();
    AddDevices();
    AddCompletion();
    AddHelp();
  }

  int Run(const std::vector<std::string>& arguments) {
    CheckCommand(arguments);
    const LogScope scope([this](int level, const char* functionName, const std::string& message) {
      if (!isLogged_) return;
      environment_.clearProgress();
      const std::string function = functionName == nullptr ? "" : std::string(functionName) + ": ";
      environment_.err << '[' << level << "] " << Escaped(function + message) << '\n';
    });
    try {
      app_.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
      return exitCode_;
    } catch (const CLI::ParseError& error) {
      return app_.exit(error, environment_.out, environment_.err) == 0 ? kFine : kUnusable;
    }
  }

 private:
  // Distinguishes an unknown command from a missing one, which CLI11 does not do.
  void CheckCommand(const std::vector<std::string>& arguments) const {
    const CLI::App* parent = &app_;
    std::string path;  // the commands that are known, each with a blank after it
    for (const std::string& name : arguments) {
      std::vector<std::string> known;
      const CLI::App* found = nullptr;
      for (const CLI::App* command : parent->get_subcommands(nullptr)) {
        if (command->get_name() == name) found = command;
        if (!command->get_group().empty()) known.push_back(command->get_name());
      }
      if (known.empty() || name.empty() || name[0] == '-') return;
      if (found == nullptr) {
        const std::string similar = DidYouMean(name, known);
        throw InputError("no command is called " + InQuotes(path + name) +
                         (similar.empty() ? fmt::format("; expected one of {}", fmt::join(known, ", ")) : similar));
      }
      path += name + ' ';
      parent = found;
    }
  }

  CLI::App& Add(const char* name, const char* description, const char* example) {
    CLI::App& command = *app_.add_subcommand(name, description);
    command.footer(std::string("Example:\n  ") + example);
    return command;
  }

  void AddLog(CLI::App& command) {
    command.add_flag("--log", isLogged_, "shows the protocol module's log lines on standard error");
  }

  static void AddEntity(CLI::App& command, const char* entityHelp, EntityOptions& options) {
    command.add_option("--entity", options.entity, entityHelp)->type_name("NAME|ID")->check(kNotEmpty);
  }

  // What most commands take.
  void AddShared(CLI::App& command, const char* entityHelp, EntityOptions& options) {
    AddEntity(command, entityHelp, options);
    AddLogAndColor(command, options.color);
  }

  void AddLogAndColor(CLI::App& command, bool& color) {
    AddLog(command);
    color = environment_.hasColors;
    const auto chooseColor = [this, &color](const std::string& when) {
      color = when == "always" || (when == "auto" && environment_.hasColors);
    };
    command
        .add_option_function<std::string>("--color", chooseColor,
                                          "colours in results: auto (on a terminal), always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
  }

  static void AddConfigurationFile(CLI::App& command, EntityOptions& options) {
    command.add_option("CONFIG", options.configuration, "product configuration (JSON); - for standard input")
        ->required()
        ->check(kNotEmpty);
  }

  void AddConfiguration(CLI::App& command, const char* entityHelp, EntityOptions& options) {
    AddShared(command, entityHelp, options);
    AddConfigurationFile(command, options);
  }

  // Of commands whose results are for programs, and never coloured.
  void AddPlainConfiguration(CLI::App& command, const char* entityHelp, EntityOptions& options) {
    AddEntity(command, entityHelp, options);
    AddLog(command);
    AddConfigurationFile(command, options);
  }

  static void AddSubDevice(CLI::App& command, std::optional<int32_t>& subDevice) {
    constexpr int64_t kLeast = std::numeric_limits<int32_t>::min();
    constexpr int64_t kMost = std::numeric_limits<uint32_t>::max();
    command
        .add_option_function<int64_t>(
            "--sub-device", [&subDevice](int64_t id) { subDevice = static_cast<int32_t>(id); },
            "32-bit id of the sub-device; sent in this machine's byte order")
        ->type_name("ID")
        ->transform(kDecimal)
        ->check(CLI::Range(kLeast, kMost).description(""));
  }

  // An option that may be repeated, with one text each time.
  static CLI::Option* AddNames(CLI::App& command, const char* name, std::vector<std::string>& texts, const char* help,
                               const char* type = "NAME") {
    return command.add_option(name, texts, help)->type_name(type)->expected(1)->take_all()->allow_extra_args(false);
  }

  static void AddOutput(CLI::App& command, PacketForm& output) {
    AddChoice(command, "--output", kPacketForms, output)->type_name("FORM");
  }

  static CLI::Option* AddDataForm(CLI::App& command, DataForm& format, const std::string& help) {
    return AddChoice(command, "--format", kDataForms, format, help)->type_name("FORMAT");
  }

  void AddShow() {
    CLI::App& command = Add("show", "Lists the entities and attributes of a configuration.", "dp4 show kettle.json");
    command.callback([this] { exitCode_ = Show(show_, environment_); });
    AddConfiguration(command, kOneEntity, show_);
    AddDataForm(command, show_.format, "");
  }

  void AddLayout() {
    CLI::App& command = Add("layout", "Draws the payload as a map of bits.", "dp4 layout kettle.json --svg kettle.svg");
    command.callback([this] { exitCode_ = Layout(layout_, environment_); });
    AddConfiguration(command, kNeededEntity, layout_);
    auto* format = AddDataForm(command, layout_.format, "");
    command.add_option("--svg", layout_.svg, "writes a picture to this file instead; - for standard output")
        ->type_name("FILE")
        ->check(kNotEmpty)
        ->excludes(format);
  }

  void AddLint() {
    CLI::App& command = Add("lint", "Finds problems in configurations and says how the SDK and the device will behave.",
                            "dp4 lint --severity info --roundtrip kettle.json");
    AddShared(command, kOneEntity, lint_);
    auto* files =
        command.add_option("CONFIG", lint_.configurations, "product configurations (JSON); - for standard input")
            ->check(kNotEmpty);
    AddChoice(command, "--format", kFindingsForms, lint_.format)->type_name("FORMAT");
    AddChoice(command, "--severity", kSeverities, lint_.severity, "minimum severity to report: ")
        ->type_name("SEVERITY");
    command.add_flag("--roundtrip", lint_.roundtrip,
                     "also encodes and decodes the limits and a middle value of every attribute");
    command
        .add_option("--disable", lint_.disabled,
                    "leaves a rule out; so does {\"disable\": [RULE, ...]} in a file .dp4-lint.json beside the "
                    "configuration")
        ->type_name("RULE")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    auto* rules = command.add_flag("--rules", lint_.listRules, "lists the rules instead");
    auto* explain = command.add_option("--explain", lint_.explained, "explains a rule instead")
                        ->type_name("RULE")
                        ->check(kNotEmpty);
    command.callback([this, files, rules, explain] {
      const bool isLinting = rules->count() == 0 && explain->count() == 0;
      if (isLinting && files->count() == 0) throw CLI::RequiredError("CONFIG");
      exitCode_ = dp4::Lint(lint_, environment_);
    });
  }

  void AddCompare() {
    CLI::App& command = Add("compare",
                            "Finds what a new configuration breaks: errors break devices in the field, "
                            "warnings applications, infos nobody.",
                            "dp4 compare kettle.json kettle-2.json");
    AddLogAndColor(command, compare_.color);
    auto* before = command.add_option("OLD", compare_.before, "product configuration (JSON) of devices in the field")
                       ->check(kNotEmpty);
    auto* after = command.add_option("NEW", compare_.after, "the one that is to follow it; - for standard input")
                      ->check(kNotEmpty);
    AddChoice(command, "--format", kFindingsForms, compare_.format)->type_name("FORMAT");
    AddChoice(command, "--severity", kSeverities, compare_.severity, "exit code 1 from this severity on: ")
        ->type_name("SEVERITY");
    auto* rules = command.add_flag("--rules", compare_.listRules, "lists the rules instead");
    command.callback([this, before, after, rules] {
      if (rules->count() == 0 && before->count() == 0) throw CLI::RequiredError("OLD");
      if (rules->count() == 0 && after->count() == 0) throw CLI::RequiredError("NEW");
      exitCode_ = dp4::Compare(compare_, environment_);
    });
  }

  void AddEncode() {
    CLI::App& command =
        Add("encode", "Turns values into a packet: a write, or what a device would send.", kEncodeExample);
    command.callback([this] { exitCode_ = Encode(encode_, environment_); });
    AddConfiguration(command, kNeededEntity, encode_);
    command.add_option("VALUES", encode_.values, "value document (JSON); - for standard input")->check(kNotEmpty);
    AddNames(command, "--set", encode_.set, "one value, after those of the document", "NAME=VALUE");
    AddChoice(command, "--command", kEncodeCommands, encode_.command, "without it a record's, otherwise write: ")
        ->type_name("COMMAND");
    AddSubDevice(command, encode_.subDevice);
    AddOutput(command, encode_.output);
    command
        .add_option("--name", encode_.name, "the name of an array of C, which then has its explanation as a comment")
        ->type_name("NAME")
        ->check(kNotEmpty);
    command.add_flag("--explain", encode_.explain, "prints attribute by attribute what was set, or why it was not");
    AddChoice(command, "--format", kExplanationForms, encode_.json, "form of the explanation: ")->type_name("FORMAT");
    command.add_flag("--lenient", encode_.lenient, "makes a packet of the values that are right if others are not");
  }

  void AddRequest() {
    CLI::App& command = Add("request", "Makes a request without payload.", "dp4 request cc-read --sub-device 7");
    command.callback([this] { exitCode_ = Request(request_, environment_); });
    command.add_option("COMMAND", request_.command, "read, cc-read, cc-add, cc-delete or cc-list")
        ->required()
        ->check(CLI::IsMember({"read", "cc-read", "cc-add", "cc-delete", "cc-list"}));
    AddSubDevice(command, request_.subDevice);
    AddOutput(command, request_.output);
  }

  void AddDecode() {
    CLI::App& command = Add("decode", "Decodes packets, given or one a line on standard input.", kDecodeExample);
    command.callback([this] { exitCode_ = Decode(decode_, environment_); });
    AddConfiguration(command, kNeededEntity, decode_);
    command.add_option("PACKET", decode_.packets, "packets in hexadecimal, with or without 0x, blanks and colons");
    AddChoice(command, "--document", kDocumentForms, decode_.document)->type_name("FORM");
    auto* line = command.add_option("--line", decode_.line, "takes lines apart: time, direction, candump or a pattern")
                     ->type_name("PATTERN")
                     ->check(kNotEmpty);
    command.add_option("--member", decode_.member, "the member of JSON lines that holds the packet; packet without it")
        ->type_name("NAME")
        ->excludes(line);
    AddNames(command, "--only", decode_.only, "tells this attribute only; may be repeated");
    command.add_flag("--items", decode_.items,
                     "enums by their items; by its index what is digits alone or occurs twice");
    command.add_flag("--changes", decode_.changes, "a record only when something changed");
    command.add_flag("--strict", decode_.strict, "notes and unmatched lines are problems");
    command.add_flag("--quiet", decode_.quiet, "no summary at the end of a stream");
  }

  void AddVectors() {
    CLI::App& command = Add("vectors", "Makes test vectors: values and the packets that stand for them.",
                            "dp4 vectors kettle.json --random 100 > kettle.vectors.json");
    AddPlainConfiguration(command, kNeededEntity, vectors_);
    AddChoice(command, "--format", kVectorsForms, vectors_.format)->type_name("FORMAT");
    constexpr size_t kMostVectors = 1'000'000;
    auto* random =
        command
            .add_option("--random", vectors_.choices.random, "so many more writes and notifications of random values")
            ->type_name("N")
            ->check(CLI::Range(size_t{0}, kMostVectors).description(""));
    auto* seed = command.add_option("--seed", vectors_.choices.seed, "the choice of the random values; 1 without it")
                     ->type_name("S");
    command.callback([this, random, seed] {
      if (seed->count() != 0 && random->count() == 0) throw InputError("--seed needs --random");
      exitCode_ = dp4::Vectors(vectors_, environment_);
    });
  }

  void AddGenerate() {
    CLI::App& command = Add("generate", "Writes source code that is made from a configuration.",
                            "dp4 generate c kettle.json --output firmware/");
    command.require_subcommand(1);
    CLI::App& device = *command.add_subcommand("c",
                                               "Writes PREFIX.h, PREFIX.c and PREFIX_test.c: the device's end of "
                                               "one entity in C99.");
    device.callback([this] { exitCode_ = GenerateC(generate_, environment_); });
    AddPlainConfiguration(device, kNeededEntity, generate_);
    device.add_option("--prefix", generate_.prefix, "begins all names; without it the entity's name in lower case")
        ->type_name("NAME")
        ->check(kNotEmpty);
    AddOutputFolder(device, generate_.output);
    AddWireshark(command);
  }

  void AddWireshark(CLI::App& generate) {
    CLI::App& command = *generate.add_subcommand(
        "wireshark", "Writes NAME.lua, a dissector of all entities; NAME is the first one's name.");
    command.footer("Example:\n  dp4 generate wireshark kettle.json --udp 12416");
    AddPlainConfiguration(command, kOneEntity, wireshark_);
    AddOutputFolder(command, wireshark_.output);
    WiresharkChoices& choices = wireshark_.choices;
    const auto port = CLI::Range(1, 65535).description("");
    auto* udp =
        command.add_option("--udp", choices.udpPort, "the UDP port of the devices")->type_name("PORT")->check(port);
    auto* tcp = command.add_option("--tcp", choices.tcpPort, "the TCP port of the devices, a packet a segment")
                    ->type_name("PORT")
                    ->check(port);
    auto* dlt =
        command.add_option("--dlt", choices.userDlt, "the user link type, 0 to 15, of captures of bare packets")
            ->type_name("N")
            ->check(CLI::Range(0, 15).description(""));
    command.callback([this, udp, tcp, dlt] {
      if (udp->count() + tcp->count() + dlt->count() == 0) {
        throw CLI::RequiredError("One of --udp, --tcp and --dlt");
      }
      exitCode_ = GenerateWireshark(wireshark_, environment_);
    });
  }

  static void AddOutputFolder(CLI::App& command, std::string& folder) {
    command
        .add_option("--output", folder,
                    "the folder of what is written, made where there is none; the current one without it")
        ->type_name("DIR")
        ->check(kNotEmpty);
  }

  void AddDevices() {
    CLI::App& command = Add("devices", "Answers queries over a device list.",
                            "dp4 devices devices.json --protocol data-point --packet-version 0x4");
    command
        .add_option("LIST", devices_.list,
                    "device list (JSON): an array, or an object with \"debug\" and \"devices\"; - for standard input")
        ->required()
        ->check(kNotEmpty);
    auto* protocol = command.add_option("--protocol", devices_.protocol, "the devices that speak this protocol ...")
                         ->type_name("NAME")
                         ->check(kNotEmpty);
    auto* version =
        command.add_option("--packet-version", devices_.packetVersion, "... at this packet version, as 0x4")
            ->type_name("VERSION");
    protocol->needs(version);
    version->needs(protocol);
    auto* find = command.add_option("--find", devices_.find, "the first device with this product key")
                     ->type_name("KEY")
                     ->check(kNotEmpty);
    auto* keys = command.add_flag("--keys", devices_.keys, "the product keys of all devices");
    protocol->excludes(find)->excludes(keys);
    find->excludes(keys);
    AddDataForm(command, devices_.format, "a line of JSON for each result; ");
    auto* debug = command.add_flag("--debug", "takes the keys of debug builds");
    auto* release = command.add_flag("--release", "takes the keys of release builds");
    debug->excludes(release);
    command.callback([this, protocol, find, keys, debug, release] {
      if (protocol->count() + find->count() + keys->count() == 0) {
        throw CLI::RequiredError("One of --protocol, --find and --keys");
      }
      const auto isSet = [](const CLI::Option* flag) { return flag->count() != 0 && flag->as<bool>(); };
      if (isSet(debug) || isSet(release)) devices_.debug = isSet(debug);
      exitCode_ = Devices(devices_, environment_);
    });
  }

  void AddCompletion() {
    CLI::App& command = Add("completion", "Prints a completion script for a shell.",
                            "dp4 completion bash > ~/.local/share/bash-completion/completions/dp4");
    command.callback([this] { environment_.out << CompletionScript(shell_); });
    command.add_option("SHELL", shell_, "bash, zsh or fish")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
    // Called by the completion scripts.
    CLI::App& complete = *app_.add_subcommand("complete")->group("");
    complete.add_option("WORD", words_);
    complete.callback([this] { environment_.out << Completions(app_, words_); });
  }

  void AddHelp() {
    CLI::App& command = Add("help", "Tells more about a command, as COMMAND --help does.", "dp4 help decode");
    command.add_option("COMMAND", helpOf_, "all commands without it");
    command.callback([this] {
      if (!helpOf_.empty()) CheckCommand({helpOf_});
      // As a formatter writes it: the tool's own help would be that of the command that was given, which is this one.
      environment_.out << (helpOf_.empty()
                               ? app_.get_formatter()->make_help(&app_, app_.get_name(), CLI::AppFormatMode::Normal)
                               : app_.get_subcommand(helpOf_)->help(app_.get_name()));
    });
  }

  Environment& environment_;
  CLI::App app_{kDescription, "dp4"};
  int exitCode_ = kFine;
  bool isLogged_ = false;
  ShowOptions show_;
  LayoutOptions layout_;
  LintOptions lint_;
  CompareOptions compare_;
  EncodeOptions encode_;
  RequestOptions request_;
  DecodeOptions decode_;
  VectorsOptions vectors_;
  GenerateOptions generate_;
  GenerateWiresharkOptions wireshark_;
  DevicesOptions devices_;
  std::string shell_;
  std::string helpOf_;
  std::vector<std::string> words_;
};

}  // namespace

int RunTool(const std::vector<std::string>& arguments, Environment& environment) {
  std::string problem;
  int exitCode = kUnusable;
  try {
    exitCode = CommandLine(environment).Run(arguments);
  } catch (const InputError& error) {
    problem = error.what();
  } catch (const std::bad_alloc&) {
    problem = "not enough memory";
  } catch (const std::exception& error) {
    problem = std::string("internal error: ") + error.what();
  }
  if (!environment.out.flush() && problem.empty()) problem = "standard output cannot be written";
  if (problem.empty()) return exitCode;
  environment.err << "dp4: " << problem << '\n';
  return kUnusable;
}

}  // namespace dp4
