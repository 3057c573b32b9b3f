// A request of the page and the parts of its answer.

#ifndef MORVIX_STUDIO_REQUEST_H
#define MORVIX_STUDIO_REQUEST_H

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"

namespace morvix::studio {

// A JSON object or array that is written from its first to its last member.
class JsonWriter {
 public:
  explicit JsonWriter(std::string& out, char open = '{') : out_(out), close_(open == '{' ? '}' : ']') { out_ += open; }
  ~JsonWriter() { out_ += close_; }
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;

  // What is appended next is the value of this member, or the next element.
  std::string& Member(std::string_view name);
  std::string& Element();

  void Text(std::string_view name, std::string_view text);
  void Number(std::string_view name, uint64_t number);
  // A text that is JSON already; its line end is left out.
  void Json(std::string_view name, std::string_view json);
  void Place(std::string_view name, const inspect::BitRange& bits);

 private:
  std::string& out_;
  char close_;
  bool isFirst_ = true;
};

// The members of a request. Those that are absent or of another kind are an InputError.
class Request {
 public:
  explicit Request(const Json::Value& members) : members_(members) {}

  std::string Text(const char* name) const;
  std::string TextOr(const char* name, const std::string& otherwise) const;
  uint64_t Number(const char* name) const;
  // Null when it is absent.
  const Json::Value& Object(const char* name) const;
  // The 32 bits of a sub-device's id, with or without a sign; empty when it is absent.
  std::optional<int32_t> SubDevice() const;
  bool Has(const char* name) const { return members_.isMember(name); }

 private:
  const Json::Value& members_;
};

constexpr char kConfiguration[] = "configuration";

// Throws InputError when a configuration is too long to be looked at while somebody types. Messages call it `name`.
void CheckSize(const std::string& configuration, const char* name = kConfiguration);

// Reads a configuration. Throws InputError when it is too long or is not JSON.
inspect::json::Document ReadConfiguration(std::string text, const char* name = kConfiguration);

// The entity at the request's index in its configuration. Throws InputError when there is none, or it is unusable.
struct ChosenEntity {
  explicit ChosenEntity(const Request& request);

  inspect::json::Document configuration;
  const Json::Value& json;
  inspect::EntityModel model;
};

// The answers. Each appends an object.
void AnswerEntities(const Request& request, std::string& answer);
void AnswerLint(const Request& request, std::string& answer);
void AnswerEntity(const Request& request, std::string& answer);
void AnswerEncode(const Request& request, std::string& answer);
void AnswerRead(const Request& request, std::string& answer);
void AnswerFlip(const Request& request, std::string& answer);
void AnswerCapture(const Request& request, std::string& answer);
void AnswerMatch(const Request& request, std::string& answer);
void AnswerCompare(const Request& request, std::string& answer);
void AnswerExport(const Request& request, std::string& answer);

}  // namespace morvix::studio

#endif
