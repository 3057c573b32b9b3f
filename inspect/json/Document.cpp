#include "inspect/json/Document.h"

#include <fmt/format.h>
#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <utility>

#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace morvix::inspect::json {

Document::Document(std::string name, std::string text) : name_(std::move(name)), text_(std::move(text)) {
  SyntaxError error;
  if (Parse(error)) return;
  throw InputError(json::PlaceName(name_, error.place) + ": not JSON: " + Escaped(error.message));
}

std::optional<Document> Document::Read(std::string name, std::string text, SyntaxError& error) {
  Document document;
  document.name_ = std::move(name);
  document.text_ = std::move(text);
  if (!document.Parse(error)) return std::nullopt;
  return document;
}

bool Document::Parse(SyntaxError& error) {
  lineStarts_ = {0};
  for (size_t i = text_.find('\n'); i != std::string::npos; i = text_.find('\n', i + 1)) lineStarts_.push_back(i + 1);

  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  builder["collectComments"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string report;
  try {
    if (!reader->parse(text_.data(), text_.data() + text_.size(), &root_, &report)) {
      error = FirstError(report);
      return false;
    }
  } catch (const Json::Exception&) {
    error = {Place(), "nested too deep"};
    return false;
  }
  // The reader takes it for the end of the text.
  const size_t nul = text_.find('\0', static_cast<size_t>(root_.getOffsetLimit()));
  if (nul == std::string::npos) return true;
  error = {PlaceOf(nul), "a NUL after the document"};
  return false;
}

size_t Document::OffsetOf(const Json::Value& value) const {
  return static_cast<size_t>(std::max<ptrdiff_t>(value.getOffsetStart(), 0));
}

Place Document::PlaceOf(size_t offset) const {
  const auto next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
  return {static_cast<size_t>(next - lineStarts_.begin()), offset - *(next - 1) + 1};
}

std::string Document::PlaceName(size_t offset) const { return json::PlaceName(name_, PlaceOf(offset)); }

std::string PlaceName(const std::string& name, const Place& place) {
  return fmt::format("{}:{}:{}", Escaped(name), place.line, place.column);
}

SyntaxError FirstError(const std::string& report) {
  SyntaxError error;
  std::string word;
  std::istringstream text(report);  // "* Line 3, Column 5\n  Syntax error: ...\n"
  text >> word >> word >> error.place.line >> word >> word >> error.place.column >> std::ws;
  std::getline(text, error.message);
  return error;
}

std::string CompactText(const Json::Value& value) {
  thread_local const std::unique_ptr<Json::StreamWriter> writer = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
  }();
  std::ostringstream text;
  writer->write(value, &text);
  return text.str();
}

std::string PointerToken(const std::string& name) {
  std::string token = "/";
  for (const char c : name) {
    if (c == '~') {
      token += "~0";
    } else if (c == '/') {
      token += "~1";
    } else {
      token += c;
    }
  }
  return token;
}

}  // namespace morvix::inspect::json
