#include "Files.h"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <istream>
#include <optional>
#include <ostream>
#include <system_error>
#include <utility>
#include <vector>

#include "inspect/model/Summary.h"
#include "inspect/text/Error.h"
#include "inspect/text/Escape.h"

namespace dp4 {

using namespace morvix::inspect;

namespace {

// No real document is longer. Without a limit, endless input would fill the memory.
constexpr size_t kMaxFileBytes = size_t{1} << 26;

std::string Reason() { return std::generic_category().message(errno != 0 ? errno : EIO); }

std::string WithoutMark(std::string text) {
  if (text.compare(0, 3, "\xef\xbb\xbf") == 0) text.erase(0, 3);
  return text;
}

}  // namespace

std::string NameOfFile(const std::string& path) { return path == "-" ? "standard input" : path; }

std::string ReadBytes(const std::string& path, Environment& environment) {
  const std::string name = Escaped(NameOfFile(path));
  errno = 0;
  std::ifstream file;
  if (path != "-") file.open(path, std::ios::binary);
  std::istream& in = path == "-" ? environment.in : file;
  std::string text;
  std::vector<char> buffer(65536);
  while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() != 0) {
    text.append(buffer.data(), static_cast<size_t>(in.gcount()));
    if (text.size() > kMaxFileBytes)
      throw InputError(fmt::format("{}: expected at most {} bytes", name, kMaxFileBytes));
  }
  if (path == "-" && in.bad()) throw InputError(name + ": cannot be read");
  if (path != "-" && (!file.is_open() || in.bad())) throw InputError(name + ": cannot be read: " + Reason());
  return text;
}

std::string ReadFile(const std::string& path, Environment& environment) {
  return WithoutMark(ReadBytes(path, environment));
}

json::Document ReadJsonFile(const std::string& path, Environment& environment) {
  return ReadJson(path, ReadBytes(path, environment));
}

json::Document ReadJson(const std::string& path, const std::string& bytes) {
  json::SyntaxError error;
  std::optional<json::Document> document = json::Document::Read(NameOfFile(path), WithoutMark(bytes), error);
  if (document) return std::move(*document);
  throw InputError(json::PlaceName(NameOfFile(path), error.place) + ": not JSON: " + Escaped(error.message));
}

EntityModel ReadEntity(const json::Document& configuration, const std::string& choice, Environment& environment) {
  EntityModel entity = ModelOf(configuration, ChooseEntity(configuration, choice));
  const std::string dropped = DroppedSummary(entity);
  if (!dropped.empty()) {
    environment.err << fmt::format("dp4: warning: {}: {}; dp4 lint tells why\n", Escaped(configuration.Name()),
                                   dropped);
  }
  return entity;
}

void MakeFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (error) throw InputError(Escaped(path) + ": cannot be made: " + error.message());
}

void UpdateFile(const std::string& path, const std::string& text, Environment& environment) {
  std::ifstream file;
  std::error_code error;
  if (std::filesystem::is_regular_file(path, error)) file.open(path, std::ios::binary);  // a folder cannot be read
  const std::string old((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!file.is_open() || old != text) WriteFile(path, text, environment);
}

void WriteFile(const std::string& path, const std::string& text, Environment& environment) {
  if (path == "-") {
    environment.out << text;
    return;
  }
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw InputError(Escaped(path) + ": cannot be written: " + Reason());
}

}  // namespace dp4
