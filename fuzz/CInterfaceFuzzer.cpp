// The whole C interface: a configuration, a NUL, a value document, a NUL, and packets, each with its length before it.
// Without a configuration it is that of an example. What the functions return has to agree with one another.

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Support.h"
#include "bindings/c/morvix_protocol.h"

namespace {

constexpr Json::ArrayIndex kMostEntities = 3;

struct Free {
  void operator()(void* memory) const { morvix_free(memory); }
};

// The outputs of a call, which are released.
class Outputs {
 public:
  ~Outputs() {
    for (const morvix_bytes& each : bytes) morvix_free(each.data);
    morvix_free(message);
  }

  // Checks how a call ended, and returns whether it succeeded.
  bool Check(morvix_status status) const {
    fuzz::ExpectEqual(status != MORVIX_NO_MEMORY, true, "there is memory enough");
    for (const morvix_bytes& each : bytes) {
      const bool isThere = each.data != nullptr;
      fuzz::ExpectEqual(isThere || each.size == 0, true, "outputs without data are empty");
      fuzz::ExpectEqual(!isThere || (status == MORVIX_OK && each.data[each.size] == 0), true, "only results have data");
    }
    fuzz::ExpectEqual(status == MORVIX_OK || message != nullptr, true, "a failure has a message");
    if (message != nullptr) CheckMessage();
    return status == MORVIX_OK;
  }

  std::string Text(size_t index = 0) const {
    return std::string(reinterpret_cast<const char*>(bytes[index].data), bytes[index].size);
  }

  Json::Value Parsed(size_t index = 0) const {
    Json::Value value;
    fuzz::ExpectEqual(fuzz::ParseText(Text(index), value), true, "a result is JSON");
    return value;
  }

  morvix_bytes bytes[2] = {};
  char* message = nullptr;

 private:
  void CheckMessage() const {
    const std::string text = message;
    fuzz::ExpectEqual(text.empty() || text.back() == '\n', false, "a message has text and no line end at its end");
    for (const char c : text) {
      fuzz::ExpectEqual(c == '\n' || static_cast<unsigned char>(c) >= ' ', true, "a message has no control characters");
    }
  }
};

struct Packets {
  std::vector<byte> bytes;
  std::vector<size_t> offsets = {0};

  size_t Count() const { return offsets.size() - 1; }
  const byte* Data(size_t i) const { return bytes.data() + offsets[i]; }
  size_t SizeOf(size_t i) const { return offsets[i + 1] - offsets[i]; }
};

struct Input {
  std::string configuration;
  std::string values;
  Packets packets;

  explicit Input(const std::string& text) {
    const size_t first = std::min(text.find('\0'), text.size());
    const size_t second = std::min(text.find('\0', first + 1), text.size());
    configuration = text.substr(0, first);
    if (first < text.size()) values = text.substr(first + 1, second - first - 1);
    for (size_t at = second + 1; at < text.size();) {
      const size_t size = std::min<size_t>(static_cast<byte>(text[at]), text.size() - at - 1);
      for (size_t i = 0; i < size; ++i) packets.bytes.push_back(static_cast<byte>(text[at + 1 + i]));
      packets.offsets.push_back(packets.bytes.size());
      at += 1 + size;
    }
    if (configuration.empty()) UseExample(text.size());
  }

 private:
  void UseExample(size_t choice) {
    Json::Value example;
    const auto& examples = fuzz::Examples();
    example["entities"].append(examples[choice % examples.size()].entity);
    configuration = WriteJson(example);
  }
};

// The number that the table holds for a value of the decoded document.
double NumberOf(const Json::Value& value) {
  return value.isBool() ? (value.asBool() ? 1 : 0) : std::strtod(value.asCString(), nullptr);
}

class EntityCheck {
 public:
  EntityCheck(const morvix_entity* entity, const Input& input) : entity_(entity), packets_(input.packets) {
    Outputs described;
    if (!described.Check(Status(morvix_entity_describe(entity, &described.bytes[0]), described))) return;
    description_ = described.Parsed();
    Encode(input);
    ReceiveEach();
    CheckMany();
    CheckTable();
  }

 private:
  // For functions without a message.
  static morvix_status Status(morvix_status status, Outputs& outputs) {
    if (status == MORVIX_OK) return status;
    outputs.message = static_cast<char*>(std::calloc(1, 2));
    outputs.message[0] = '-';
    return status;
  }

  void Encode(const Input& input) const {
    const int32_t id = static_cast<int32_t>(input.values.size());
    for (const int command : {1, 7, 2}) {
      Outputs outputs;
      const morvix_status status = morvix_encode(entity_, input.values.data(), input.values.size(), command,
                                                 command == 7 ? &id : nullptr, &outputs.bytes[0], &outputs.message);
      if (!outputs.Check(status)) continue;
      const size_t flags = (WritableCount() + 7) / 8;
      const size_t expected = 1 + (command == 7 ? 4 : 0) + flags + description_["writeBytes"].asUInt();
      fuzz::ExpectEqual(outputs.bytes[0].size, expected, "a write has flags and payload");
    }
  }

  size_t WritableCount() const {
    size_t count = 0;
    for (const Json::Value& attribute : description_["attributes"]) count += attribute.isMember("flag") ? 1 : 0;
    return count;
  }

