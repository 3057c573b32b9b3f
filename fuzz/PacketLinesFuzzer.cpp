// The tool's stream of packets: lines of hexadecimal digits or of JSON. The first byte chooses an entity of the
// examples, the second how many bytes come at once. With 255 in both, blanks make the first line longer than lines may
// be.

#include <algorithm>
#include <memory>
#include <streambuf>
#include <string>

#include "Support.h"
#include "tools/dp4/DecodeForms.h"
#include "tools/dp4/JsonLine.h"
#include "tools/dp4/LineReader.h"
#include "tools/dp4/Packets.h"
#include "tools/dp4/Text.h"

namespace {

constexpr size_t kMostLines = 64;
const std::string kHexDigits = "0123456789abcdefABCDEF";
const std::string kBlanks = " \t\r\n\v\f";

// Gives a text in pieces, as a pipe does.
class PipeBuffer : public std::streambuf {
 public:
  PipeBuffer(const std::string& text, size_t pieceBytes) : text_(text), pieceBytes_(pieceBytes) {}

 protected:
  int_type underflow() override {
    at_ = next_;
    if (at_ == text_.size()) return traits_type::eof();
    next_ = std::min(at_ + pieceBytes_, text_.size());
    setg(&text_[at_], &text_[at_], text_.data() + next_);
    return traits_type::to_int_type(text_[at_]);
  }

 private:
  std::string text_;
  size_t pieceBytes_;
  size_t at_ = 0;
  size_t next_ = 0;
};

struct Line {
  std::string text;
  bool isTooLong = false;
};

std::vector<Line> LinesOf(const std::string& text, size_t pieceBytes) {
  PipeBuffer buffer(text, pieceBytes);
  std::istream in(&buffer);
  size_t waits = 0;
  dp4::LineReader reader(in, [&] { ++waits; });
  std::vector<Line> lines;
  std::string line;
  while (reader.Next(line)) {
    lines.push_back({line, reader.IsTooLong()});
    fuzz::ExpectEqual(reader.Number(), lines.size(), "lines are counted");
  }
  fuzz::ExpectEqual(reader.BytesTaken(), text.size(), "a stream is read to its end");
  fuzz::ExpectEqual(waits >= 1, true, "the reader tells before it waits");
  return lines;
}

void CheckLines(const std::string& text, const std::vector<Line>& lines) {
  size_t begin = 0;
  for (const Line& line : lines) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const std::string whole = text.substr(begin, end - begin);
    fuzz::ExpectEqual(line.isTooLong, whole.size() > dp4::kMaxLineBytes, "a line is too long above its limit");
    std::string expected = whole.substr(0, dp4::kMaxLineBytes);
    if (begin == 0 && expected.compare(0, 3, "\xef\xbb\xbf") == 0) expected.erase(0, 3);  // a byte-order mark
    if (line.text != expected) fuzz::Fail("a line is what stands there", fuzz::Show(whole));
    begin = end + 1;
  }
  if (begin < text.size()) fuzz::Fail("every line is read", fuzz::Show(text.substr(begin)));
}

void CheckError(const dp4::HexError& error, const std::string& text) {
  if (error.message.empty() || error.column < 1 || error.column > text.size() + 1) {
    fuzz::Fail("an error has a message and a column of its text",
               fuzz::Show(text) + "\ncolumn " + std::to_string(error.column) + ": " + error.message);
  }
  if (error.message.find_first_of("\n\r\x1b") != std::string::npos) {
    fuzz::Fail("a message is one line without controls", fuzz::Show(error.message));
  }
}

// Text for text, the packet's forms say the same.
void CheckForms(const fuzz::Bytes& bytes) {
  fuzz::Bytes again;
  dp4::HexError error;
  if (!dp4::ParseHex(dp4::PacketText(bytes, "hex"), again, error)) fuzz::Fail("hex can be read", fuzz::Show(bytes));
  fuzz::ExpectEqual(again, bytes, "hex is read as what was written");
  fuzz::ExpectEqual(dp4::PacketText(bytes, "base64"), model::Base64Text(bytes) + "\n", "base64 is the model's");
  std::string array = dp4::PacketText(bytes, "c-array");
  array = array.substr(array.find('{') + 1);
  array.resize(array.rfind(','));
  if (!dp4::ParseHex(array, again, error)) fuzz::Fail("the items of an array can be read", fuzz::Show(array));
  fuzz::ExpectEqual(again, bytes, "an array has the packet's bytes");
}

