// dp4 decode: received packets to what the application is told, one packet or a stream of them.
//
// The forms of --document:
//
//   flat     one line of JSON a packet (here broken for the page):
//              {"values": {"kettle": {"power": true, "target": "85"}, "version": 4.0},
//               "alerts": {"Lid open": false, "Low water": true}, "faults": {"Sensor broken": true},
//               "active": {"alerts": {"Low water": 1}, "faults": {"Sensor broken": 1}}}
//            "values" is the application's document, "alerts" and "faults" are the decoded values of all of them by
//            name, "active" holds the integers of those that are active. Lists of the module become objects, since the
//            names of one entity cannot repeat in them, and a pipe can then ask for one by its name.
//   decoded  the decoded document as one line of JSON.
//   table    for people: every attribute with its place, bits and value.
//
// Standard input is read when no packets are given: a packet in hexadecimal a line, or a JSON object a line, whose text
// "packet" is replaced by the result. The rest of such a line is kept as it stands, the order of its members and the
// writing of its numbers included; only control characters are escaped. With tables it is told above the table, its
// members sorted. Empty lines are passed over.
//
// A packet that the module does not take has no result; one that it decodes with a warning has what the application
// would be told. Both are reported, and the stream goes on.

#include <json/reader.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <utility>

#include "Commands.h"
#include "Packets.h"
#include "Show.h"

namespace dp4 {

namespace {

using Attribute = MorvixProtocolAttribute_4_0;

const char kBold[] = "1";
const char kTableKey[] = "\nPLACE counts bytes of the payload, or byte.bit with bit 0 the lowest.\n";

// JSON text on one line, without its end.
std::string CompactText(const Json::Value& value) {
  static Json::StreamWriter& writer = *[] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return builder.newStreamWriter();
  }();
  std::ostringstream text;
  writer.write(value, &text);
  return text.str();
}

// ---- One packet ----

// A packet, unpacked. Releases its payload.
class Unpacked {
 public:
  explicit Unpacked(const std::vector<byte>& packet) {
    package_.cmd = kNoCommand;
    isGood_ = ProtocolUnpackPackage_4_0(packet.data(), packet.size(), package_);
  }
  ~Unpacked() { std::free(package_.value); }
  Unpacked(const Unpacked&) = delete;
  Unpacked& operator=(const Unpacked&) = delete;

  bool IsGood() const { return isGood_; }
  const MorvixProtocolPackage_4_0& Package() const { return package_; }

  // Why it is not good, as what the module left in the package tells.
  std::string Reason() const {
    if (package_.cmd == kNoCommand) return "too short; expected a command byte and at least one byte of payload";
    if (package_.sizeValue != 0) return "too long; expected a command byte and at most 16384 bytes of payload";
    const byte command = static_cast<byte>(package_.cmd);
    return "command " + HexText(&command, 1) + " is not received; expected 03 (read response) or 04 (notification)";
  }

 private:
  static constexpr auto kNoCommand = MorvixProtocolCommand_4_0(0x100);  // no byte has this number

  MorvixProtocolPackage_4_0 package_;
  bool isGood_ = false;
};

// The results of packets in one form of --document.
class Form {
 public:
  explicit Form(const ParsedEntity& entity) : entity_(entity) {}
  virtual ~Form() = default;
  Form(const Form&) = delete;
  Form& operator=(const Form&) = delete;

  // Nothing when the module does not take the packet.
  virtual std::optional<std::string> ResultOf(const std::vector<byte>& packet) = 0;

  // The module's lines about the packet of the last call.
  const std::vector<LoggedLine>& Lines() const { return lines_; }

 protected:
  const ParsedEntity& Entity() const { return entity_; }
  void TakeLines() { lines_ = log_.Take(); }

  Json::Value Decode(const MorvixProtocolPackage_4_0& package) const {
    Json::Value decoded(Json::objectValue);
    ProtocolDecodeAttributes_4_0(entity_.info, entity_.attributes, package, decoded);
    return decoded;
  }

 private:
  const ParsedEntity& entity_;
  LogGatherer log_;
  std::vector<LoggedLine> lines_;
};

// ---- --document decoded ----

class DecodedForm : public Form {
 public:
  using Form::Form;

