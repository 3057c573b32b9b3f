// The tool's stream of packets: lines of hexadecimal digits or of JSON. The first byte chooses an entity of the
// examples, the second how many bytes come at once. With 255 in both, blanks make the first line longer than lines may
// be.

#include <algorithm>
#include <memory>
#include <streambuf>
#include <string>

#include "Support.h"
#include "inspect/capture/JsonLine.h"
#include "inspect/packets/Reading.h"
#include "inspect/packets/ResultForms.h"
#include "tools/dp4/LineReader.h"

namespace inspect = morvix::inspect;

namespace {

constexpr size_t kMostLines = 64;
const std::string kHexDigits = "0123456789abcdefABCDEF";
const std::string kBlanks = " \t\r\n\v\f";

// Delivers text in pieces, as a pipe does.
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

void CheckError(const inspect::HexError& error, const std::string& text) {
  if (error.message.empty() || error.column < 1 || error.column > text.size() + 1) {
    fuzz::Fail("an error has a message and a column of its text",
               fuzz::Show(text) + "\ncolumn " + std::to_string(error.column) + ": " + error.message);
  }
  if (error.message.find_first_of("\n\r\x1b") != std::string::npos) {
    fuzz::Fail("a message is one line without controls", fuzz::Show(error.message));
  }
}

// All text forms of a packet agree.
void CheckForms(const fuzz::Bytes& bytes) {
  fuzz::Bytes again;
  inspect::HexError error;
  if (!inspect::ParseHex(inspect::PacketText(bytes, inspect::PacketForm::kHex), again, error))
    fuzz::Fail("hex can be read", fuzz::Show(bytes));
  fuzz::ExpectEqual(again, bytes, "hex is read as what was written");
  fuzz::ExpectEqual(inspect::PacketText(bytes, inspect::PacketForm::kBase64), model::Base64Text(bytes) + "\n",
                    "base64 is the model's");
  std::string array = inspect::PacketText(bytes, inspect::PacketForm::kCArray);
  array = array.substr(array.find('{') + 1);
  array.resize(array.rfind(','));
  if (!inspect::ParseHex(array, again, error)) fuzz::Fail("the items of an array can be read", fuzz::Show(array));
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
  inspect::HexError error;
  const bool isTaken = inspect::ParseHex(text, bytes, error);
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

// Outside of strings, JSON uses few characters.
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

// The packet of a JSON line is found, and replacing it leaves the rest unchanged.
bool CheckJsonLine(const std::string& line, std::string& packet) {
  inspect::JsonLine parts;
  inspect::HexError error;
  if (!inspect::ReadJsonLine(line, parts, error)) {
    CheckError(error, line);
    return false;
  }
  packet = parts.packet;
  if (parts.before.empty() || parts.before[parts.before.find_first_not_of(' ')] != '{') {
    fuzz::Fail("a line that is taken is an object", fuzz::Show(line));
  }
  Json::Value value;
  const std::string replaced = parts.before + "7" + parts.after;
  if (!IsPlainBetweenTexts(replaced)) fuzz::Fail("a line that is taken is JSON without comments", fuzz::Show(line));
  if (std::any_of(replaced.begin(), replaced.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; })) {
    fuzz::Fail("a line holds no controls", fuzz::Show(replaced));
  }
  if (!fuzz::ParseText(replaced, value) || value["packet"] != Json::Value(7) || parts.hasOthers != (value.size() > 1)) {
    fuzz::Fail("the rest of a line stays", fuzz::Show(line) + "\nbecame " + fuzz::Show(replaced));
  }
  // Without control characters, the text around the packet is unchanged.
  const bool isClean =
      std::none_of(line.begin(), line.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
  const bool isSame = line.compare(0, parts.before.size(), parts.before) == 0 && line.size() >= parts.after.size() &&
                      line.compare(line.size() - parts.after.size(), std::string::npos, parts.after) == 0;
  if (isClean && line.find('\xc2') == std::string::npos && !isSame) {
    fuzz::Fail("the parts of a line make the line", fuzz::Show(line));
  }
  return true;
}

std::string ActiveText(const std::vector<TavelReceiveInfo>& active) {
  Json::Value values(Json::objectValue);
  for (const TavelReceiveInfo& info : active) values[info.name] = info.value;
  return fuzz::Written(values);
}

std::unique_ptr<inspect::ResultForm> FormOf(const inspect::EntityModel& entity, size_t index) {
  return index == 0   ? inspect::FlatForm(entity)
         : index == 1 ? inspect::DecodedForm(entity)
                      : inspect::TableForm(entity, false);
}

// Tables take longer than the other forms.
void CheckPacket(const inspect::EntityModel& entity, const fuzz::Bytes& packet, bool withTable) {
  std::string document;
  std::vector<TavelReceiveInfo> alerts;
  std::vector<TavelReceiveInfo> faults;
  fuzz::TakeLines();
  const bool isReceived = ProtocolReceivePacket_4_0(entity.Info(), entity.Reading().records, packet.data(),
                                                    packet.size(), document, alerts, faults);
  const fuzz::Lines lines = fuzz::TakeLines();
  fuzz::ExpectEqual(inspect::RefusalOf(packet).empty(), isReceived, "a packet has a result if the module takes it");
  if (!isReceived) return;
  for (size_t i = 0; i < (withTable ? 3 : 2); ++i) {
    std::string failure;
    const std::string result = FormOf(entity, i)->ResultOf(packet, failure);
    fuzz::ExpectEqual(fuzz::TakeLines(), lines, "the module's lines are logged once");
    fuzz::ExpectEqual(failure.empty(), lines.empty(), "a failure has a message");
    if (result.empty() || result.back() != '\n') fuzz::Fail("a result ends its line", fuzz::Show(result));
    Json::Value value;
    if (i < 2 && !fuzz::ParseText(result, value)) fuzz::Fail("a result is JSON", fuzz::Show(result));
    if (i != 0) continue;
    fuzz::ExpectEqual(fuzz::Written(value["values"]), document, "the values are the module's");
    fuzz::ExpectEqual(fuzz::Written(value["active"]["alerts"]), ActiveText(alerts), "so are the active alerts");
    fuzz::ExpectEqual(fuzz::Written(value["active"]["faults"]), ActiveText(faults), "so are the active faults");
  }
}

const std::vector<inspect::EntityModel>& ExampleModels() {
  static const std::vector<inspect::EntityModel>& entities = *[] {
    auto* all = new std::vector<inspect::EntityModel>;
    inspect::EntityFault fault;
    for (const fuzz::Example& example : fuzz::Examples()) {
      all->push_back(std::move(*inspect::EntityModel::Parse(example.entity, "", fault)));
    }
    return all;
  }();
  return entities;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::vector<inspect::EntityModel>& entities = ExampleModels();
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