// Two digits a byte, perhaps with a prefix.
bool IsHexWord(const std::string& word) {
  const bool hasPrefix = word.compare(0, 2, "0x") == 0 || word.compare(0, 2, "0X") == 0;
  const std::string digits = word.substr(hasPrefix ? 2 : 0);
  return !digits.empty() && digits.size() % 2 == 0 && digits.find_first_not_of(kHexDigits) == std::string::npos;
}

// Words with blanks between them, and marks between which there is at least one word.
bool IsHexText(const std::string& text) {
  std::string part;
  size_t words = 0;
  for (const char c : text + ",") {
    const bool isMark = c == ':' || c == ',';
    if (!isMark && kBlanks.find(c) == std::string::npos) {
      part += c;
      continue;
    }
    if (!part.empty()) {
      if (!IsHexWord(part)) return false;
      ++words;
      part.clear();
    }
    if (isMark && words == 0) return false;
    if (isMark) words = 0;
  }
  return true;
}

bool CheckHex(const std::string& text, fuzz::Bytes& bytes) {
  dp4::HexError error;
  const bool isTaken = dp4::ParseHex(text, bytes, error);
  fuzz::ExpectEqual(isTaken, IsHexText(text), "what is taken is hexadecimal digits");
  if (!isTaken) {
    CheckError(error, text);
    return false;
  }
  // Two digits a byte, and a 0 for each prefix.
  const auto isDigit = [](char c) { return kHexDigits.find(c) != std::string::npos; };
  const auto digits = static_cast<size_t>(std::count_if(text.begin(), text.end(), isDigit));
  const auto prefixes = static_cast<size_t>(std::count(text.begin(), text.end(), 'x')) +
                        static_cast<size_t>(std::count(text.begin(), text.end(), 'X'));
  fuzz::ExpectEqual(digits - prefixes, 2 * bytes.size(), "two digits make a byte");
  CheckForms(bytes);
  return true;
}

// Without the texts in it, JSON has few characters.
bool IsPlainBetweenTexts(const std::string& json) {
  bool isInText = false;
  for (size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') {
      isInText = !isInText;
    } else if (isInText) {
      i += json[i] == '\\' ? 1 : 0;
    } else if (std::string(" \t\r{}[]:,+-.0123456789eEtrufalsn").find(json[i]) == std::string::npos) {
      return false;
    }
  }
  return !isInText;
}

// What a line of JSON holds is found, and what is put in its place leaves the rest as it was.
bool CheckJsonLine(const std::string& line, std::string& packet) {
  dp4::JsonLine parts;
  dp4::HexError error;
  if (!dp4::ReadJsonLine(line, parts, error)) {
    CheckError(error, line);
    return false;
  }
  if (!IsPlainBetweenTexts(line)) fuzz::Fail("a line that is taken is JSON without comments", fuzz::Show(line));
  packet = parts.packet;
  const std::string quoted = line.substr(parts.before.size(), line.size() - parts.before.size() - parts.after.size());
  Json::Value value;
  if (parts.before + quoted + parts.after != line || !fuzz::ParseText("[" + quoted + "]", value) ||
      value[0] != Json::Value(packet)) {
    fuzz::Fail("the parts of a line make the line", fuzz::Show(line));
  }
  const std::string replaced = dp4::WithoutControls(parts.before) + "7" + dp4::WithoutControls(parts.after);
  if (std::any_of(replaced.begin(), replaced.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; })) {
    fuzz::Fail("a line holds no controls", fuzz::Show(replaced));
  }
  Json::Value expected = parts.others;
  expected["packet"] = 7;
  // By the same reader: the module's stores some large integers as another kind.
  dp4::JsonError problem;
  if (!dp4::ParseJsonText(replaced, value, problem) || value != expected) {
    fuzz::Fail("the rest of a line stays", fuzz::Show(line) + "\nbecame " + fuzz::Show(replaced));
  }
  return true;
}