  std::optional<std::string> ResultOf(const std::vector<byte>& packet) override {
    const Unpacked unpacked(packet);
    if (!unpacked.IsGood()) return std::nullopt;
    const Json::Value decoded = Decode(unpacked.Package());
    TakeLines();
    return CompactText(decoded) + '\n';
  }
};

// ---- --document flat ----

bool IsStatus(const Attribute& attribute) {
  return attribute.type == MorvixProtocolTypeStatusWritable_4_0 ||
         attribute.type == MorvixProtocolTypeStatusReadonly_4_0;
}

// The key of an attribute's value in the decoded document.
const std::string& KeyOf(const Attribute& attribute) {
  return IsStatus(attribute) ? attribute.name : attribute.display_name;
}

// One pass gives the values and what is active; the alerts and faults that are not active it does not tell. Further
// passes do, over the alerts alone and over the faults alone, as if they were status: a pass costs a fraction of what
// documents cost. They see what decoding all attributes sees as long as that is not ended early, which the module logs,
// and no attribute replaces another's value.
class FlatForm : public Form {
 public:
  explicit FlatForm(const ParsedEntity& entity)
      : Form(entity),
        alerts_(StatusOf(MorvixProtocolTypeAlert_4_0)),
        faults_(StatusOf(MorvixProtocolTypeFault_4_0)),
        isSeparable_(entity.info.name != "version" && AreKeysDistinct()) {
    listInfo_.name = "list";
  }

  std::optional<std::string> ResultOf(const std::vector<byte>& packet) override {
    activeAlerts_.clear();
    activeFaults_.clear();
    if (!ProtocolReceivePacket_4_0(Entity().info, Entity().attributes, packet.data(), packet.size(), document_,
                                   activeAlerts_, activeFaults_)) {
      return std::nullopt;
    }
    TakeLines();
    document_.erase(document_.find_last_not_of('\n') + 1);
    std::string alerts;
    std::string faults;
    const bool isSeparate =
        isSeparable_ && Lines().empty() && ListText(alerts_, packet, alerts) && ListText(faults_, packet, faults);
    if (!isSeparate) ListTextsByDocument(packet, alerts, faults);
    return "{\"values\":" + document_ + ",\"alerts\":" + alerts + ",\"faults\":" + faults +
           ",\"active\":{\"alerts\":" + ActiveText(activeAlerts_) + ",\"faults\":" + ActiveText(activeFaults_) + "}}\n";
  }

 private:
  std::vector<Attribute> StatusOf(MorvixProtocolType_4_0 group) const {
    std::vector<Attribute> status;
    for (const Attribute& attribute : Entity().attributes) {
      if (attribute.type != group) continue;
      status.push_back(attribute);
      status.back().name = attribute.display_name;
      status.back().type = MorvixProtocolTypeStatusReadonly_4_0;
    }
    return status;
  }

  // As they are written: what is no UTF-8 may become alike there.
  bool AreKeysDistinct() const {
    std::set<std::string> keys;
    for (const Attribute& attribute : Entity().attributes) keys.insert(CompactText(KeyOf(attribute)));
    return keys.size() == Entity().attributes.size();
  }

  // The values of `attributes` by name. False when the document is not of the expected make.
  bool ListText(const std::vector<Attribute>& attributes, const std::vector<byte>& packet, std::string& text) {
    static const std::string kBegin = "{\"list\":";
    static const std::string kEnd = ",\"version\":4.0}\n";
    text = "{}";
    if (attributes.empty()) return true;
    if (!ProtocolReceivePacket_4_0(listInfo_, attributes, packet.data(), packet.size(), list_, unused_, unused_)) {
      return false;
    }
    if (list_ == "{\"version\":4.0}\n") return true;
    if (list_.size() < kBegin.size() + kEnd.size() || list_.compare(0, kBegin.size(), kBegin) != 0 ||
        list_.compare(list_.size() - kEnd.size(), kEnd.size(), kEnd) != 0) {
      return false;
    }
    text.assign(list_, kBegin.size(), list_.size() - kBegin.size() - kEnd.size());
    return true;
  }

