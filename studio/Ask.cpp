#include "Ask.h"

#include <fmt/format.h>

#include <exception>
#include <map>
#include <new>

#include "Request.h"
#include "host/Logging.h"
#include "inspect/json/Document.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace morvix::studio {

using namespace inspect;

namespace {

// What people write is far shorter. A longer text takes seconds, too long while somebody types.
constexpr size_t kMaxConfigurationBytes = size_t{8} << 20;

using Answer = void (*)(const Request&, std::string&);

Answer AnswerFor(const std::string& ask) {
  static const std::map<std::string, Answer> kAnswers = {
      {"entities", AnswerEntities}, {"lint", AnswerLint},     {"entity", AnswerEntity},   {"encode", AnswerEncode},
      {"read", AnswerRead},         {"flip", AnswerFlip},     {"capture", AnswerCapture}, {"match", AnswerMatch},
      {"compare", AnswerCompare},   {"export", AnswerExport},
  };
  const auto found = kAnswers.find(ask);
  if (found == kAnswers.end()) throw InputError("unknown request " + InQuotes(ask));
  return found->second;
}

std::string ErrorAnswer(const std::string& text) {
  std::string answer;
  JsonWriter(answer).Text("error", text);
  return answer;
}

std::string AnswerTo(const std::string& text) {
  Json::Value members;
  json::SyntaxError error;
  Json::CharReaderBuilder builder;
  if (!json::Parse(text, builder, members, error) || !members.isObject()) {
    throw InputError("the request is not a JSON object");
  }
  const Request request(members);
  std::string answer;
  AnswerFor(request.Text("ask"))(request, answer);
  return answer;
}

}  // namespace

std::string Ask(const std::string& request) {
  const LogCapture silent;
  try {
    return AnswerTo(request);
  } catch (const InputError& error) {
    return ErrorAnswer(error.what());
  } catch (const std::bad_alloc&) {
    return "{\"error\":\"out of memory\"}";
  } catch (const std::exception& error) {
    return ErrorAnswer(std::string("internal error: ") + error.what());
  }
}

std::string& JsonWriter::Member(std::string_view name) {
  Element();
  json::AppendString(name, out_);
  out_ += ':';
  return out_;
}

std::string& JsonWriter::Element() {
  if (!isFirst_) out_ += ',';
  isFirst_ = false;
  return out_;
}

void JsonWriter::Text(std::string_view name, std::string_view text) { json::AppendString(text, Member(name)); }

void JsonWriter::Number(std::string_view name, uint64_t number) { Member(name) += std::to_string(number); }

void JsonWriter::Json(std::string_view name, std::string_view json) {
  Member(name) += json.substr(0, json.find_last_not_of('\n') + 1);
}

void JsonWriter::Place(std::string_view name, const BitRange& bits) {
  Member(name) += fmt::format(R"({{"firstBit":{},"bits":{}}})", bits.begin, bits.Length());
}

std::string Request::Text(const char* name) const {
  if (!members_[name].isString()) throw InputError(fmt::format("the request has no string \"{}\"", name));
  return members_[name].asString();
}

std::string Request::TextOr(const char* name, const std::string& otherwise) const {
  return Has(name) ? Text(name) : otherwise;
}

uint64_t Request::Number(const char* name) const {
  if (!members_[name].isUInt64()) throw InputError(fmt::format("the request has no number \"{}\"", name));
  return members_[name].asUInt64();
}

const Json::Value& Request::Object(const char* name) const {
  if (Has(name) && !members_[name].isObject())
    throw InputError(fmt::format("the request's \"{}\" is not an object", name));
  return members_[name];
}

std::optional<int32_t> Request::SubDevice() const {
  if (!Has("subDevice")) return {};
  const Json::Value& id = members_["subDevice"];
  const bool isInteger = id.isInt64();
  if (!isInteger || id.asInt64() < INT32_MIN || id.asInt64() > int64_t{UINT32_MAX}) {
    throw InputError(fmt::format("the id of a sub-device is an integer from {} to {}", INT32_MIN, UINT32_MAX));
  }
  return static_cast<int32_t>(id.asInt64());
}

void CheckSize(const std::string& configuration, const char* name) {
  if (configuration.size() <= kMaxConfigurationBytes) return;
  throw InputError(
      fmt::format("the {} has {} bytes; expected at most {}", name, configuration.size(), kMaxConfigurationBytes));
}

json::Document ReadConfiguration(std::string text, const char* name) {
  CheckSize(text, name);
  json::SyntaxError error;
  std::optional<json::Document> document = json::Document::Read(name, std::move(text), error);
  if (!document) throw InputError(json::PlaceName(name, error.place) + ": not JSON: " + Escaped(error.message));
  return *std::move(document);
}

namespace {

const Json::Value& EntityAt(const json::Document& configuration, uint64_t index) {
  const Json::Value& entities = EntitiesOf(configuration);
  if (index >= entities.size()) throw InputError("the configuration has no such entity");
  return entities[static_cast<Json::ArrayIndex>(index)];
}

}  // namespace

ChosenEntity::ChosenEntity(const Request& request)
    : configuration(ReadConfiguration(request.Text("configuration"))),
      json(EntityAt(configuration, request.Number("entity"))),
      model(ModelOf(configuration, json)) {}

}  // namespace morvix::studio
