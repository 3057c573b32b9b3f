#include "inspect/json/Document.h"

#include <fmt/format.h>
#include <json/writer.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <utility>

#include "inspect/text/Escape.h"

namespace morvix::inspect::json {

std::optional<Document> Document::Read(std::string name, std::string text, SyntaxError& error) {
  Document document;
  document.name_ = std::move(name);
  document.text_ = std::move(text);
  const std::string& read = document.text_;
  document.lineStarts_ = {0};
  for (size_t i = read.find('\n'); i != std::string::npos; i = read.find('\n', i + 1)) {
    document.lineStarts_.push_back(i + 1);
  }
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  builder["collectComments"] = false;
  if (!Parse(read, builder, document.root_, error)) return std::nullopt;
  // JsonCpp stops reading at a NUL.
  const size_t nul = read.find('\0', static_cast<size_t>(document.root_.getOffsetLimit()));
  if (nul == std::string::npos) return document;
  error = {document.PlaceOf(nul), "a NUL after the document"};
  return std::nullopt;
}

std::string Document::PlaceName(const Json::Value& value) const { return PlaceName(OffsetOf(value)); }

Place Document::PlaceOf(size_t offset) const {
  const auto next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
  return {static_cast<size_t>(next - lineStarts_.begin()), offset - *(next - 1) + 1};
}

size_t OffsetOf(const Json::Value& value) {
  return static_cast<size_t>(std::max<ptrdiff_t>(value.getOffsetStart(), 0));
}

std::string PlaceName(const std::string& name, const Place& place) {
  return fmt::format("{}:{}:{}", Escaped(name), place.line, place.column);
}

bool Parse(const std::string& text, const Json::CharReaderBuilder& builder, Json::Value& value, SyntaxError& error) {
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string report;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &value, &report)) return true;
  } catch (const Json::Exception&) {
    error = {Place(), "nested too deep"};
    return false;
  }
  std::string word;
  std::istringstream words(report);  // "* Line 3, Column 5\n  Syntax error: ...\n"
  words >> word >> word >> error.place.line >> word >> word >> error.place.column >> std::ws;
  std::getline(words, error.message);
  return false;
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

}  // namespace morvix::inspect::json