  void ListTextsByDocument(const std::vector<byte>& packet, std::string& alerts, std::string& faults) const {
    const LogGatherer silent;  // these lines have been told
    const Unpacked unpacked(packet);
    Json::Value decoded = Decode(unpacked.Package());
    decoded["version"] = 4.0;
    Json::Value alertList;
    Json::Value faultList;
    ProtocolConvertReceiveResult_4_0(CompactText(decoded), alertList, faultList);
    alerts = CompactText(ByName(alertList));
    faults = CompactText(ByName(faultList));
  }

  static Json::Value ByName(const Json::Value& list) {
    Json::Value values(Json::objectValue);
    for (const Json::Value& item : list) values[item["name"].asString()] = item["value"];
    return values;
  }

  static std::string ActiveText(const std::vector<TavelReceiveInfo>& active) {
    std::string text = "{";
    for (const TavelReceiveInfo& info : active) {
      text += (text.size() == 1 ? "" : ",") + CompactText(info.name) + ':' + std::to_string(info.value);
    }
    return text + '}';
  }

  std::vector<Attribute> alerts_;
  std::vector<Attribute> faults_;
  bool isSeparable_;
  MorvixProtocolEntity_4_0 listInfo_;
  // Kept for their memory.
  std::string document_;
  std::string list_;
  std::vector<TavelReceiveInfo> activeAlerts_;
  std::vector<TavelReceiveInfo> activeFaults_;
  std::vector<TavelReceiveInfo> unused_;
};

// ---- What ended decoding ----

// An attribute on its own.
struct Alone {
  Json::Value value;  // null when there is none
  std::string line;   // the module's, when decoding it ends decoding
};

Alone DecodeAlone(const MorvixProtocolEntity_4_0& info, const Attribute& attribute,
                  const MorvixProtocolPackage_4_0& package) {
  LogGatherer log;
  Json::Value decoded(Json::objectValue);
  ProtocolDecodeAttributes_4_0(info, {attribute}, package, decoded);
  const std::vector<LoggedLine> lines = log.Take();
  Alone alone;
  if (!lines.empty()) alone.line = lines[0].text;
  if (decoded.isMember(info.name)) alone.value = decoded[info.name][KeyOf(attribute)]["value"];
  return alone;
}

// The first attribute that ends decoding; null for none.
const Attribute* FindCulprit(const ParsedEntity& entity, const MorvixProtocolPackage_4_0& package) {
  for (const Attribute& attribute : entity.attributes) {
    if (!DecodeAlone(entity.info, attribute, package).line.empty()) return &attribute;
  }
  return nullptr;
}

// One of the module's lines about a packet, with the attribute that it is about and what was expected.
std::string FailureText(const ParsedEntity& entity, const std::vector<byte>& packet, const std::string& line) {
  const Unpacked unpacked(packet);
  const Attribute* culprit = FindCulprit(entity, unpacked.Package());
  if (culprit == nullptr) return line;
  const std::string text = InQuotes(culprit->name) + " unreadable: " + line;
  if (culprit->data_type == MorvixProtocolDataTypeEnum_4_0) {
    const size_t items = culprit->enumList.size();
    return text + (items == 0 ? " (it has no items)" : " (expected 0 to " + std::to_string(items - 1) + ")");
  }
  const size_t given = unpacked.Package().sizeValue;
  const size_t taken = PayloadLength(entity.attributes);
  if (given >= taken) return text + " (nothing can be read from its place; dp4 lint tells why)";
  return text + " (expected " + std::to_string(taken) + " bytes of payload, found " + std::to_string(given) + ")";
}

// ---- --document table ----

class TableForm : public Form {
 public:
  TableForm(const ParsedEntity& entity, bool color) : Form(entity), color_(color) {}

  std::optional<std::string> ResultOf(const std::vector<byte>& packet) override {
    const Unpacked unpacked(packet);
    if (!unpacked.IsGood()) return std::nullopt;
    const MorvixProtocolPackage_4_0& package = unpacked.Package();
    const Json::Value decoded = Decode(package);
    TakeLines();
    FindPlaces(package.sizeValue);
    culprit_ = Lines().empty() ? nullptr : FindCulprit(Entity(), package);
    const std::set<std::string> active = ActiveKeys(packet);
    std::vector<std::vector<TableCell>> rows(1);
    for (const char* heading : {"NAME", "GROUP", "PLACE", "BITS", "VALUE", "NOTE"}) {
      rows[0].push_back({heading, color_ ? kBold : ""});
    }
    for (size_t i = 0; i < Entity().attributes.size(); ++i) rows.push_back(RowOf(i, package, decoded, active));
    const bool isNotification = package.cmd == MorvixProtocolCommandNotifyResp_4_0;
    return (isNotification ? "notification" : "read response") + std::string(", ") + NameText(Entity().info.name) +
           ", " + std::to_string(package.sizeValue) + (package.sizeValue == 1 ? " byte" : " bytes") +
           " of payload\n\n" + AlignedTable(rows);
  }

