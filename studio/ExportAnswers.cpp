// Answers with files: what the command line would write, and the command that does the same.

#include <fmt/format.h>

#include <map>

#include "Request.h"
#include "inspect/generate/Generate.h"
#include "inspect/layout/PayloadMap.h"
#include "inspect/packets/Packet.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"
#include "inspect/vectors/Vectors.h"

namespace morvix::studio {

using namespace inspect;

namespace {

// An argument of a command line, quoted for a shell where it has to be.
std::string Argument(const std::string& text) {
  static const char kPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./=:+,@%";
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

struct Export {
  std::vector<GeneratedFile> files;
  std::string command;
};

// What every export is made from.
struct Source {
  const Request& request;
  const ChosenEntity& chosen;
  std::string file;  // the configuration's name
  std::string stem;  // of the names of files that are not given by their content

  // The configuration and the entity as arguments.
  std::string Arguments() const {
    const MorvixProtocolEntity_4_0& entity = chosen.model.Info();
    if (EntitiesOf(chosen.configuration).size() == 1) return Argument(file);
    const std::string id = std::to_string(entity.id);
    return Argument(file) + " --entity " + Argument(!IsMeantBy(entity.name) && IsMeantBy(id) ? id : entity.name);
  }

  bool IsMeantBy(const std::string& choice) const {
    try {
      return &ChooseEntity(chosen.configuration, choice) == &chosen.json;
    } catch (const InputError&) {
      return false;  // several have it, or it is empty
    }
  }

  void CheckForCode() const {
    const std::vector<Finding> findings =
        FindingsAgainstCode(chosen.configuration.Name(), chosen.configuration.Text(), chosen.model.Info().name);
    if (findings.empty()) return;
    throw InputError(fmt::format("no code is made until this is fixed: {}", findings[0].message));
  }
};

Export PictureOf(const Source& source) {
  return {{{source.stem + ".svg", MapSvg(MapPayload(source.chosen.model))}},
          "dp4 layout " + source.Arguments() + " --svg " + Argument(source.stem + ".svg")};
}

Export VectorsAsJson(const Source& source) {
  return {{{source.stem + ".vectors.json", VectorsJson(VectorsOf(source.chosen.model, {}))}},
          "dp4 vectors " + source.Arguments() + " > " + Argument(source.stem + ".vectors.json")};
}

Export DeviceCodeOf(const Source& source) {
  source.CheckForCode();
  DeviceCodeChoices choices;
  choices.sha256 = Sha256Text(source.chosen.configuration.Text());
  std::string problem;
  Export result = {DeviceCode(source.chosen.model, choices, problem), "dp4 generate c " + source.Arguments()};
  if (!problem.empty()) throw InputError(problem);
  return result;
}

Export DissectorOf(const Source& source) {
  source.CheckForCode();
  constexpr int kUdpPort = 12416;
  WiresharkChoices choices;
  choices.udpPort = kUdpPort;
  choices.sha256 = Sha256Text(source.chosen.configuration.Text());
  std::string problem;
  std::vector<EntityModel> entities;
  entities.push_back(ModelOf(source.chosen.configuration, source.chosen.json));
  Export result = {{WiresharkDissector(entities, choices, problem)},
                   fmt::format("dp4 generate wireshark {} --udp {}", source.Arguments(), kUdpPort)};
  if (!problem.empty()) throw InputError(problem);
  return result;
}

Export PacketAsC(const Source& source) {
  const std::string text = source.request.Text("packet");
  Bytes packet;
  HexError error;
  if (!ParseHex(text, packet, error)) throw InputError("there is no packet yet; set a value or paste a packet");
  std::string command = "dp4 encode " + source.Arguments();
  const Json::Value& values = source.request.Object("values");
  for (const std::string& name : values.getMemberNames()) {
    const Json::Value& value = values[name];
    command += " --set " + Argument(name + "=" + (value.isString() ? value.asString() : json::CompactText(value)));
  }
  const std::string write = CommandName(MorvixProtocolCommandWriteReq_4_0);
  if (source.request.TextOr("command", write) != write)
    command += " --command " + Argument(source.request.Text("command"));
  if (const std::optional<int32_t> id = source.request.SubDevice()) command += fmt::format(" --sub-device {}", *id);
  return {{{source.stem + ".packet.c", PacketText(packet, PacketForm::kCArray)}}, command + " --output c-array"};
}

using Exporter = Export (*)(const Source&);

Exporter ExporterFor(const std::string& form) {
  static const std::map<std::string, Exporter> kExporters = {{"svg", PictureOf},
                                                             {"vectors", VectorsAsJson},
                                                             {"c", DeviceCodeOf},
                                                             {"wireshark", DissectorOf},
                                                             {"c-array", PacketAsC}};
  const auto found = kExporters.find(form);
  if (found == kExporters.end()) throw InputError("unknown form " + InQuotes(form));
  return found->second;
}

}  // namespace

void AnswerExport(const Request& request, std::string& answer) {
  const Exporter exporter = ExporterFor(request.Text("form"));
  const ChosenEntity chosen(request);
  std::string file = request.TextOr("file", "configuration.json");
  if (file[0] == '-') file.insert(0, "./");  // which no option begins with
  const size_t dot = file.rfind('.');
  const Export result = exporter({request, chosen, file, file.substr(0, dot == 0 ? std::string::npos : dot)});
  JsonWriter writer(answer);
  writer.Text("command", result.command);
  JsonWriter files(writer.Member("files"), '[');
  for (const GeneratedFile& one : result.files) {
    JsonWriter written(files.Element());
    written.Text("name", one.name);
    written.Text("text", one.text);
  }
}

}  // namespace morvix::studio