  void ReceiveEach() {
    for (size_t i = 0; i < packets_.Count(); ++i) {
      Outputs decoded;
      Outputs received;
      const bool isDecoded = decoded.Check(
          morvix_decode(entity_, packets_.Data(i), packets_.SizeOf(i), &decoded.bytes[0], &decoded.message));
      const bool isReceived = received.Check(morvix_receive(entity_, packets_.Data(i), packets_.SizeOf(i),
                                                            &received.bytes[0], &received.bytes[1], &received.message));
      fuzz::ExpectEqual(isDecoded, isReceived, "what is decoded is received");
      if (!isDecoded) {
        documents_.emplace_back();
        lines_ += "{\"error\":" + WriteJson(decoded.message) + "}\n";
        continue;
      }
      documents_.push_back(decoded.Parsed());
      CheckConversion(documents_.back(), received);
      AddLine(received);
    }
  }

  static void CheckConversion(Json::Value document, const Outputs& received) {
    document["version"] = 4.0;
    const std::string text = WriteJson(document);
    Outputs converted;
    if (!converted.Check(
            morvix_convert(text.data(), text.size(), &converted.bytes[0], &converted.bytes[1], &converted.message))) {
      fuzz::Fail("a decoded document converts", text);
    }
    fuzz::ExpectEqual(converted.Text(), received.Text(), "receiving is decoding and converting");
  }

  void AddLine(const Outputs& received) {
    const std::string document = received.Text();
    const std::string active = received.Text(1);
    std::string line = "{\"document\":" + document.substr(0, document.size() - 1) + "," + active.substr(1);
    if (received.message != nullptr) {
      line.pop_back();
      line += ",\"warnings\":[" + WriteJson(received.message) + "]}";
    }
    lines_ += line + "\n";
  }

  void CheckMany() const {
    Outputs many;
    if (!many.Check(Status(morvix_receive_many(entity_, packets_.bytes.data(), packets_.offsets.data(),
                                               packets_.Count(), &many.bytes[0]),
                           many))) {
      fuzz::Fail("many packets are received", "");
    }
    fuzz::ExpectEqual(many.Text(), lines_, "many packets are received as each");
  }

  void CheckTable() const {
    const Json::Value& attributes = description_["attributes"];
    const size_t count = packets_.Count();
    std::vector<double> values(attributes.size() * count);
    std::vector<uint8_t> refused(count);
    const morvix_status status = morvix_receive_table(entity_, packets_.bytes.data(), packets_.offsets.data(), count,
                                                      values.data(), refused.data());
    fuzz::ExpectEqual(status, MORVIX_OK, "many packets make a table");
    std::map<std::string, int> keys;
    for (const Json::Value& attribute : attributes) ++keys[KeyOf(attribute)];
    for (size_t i = 0; i < count; ++i) {
      const Json::Value& document = documents_[i];
      fuzz::ExpectEqual(refused[i] != 0, document.isNull(), "what is refused is so in the table");
      for (Json::ArrayIndex a = 0; a < attributes.size(); ++a) {
        // Values under the same key overwrite each other in the document.
        if (keys[KeyOf(attributes[a])] != 1) continue;
        const Json::Value& item =
            fuzz::MemberOf(fuzz::MemberOf(document, description_["name"].asString()), KeyOf(attributes[a]));
        const bool isThere = item.isObject() && attributes[a]["type"] != "binary";
        const double expected = isThere ? NumberOf(item["value"]) : std::nan("");
        fuzz::ExpectEqual(values[a * count + i], expected, "the table holds what the document holds");
      }
    }
  }

  static std::string KeyOf(const Json::Value& attribute) {
    const bool isCondition = attribute["group"] == "alert" || attribute["group"] == "fault";
    return attribute[isCondition ? "displayName" : "name"].asString();
  }

  const morvix_entity* const entity_;
  const Packets& packets_;
  Json::Value description_;
  std::vector<Json::Value> documents_;  // decoded; null for a packet that is refused
  std::string lines_;                   // as morvix_receive_many gives them
};

void CheckEntity(const Input& input, const char* name) {
  Outputs outputs;
  morvix_entity* opened = nullptr;
  const morvix_status status =
      morvix_entity_open(input.configuration.data(), input.configuration.size(), name, &opened, &outputs.message);
  const std::unique_ptr<morvix_entity, void (*)(morvix_entity*)> entity(opened, morvix_entity_close);
  fuzz::ExpectEqual(outputs.Check(status), opened != nullptr, "what is opened is an entity");
  if (entity != nullptr) EntityCheck(entity.get(), input);
}

// Every line is a text of a level that was asked for, and a sink may call the interface itself.
void CheckLine(void* context, int level, const char* function, const char* line) {
  const int most = *static_cast<const int*>(context);
  fuzz::ExpectEqual(level >= 1 && level <= most, true, "a line has a level that was asked for");
  const std::string text = std::string(function == nullptr ? "" : function) + line;
  fuzz::ExpectEqual(text.empty(), false, "a line has text");
  Outputs request;
  fuzz::ExpectEqual(request.Check(morvix_request(2, nullptr, &request.bytes[0], &request.message)), true,
                    "a sink may make requests");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static int level;
  level = static_cast<int>(size % 3);
  morvix_set_log(CheckLine, &level, level);
  const Input input(std::string(data, data + size));
  Outputs listed;
  const bool isListed = listed.Check(
      morvix_entities(input.configuration.data(), input.configuration.size(), &listed.bytes[0], &listed.message));
  CheckEntity(input, nullptr);
  if (isListed) {
    const Json::Value entities = listed.Parsed();
    for (Json::ArrayIndex i = 0; i < std::min(entities.size(), kMostEntities); ++i) {
      CheckEntity(input, entities[i]["name"].asCString());
    }
  }
  Outputs converted;
  converted.Check(morvix_convert(input.values.data(), input.values.size(), &converted.bytes[0], &converted.bytes[1],
                                 &converted.message));
  Outputs request;
  request.Check(morvix_request(static_cast<int>(size % 16), nullptr, &request.bytes[0], &request.message));
  return 0;
}