 private:
  static constexpr size_t kBitsColumns = 47;  // 16 bytes
  static constexpr size_t kValueColumns = 48;

  void FindPlaces(size_t payloadLength) {
    if (payloadLength == payloadLength_) return;
    payloadLength_ = payloadLength;
    places_.clear();
    for (const Attribute& attribute : Entity().attributes) {
      places_.push_back(FieldBits(attribute.position, attribute.data_type, payloadLength));
    }
  }

  // Alerts and faults; within one entity their names tell which.
  std::set<std::string> ActiveKeys(const std::vector<byte>& packet) const {
    const LogGatherer silent;  // these lines have been told
    std::string document;
    std::vector<TavelReceiveInfo> active;
    std::set<std::string> keys;
    if (!ProtocolReceivePacket_4_0(Entity().info, Entity().attributes, packet.data(), packet.size(), document, active,
                                   active)) {
      return keys;
    }
    for (const TavelReceiveInfo& info : active) keys.insert(info.name);
    return keys;
  }

  std::vector<TableCell> RowOf(size_t index, const MorvixProtocolPackage_4_0& package, const Json::Value& decoded,
                               const std::set<std::string>& active) const {
    const Attribute& attribute = Entity().attributes[index];
    const std::vector<size_t>& bits = places_[index];
    const Alone alone = DecodeAlone(Entity().info, attribute, package);
    std::string note = NoteOf(attribute, bits, package, alone, decoded);
    const bool isActive = !IsStatus(attribute) && active.count(KeyOf(attribute)) != 0;
    if (isActive) note += note.empty() ? "active" : ", active";
    return {{NameText(KeyOf(attribute)), ""},
            {GroupName(attribute.type), color_ ? GroupColor(attribute.type) : ""},
            {PlaceText(bits), ""},
            {Shortened(BitsText(bits, package.value), kBitsColumns), ""},
            {Shortened(Escaped(alone.value.asString()), kValueColumns), ""},
            {note, color_ && isActive ? GroupColor(attribute.type) : ""}};
  }

  std::string NoteOf(const Attribute& attribute, const std::vector<size_t>& bits,
                     const MorvixProtocolPackage_4_0& package, const Alone& alone, const Json::Value& decoded) const {
    if (!alone.line.empty()) return "unreadable: " + alone.line;
    if (alone.value.isNull() && bits.empty()) return "left out: not readable in this payload";
    if (alone.value.isNull()) {
      return "left out: raw " + std::to_string(RawValue(bits, package.value)) + ", expected " +
             std::to_string(attribute.uint_spec.min) + " to " + std::to_string(attribute.uint_spec.max);
    }
    const Json::Value* told = decoded.find(Entity().info.name.data(), End(Entity().info.name));
    if (told != nullptr) told = told->find(KeyOf(attribute).data(), End(KeyOf(attribute)));
    if (told == nullptr) return "not told: " + NameText(culprit_ == nullptr ? "" : KeyOf(*culprit_)) + " is unreadable";
    if ((*told)["value"] != alone.value || (*told)["type"] != static_cast<int>(attribute.type)) {
      return "not told: another attribute of this name follows";
    }
    if (attribute.data_type != MorvixProtocolDataTypeEnum_4_0) return "";
    return NameText(attribute.enumList.at(std::stoull(alone.value.asString())));
  }

  static const char* End(const std::string& text) { return text.data() + text.size(); }

