#include "Support.h"

#include <json/reader.h>
#include <json/writer.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <tuple>
#include <utility>

#include "host/Logging.h"

// A configuration may ask for a payload of some gigabytes. What is larger than this cannot be allocated, which the
// module has to survive, and does not slow the fuzzer down. So do short stacks of allocations and a short quarantine.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=64:malloc_context_size=2:quarantine_size_mb=16";
}

namespace fuzz {

namespace {

Lines& CapturedLines() {
  static Lines& lines = *new Lines;
  return lines;
}

std::string Hex(byte value) {
  char text[3];
  std::snprintf(text, sizeof text, "%02x", static_cast<unsigned>(value));
  return text;
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail("the examples can be read", path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

template <typename Items>
std::string ShowAll(const Items& items) {
  std::string text = "[";
  for (const auto& item : items) text += (text.size() == 1 ? "" : ", ") + Show(item);
  return text + "]";
}

}  // namespace

void Fail(const std::string& property, const std::string& details) {
  std::fprintf(stderr, "\n==== PROPERTY: %s\n%s\n====\n", property.c_str(), details.c_str());
  std::abort();
}

std::string Show(bool value) { return value ? "true" : "false"; }

std::string Show(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

std::string Show(const std::string& text) {
  std::string shown = "\"";
  for (const char c : text) {
    if (c >= ' ' && c <= '~' && c != '\\' && c != '"') {
      shown += c;
    } else {
      shown += "\\x" + Hex(static_cast<byte>(c));
    }
  }
  return shown + "\"";
}

std::string Show(const Bytes& bytes) {
  std::string text = std::to_string(bytes.size()) + " bytes:";
  for (const byte value : bytes) text += " " + Hex(value);
  return text;
}

std::string Show(const Json::Value& value) { return Written(value); }

std::string Show(const Lines& lines) {
  std::string text = std::to_string(lines.size()) + " lines";
  for (const model::Line& line : lines) {
    text += "\n    [" + std::to_string(line.level) + "] " + line.function + ": " + Show(line.text);
  }
  return text;
}

std::string Show(const std::vector<std::string>& texts) { return ShowAll(texts); }

std::string Show(const std::vector<TavelReceiveInfo>& infos) {
  std::string text = "[";
  for (const TavelReceiveInfo& info : infos) {
    text += (text.size() == 1 ? "" : ", ") + Show(info.name) + " " + Show(info.value);
  }
  return text + "]";
}

std::string Show(const Position& position) {
  return "byte_offset " + Show(position.byte_offset) + ", bit_offset " + Show(position.bit_offset) + ", unit " +
         Show(static_cast<int32_t>(position.unit)) + ", len " + Show(position.len) + ", groupByteLength " +
         Show(position.groupByteLength);
}

std::string Show(const Attribute& attribute) {
  const MorvixProtocolUIntSpec_4_0& scaling = attribute.uint_spec;
  return Show(attribute.name) + " (" + Show(attribute.display_name) + "), id " + Show(attribute.id) + ", group " +
         Show(uint32_t{attribute.type}) + ", data type " + Show(uint32_t{attribute.data_type}) + ", " +
         Show(attribute.position) + ", min " + Show(scaling.min) + ", max " + Show(scaling.max) + ", step " +
         Show(scaling.step) + ", ratio " + Show(scaling.ratio) + ", addition " + Show(scaling.addition) + ", " +
         std::to_string(attribute.enumList.size()) + " items";
}

std::string Show(const Entity& entity) {
  return Show(entity.name) + " (" + Show(entity.display_name) + "), id " + Show(entity.id);
}

bool IsSameNumber(double left, double right) {
  if (std::isnan(left) || std::isnan(right)) return std::isnan(left) && std::isnan(right);
  return left == right && std::signbit(left) == std::signbit(right);
}

Lines TakeLines() { return std::exchange(CapturedLines(), {}); }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

std::string Written(const Json::Value& document) { return Json::FastWriter().write(document); }

bool ParseText(const std::string& text, Json::Value& value) {
  try {
    return Json::Reader().parse(text.data(), text.data() + text.size(), value);
  } catch (const Json::Exception&) {  // nested too deep
    return false;
  }
}

#pragma GCC diagnostic pop

const std::vector<Example>& Examples() {
  static const std::vector<Example>& examples = *[] {
    auto* all = new std::vector<Example>;
    for (const char* name : {"kettle", "air_conditioner", "gateway", "power_meter"}) {
      Json::Value configuration;
      const std::string path = std::string(EXAMPLES_DIR "/") + name + ".json";
      if (!ParseText(ReadWholeFile(path), configuration)) Fail("the examples are JSON", path);
      for (const Json::Value& entity : configuration["entities"]) {
        all->push_back({entity, model::Parse(entity, kWritable), model::Parse(entity, kAllGroups)});
      }
    }
    return all;
  }();
  return examples;
}

const Json::Value& MemberOf(const Json::Value& object, const std::string& name) {
  const Json::Value* member = object.isObject() ? object.find(name.data(), name.data() + name.size()) : nullptr;
  return member == nullptr ? Json::Value::nullSingleton() : *member;
}

bool IsSame(const Attribute& left, const Attribute& right) {
  const auto fields = [](const Attribute& a) {
    return std::tie(a.id, a.name, a.display_name, a.desc, a.type, a.data_type, a.position.byte_offset,
                    a.position.bit_offset, a.position.unit, a.position.len, a.position.groupByteLength, a.uint_spec.min,
                    a.uint_spec.max, a.uint_spec.step, a.enumList);
  };
  return fields(left) == fields(right) && IsSameNumber(left.uint_spec.ratio, right.uint_spec.ratio) &&
         IsSameNumber(left.uint_spec.addition, right.uint_spec.addition);
}

bool IsSame(const Entity& left, const Entity& right) {
  return std::tie(left.id, left.name, left.display_name) == std::tie(right.id, right.name, right.display_name);
}

OwnedPackage::~OwnedPackage() {
  std::free(flags);
  std::free(value);
}

}  // namespace fuzz

bool operator==(const TavelReceiveInfo& left, const TavelReceiveInfo& right) {
  return left.name == right.name && left.value == right.value;
}

// Called once, before the first input.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SetLogLevel(2);
  SetLogSink([](int level, const char* functionName, const std::string& message) {
    fuzz::CapturedLines().push_back({level, functionName == nullptr ? "" : functionName, message});
  });
  return 0;
}