std::string ActiveText(const std::vector<TavelReceiveInfo>& active) {
  Json::Value values(Json::objectValue);
  for (const TavelReceiveInfo& info : active) values[info.name] = info.value;
  return fuzz::Written(values);
}

// Tables take longer than the other forms.
void CheckPacket(const dp4::ParsedEntity& entity, const fuzz::Bytes& packet, bool withTable) {
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  fuzz::TakeLines();
  const bool isReceived =
      ProtocolReceivePacket_4_0(entity.info, entity.attributes, packet.data(), packet.size(), document, alerts, faults);
  const fuzz::Lines lines = fuzz::TakeLines();
  for (const char* name : {"flat", "decoded", "table"}) {
    if (name == std::string("table") && !withTable) break;
    const std::unique_ptr<dp4::Form> form = dp4::MakeForm(name, entity, false);
    const std::optional<std::string> result = form->ResultOf(packet);
    fuzz::ExpectEqual(result.has_value(), isReceived, "a packet has a result if the module takes it");
    if (!result) {
      if (dp4::RefusalText(packet).empty()) fuzz::Fail("a refusal has a reason", fuzz::Show(packet));
      continue;
    }
    fuzz::ExpectEqual(form->Lines().size(), lines.size(), "the module's lines are told");
    for (const dp4::LoggedLine& line : form->Lines()) {
      if (dp4::FailureText(entity, packet, line.text).empty()) fuzz::Fail("a failure has a text", line.text);
    }
    if (result->empty() || result->back() != '\n') fuzz::Fail("a result ends its line", fuzz::Show(*result));
    if (name == std::string("table")) continue;
    Json::Value value;
    if (!fuzz::ParseText(*result, value)) fuzz::Fail("a result is JSON", fuzz::Show(*result));
    if (name != std::string("flat")) continue;
    fuzz::ExpectEqual(fuzz::Written(value["values"]), document, "the values are the module's");
    fuzz::ExpectEqual(fuzz::Written(value["active"]["alerts"]), ActiveText(alerts), "so are the active alerts");
    fuzz::ExpectEqual(fuzz::Written(value["active"]["faults"]), ActiveText(faults), "so are the active faults");
  }
  fuzz::TakeLines();
}

const std::vector<dp4::ParsedEntity>& ParsedExamples() {
  static const std::vector<dp4::ParsedEntity>& entities = *[] {
    auto* all = new std::vector<dp4::ParsedEntity>;
    for (const fuzz::Example& example : fuzz::Examples()) {
      all->push_back(dp4::ParseEntity(dp4::JsonText(), example.entity, dp4::kAllGroups, nullptr));
    }
    return all;
  }();
  return entities;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::vector<dp4::ParsedEntity>& entities = ParsedExamples();
  std::string text(data + 2, data + size);
  const bool isLong = data[0] == 0xff && data[1] == 0xff;
  if (isLong) text.insert(0, dp4::kMaxLineBytes - size / 2, ' ');
  const std::vector<Line> lines = LinesOf(text, text.size() + 1);
  CheckLines(text, lines);
  const size_t pieceBytes = size_t{1} + data[1] + (isLong ? 4096 : 0);
  const std::vector<Line> pieced = LinesOf(text, pieceBytes);
  if (!std::equal(lines.begin(), lines.end(), pieced.begin(), pieced.end(), [](const Line& left, const Line& right) {
        return left.text == right.text && left.isTooLong == right.isTooLong;
      })) {
    fuzz::Fail("lines are the same however they come", "pieces of " + std::to_string(pieceBytes));
  }
  for (size_t i = 0; i < std::min(lines.size(), kMostLines); ++i) {
    const std::string& line = lines[i].text;
    if (line.size() > 100000) continue;
    std::string hex = line;
    const size_t first = line.find_first_not_of(kBlanks);
    if (first != std::string::npos && line[first] == '{' && !CheckJsonLine(line, hex)) continue;
    fuzz::Bytes packet;
    if (CheckHex(hex, packet)) CheckPacket(entities[data[0] % entities.size()], packet, (data[1] + i) % 4 == 0);
  }
  return 0;
}