  bool color_;
  const Attribute* culprit_ = nullptr;
  size_t payloadLength_ = 0;  // no packet has none
  std::vector<std::vector<size_t>> places_;
};

std::unique_ptr<Form> MakeForm(const std::string& document, const ParsedEntity& entity, bool color) {
  if (document == "flat") return std::make_unique<FlatForm>(entity);
  if (document == "decoded") return std::make_unique<DecodedForm>(entity);
  if (document == "table") return std::make_unique<TableForm>(entity, color);
  throw UsageError("--document " + Escaped(document) + ": expected decoded, flat or table");
}

// ---- A stream of lines ----

// Longer lines hold no packets; without a limit a stream without line ends would fill the memory.
constexpr size_t kMaxLineBytes = size_t{1} << 20;

class LineReader {
 public:
  // `beforeWaiting` is called whenever reading on may have to wait for more to come.
  LineReader(std::istream& in, std::function<void()> beforeWaiting)
      : source_(*in.rdbuf()), beforeWaiting_(std::move(beforeWaiting)), buffer_(kBufferBytes) {}

  // The next line, cut at the limit; false at the end.
  bool Next(std::string& line) {
    line.clear();
    isTooLong_ = false;
    bool isAny = false;
    while (begin_ != end_ || Fill()) {
      isAny = true;
      const auto first = buffer_.begin() + static_cast<std::ptrdiff_t>(begin_);
      const auto last = buffer_.begin() + static_cast<std::ptrdiff_t>(end_);
      const auto lineEnd = std::find(first, last, '\n');
      const auto size = static_cast<size_t>(lineEnd - first);
      if (size > kMaxLineBytes - line.size()) isTooLong_ = true;
      line.append(first, first + static_cast<std::ptrdiff_t>(std::min(size, kMaxLineBytes - line.size())));
      begin_ += size;
      if (lineEnd == last) continue;
      ++begin_;
      break;
    }
    if (isAny) ++number_;
    return isAny;
  }

  bool IsTooLong() const { return isTooLong_; }
  size_t Number() const { return number_; }
  size_t BytesTaken() const { return bytesTaken_; }

 private:
  static constexpr size_t kBufferBytes = 65536;

  // Takes what is there, and waits only when there is nothing.
  bool Fill() {
    try {
      std::streamsize available = source_.in_avail();
      if (available <= 0) {
        beforeWaiting_();
        if (source_.sgetc() == std::streambuf::traits_type::eof()) return false;
        available = std::max<std::streamsize>(source_.in_avail(), 1);
      }
      const auto count = std::min(available, static_cast<std::streamsize>(kBufferBytes));
      begin_ = 0;
      end_ = static_cast<size_t>(std::max<std::streamsize>(source_.sgetn(buffer_.data(), count), 0));
    } catch (const std::ios_base::failure&) {
      throw UsageError("standard input:" + std::to_string(number_ + 1) + ": cannot be read");
    }
    bytesTaken_ += end_;
    return end_ != 0;
  }

  std::streambuf& source_;
  std::function<void()> beforeWaiting_;
  std::vector<char> buffer_;
  size_t begin_ = 0;  // what is left of the buffer
  size_t end_ = 0;
  size_t number_ = 0;
  size_t bytesTaken_ = 0;
  bool isTooLong_ = false;
};

// A line on standard error that tells how far a long stream has come, when people can see it and nothing else.
class Progress {
 public:
  explicit Progress(std::ostream& err) : err_(err), next_(Clock::now() + std::chrono::seconds(1)) {
    isShown_ = isatty(STDERR_FILENO) == 1 && isatty(STDOUT_FILENO) != 1;
    struct stat status = {};
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) total_ = static_cast<size_t>(status.st_size);
  }

  void Update(const LineReader& lines, size_t problems) {
    if (!isShown_ || Clock::now() < next_) return;
    next_ = Clock::now() + std::chrono::milliseconds(250);
    std::string text = std::to_string(lines.Number()) + " lines, " + std::to_string(problems) + " problems";
    if (total_ != 0) text += ", " + std::to_string(std::min<size_t>(100 * lines.BytesTaken() / total_, 100)) + " %";
    err_ << kClear << text << std::flush;
    isOnScreen_ = true;
  }

  void Clear() {
    if (isOnScreen_) err_ << kClear << std::flush;
    isOnScreen_ = false;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr char kClear[] = "\r\x1b[K";

  std::ostream& err_;
  Clock::time_point next_;
  size_t total_ = 0;  // bytes of a file
  bool isShown_ = false;
  bool isOnScreen_ = false;
};

// ---- Lines that are JSON objects ----

// A JSON text with the control characters in its strings escaped, and blanks for those between them.
std::string WithoutControls(const std::string& json) {
  std::string text;
  bool isInString = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const auto code = static_cast<unsigned char>(json[i]);
    const bool isC1 = code == 0xc2 && i + 1 < json.size() && static_cast<unsigned char>(json[i + 1]) < 0xa0;
    if (code >= 0x20 && code != 0x7f && !isC1) {
      text += json[i];
      if (json[i] == '"') isInString = !isInString;
      if (json[i] == '\\' && i + 1 < json.size()) text += json[++i];
    } else if (isInString) {
      const byte low = static_cast<byte>(isC1 ? json[++i] : json[i]);
      text += "\\u00" + HexText(&low, 1);
    } else {
      text += ' ';
    }
  }
  return text;
}

// Where a comment begins, which JsonCpp takes between members even when it is told not to; npos for none.
size_t FindComment(const std::string& json) {
  bool isInString = false;
  for (size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') isInString = !isInString;
    if (json[i] == '\\') ++i;
    if (json[i] == '/' && !isInString) return i;
  }
  return std::string::npos;
}

struct JsonLine {
  Json::Value others;  // without the packet
  std::string before;  // the text around the value of the packet
  std::string packet;
  std::string after;
};

// Of a reader's report, "* Line 1, Column 5\n  Syntax error: ...\n".
HexError FirstProblem(const std::string& report) {
  HexError error;
  unsigned long column = 0;
  if (std::sscanf(report.c_str(), "* Line 1, Column %lu", &column) == 1) error.column = column;
  const size_t begin = std::min(report.find('\n') + 3, report.size());
  error.message = "not JSON: " + report.substr(begin, report.find('\n', begin) - begin);
  return error;
}

// False with `error` and its column set when the line is no JSON object with a text "packet".
bool ReadJsonLine(const std::string& line, JsonLine& parts, HexError& error) {
  static Json::CharReader& reader = *[] {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    return builder.newCharReader();
  }();
  const size_t comment = FindComment(line);
  if (comment != std::string::npos) {
    error = {comment + 1, "not JSON: a comment, where none was expected"};
    return false;
  }
  std::string report;
  try {
    if (!reader.parse(line.data(), line.data() + line.size(), &parts.others, &report)) {
      error = FirstProblem(report);
      return false;
    }
  } catch (const Json::Exception&) {
    error = {1, "not JSON: nested too deep"};
    return false;
  }
  if (!parts.others.isObject() || !parts.others["packet"].isString()) {
    error = {1, "expected a member \"packet\", a text of hexadecimal digits"};
    return false;
  }
  const Json::Value& packet = parts.others["packet"];
  parts.before = line.substr(0, static_cast<size_t>(packet.getOffsetStart()));
  parts.after = line.substr(static_cast<size_t>(packet.getOffsetLimit()));
  parts.packet = packet.asString();
  parts.others.removeMember("packet");
  return true;
}

// ---- The command ----

class Decoder {
 public:
  Decoder(const ParsedEntity& entity, const DecodeOptions& options, const CommonOptions& common, std::ostream& out,
          std::ostream& err)
      : entity_(entity),
        form_(MakeForm(options.document, entity, common.color)),
        isTable_(options.document == "table"),
        isFlushed_(isatty(STDOUT_FILENO) == 1),
        log_(common.log),
        out_(out),
        err_(err),
        progress_(err) {}

  void DecodeArguments(const std::vector<std::string>& packets) {
    const auto isByte = [](const std::string& packet) {
      const bool hasPrefix = packet.compare(0, 2, "0x") == 0 || packet.compare(0, 2, "0X") == 0;
      return packet.size() <= (hasPrefix ? 4 : 2);
    };
    if (packets.size() > 1 && std::all_of(packets.begin(), packets.end(), isByte)) {
      throw UsageError("each PACKET is a byte at most; expected quotation marks around a packet with blanks");
    }
    for (size_t i = 0; i < packets.size(); ++i) {
      const std::string place = "packet " + std::to_string(i + 1);
      DecodeHex(packets[i], place, place);
    }
  }

  void DecodeStream(std::istream& in) {
    LineReader lines(in, [this] { out_.flush(); });
    std::string line;
    while (out_ && lines.Next(line)) {
      const std::string place = "standard input:" + std::to_string(lines.Number());
      const std::string title = "line " + std::to_string(lines.Number());
      const size_t first = line.find_first_not_of(" \t\r\n\v\f");
      if (lines.IsTooLong()) {
        Report(place, "expected a line of at most " + std::to_string(kMaxLineBytes) + " bytes");
      } else if (first != std::string::npos && line[first] == '{') {
        DecodeJsonLine(line, place, title);
      } else if (first != std::string::npos) {
        DecodeHex(line, place, title);
      }
      if (isFlushed_) out_.flush();
      progress_.Update(lines, problems_);
    }
    progress_.Clear();
  }

  // Ends the results.
  ExitCode Finish() {
    if (!isFirst_) out_ << kTableKey;
    return problems_ == 0 ? kFine : kProblems;
  }

 private:
  // `column` is what stands before the text in its line.
  std::optional<std::string> ResultOf(const std::string& hex, const std::string& place, size_t column) {
    HexError error;
    if (!ParseHex(hex, packet_, error)) {
      Report(place + ":" + std::to_string(column + error.column), error.message);
      return std::nullopt;
    }
    const std::optional<std::string> result = form_->ResultOf(packet_);
    if (!result) {
      Report(place, Unpacked(packet_).Reason());
      return result;
    }
    for (const LoggedLine& line : form_->Lines()) {
      Log(line);
      if (line.level == 1) Report(place, FailureText(entity_, packet_, line.text));
    }
    return result;
  }

  void DecodeHex(const std::string& hex, const std::string& place, const std::string& title) {
    const std::optional<std::string> result = ResultOf(hex, place, 0);
    if (!result) return;
    if (isTable_) WriteTitle(title);
    out_ << *result;
  }

  void DecodeJsonLine(const std::string& line, const std::string& place, const std::string& title) {
    JsonLine parts;
    HexError error;
    if (!ReadJsonLine(line, parts, error)) {
      Report(place + ":" + std::to_string(error.column), error.message);
      return;
    }
    std::optional<std::string> result = ResultOf(parts.packet, place, parts.before.size() + 1);
    if (!result) return;
    if (isTable_) {
      WriteTitle(parts.others.empty() ? title : title + " " + CompactText(parts.others));
      out_ << *result;
      return;
    }
    result->pop_back();  // its line end
    out_ << WithoutControls(parts.before) << *result << WithoutControls(parts.after) << '\n';
  }

  void WriteTitle(const std::string& title) {
    out_ << (isFirst_ ? "" : "\n") << title << ": ";
    isFirst_ = false;
  }

  void Report(const std::string& place, const std::string& message) {
    ++problems_;
    progress_.Clear();
    err_ << "dp4: " << place << ": " << message << '\n';
  }

  void Log(const LoggedLine& line) {
    if (log_ == nullptr) return;
    progress_.Clear();
    const std::string function = line.function.empty() ? "" : line.function + ": ";
    *log_ << "[" << line.level << "] " << Escaped(function + line.text) << '\n';
  }

  const ParsedEntity& entity_;
  std::unique_ptr<Form> form_;
  bool isTable_;
  bool isFlushed_;  // after each line
  std::ostream* log_;
  std::ostream& out_;
  std::ostream& err_;
  Progress progress_;
  std::vector<byte> packet_;  // kept for its memory
  size_t problems_ = 0;
  bool isFirst_ = true;  // no table has been written
};

}  // namespace

int Decode(const DecodeOptions& options, const CommonOptions& common, std::istream& in, std::ostream& out,
           std::ostream& err) {
  if (options.packets.empty() && options.configuration == "-") {
    throw UsageError("standard input cannot be both the configuration and the packets");
  }
  const JsonText configuration = ReadJsonFile(options.configuration);
  const Json::Value& entityJson = ChooseEntity(configuration, common.entity);
  const ParsedEntity entity = ParseLogged(configuration, entityJson, kAllGroups, common.log);
  Decoder decoder(entity, options, common, out, err);
  if (options.packets.empty()) {
    decoder.DecodeStream(in);
  } else {
    decoder.DecodeArguments(options.packets);
  }
  return decoder.Finish();
}

}  // namespace dp4
