// Writes the device code of configurations, and what makes it callable as compiled_devices:
//   firmware_products FOLDER CONFIG...               of all entities of these configurations
//   firmware_products FOLDER --random COUNT SEED     of so many made-up ones that lint has nothing against
// FOLDER gets NAME.h, NAME.c and NAME_device.c for each device, and devices.c with the list of them.

#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "Maker.h"
#include "TestSupport.h"
#include "inspect/generate/DeviceCode.h"
#include "inspect/generate/Generate.h"
#include "inspect/text/CSource.h"

namespace {

using namespace morvix::inspect;

void Write(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error(path + " cannot be written");
}

std::string MembersText(const CNames& names, bool ofWrite) {
  const std::string type = names.prefix + (ofWrite ? "_write" : "_state");
  std::string text;
  for (const CAttribute& attribute : names.attributes) {
    if (ofWrite && attribute.written == nullptr) continue;
    const std::string& member = attribute.member;
    text += fmt::format("    {{offsetof({0}, {1}), sizeof((({0}*)0)->{1}), {2}}},\n", type, member,
                        ofWrite ? fmt::format("offsetof({}, has_{})", type, member) : "0");
  }
  return text;
}

const char kWriteWrappers[] = R"(
static const compiled_member write_members[] = {{
{1}}};
static bool read_write(const uint8_t* packet, size_t size, void* write) {{
  return {0}_read_write(packet, size, ({0}_write*)write);
}}
static void apply(void* state, const void* write) {{ {0}_apply(({0}_state*)state, (const {0}_write*)write); }}
)";

const char kWrappers[] = R"(
static const compiled_member state_members[] = {{
{2}}};
static size_t make_notification(const void* state, uint8_t* packet, size_t capacity) {{
  return {0}_make_notification((const {0}_state*)state, packet, capacity);
}}
static size_t make_read_response(const void* state, uint8_t* packet, size_t capacity) {{
  return {0}_make_read_response((const {0}_state*)state, packet, capacity);
}}
#ifdef __cplusplus
extern "C"
#endif
const compiled_device {0}_device;
const compiled_device {0}_device = {{
    {3}, {4}, sizeof({0}_state), {5}, {1}_MAX_PACKET_BYTES, state_members, {6}, {0}_read_sub_device,
    make_notification, make_read_response}};
)";

// The C source that describes one device.
std::string GlueText(const EntityModel& entity, const CNames& names, const std::string& path) {
  const std::string& prefix = names.prefix;
  const bool isWritable = !entity.Writing().records.empty();
  std::string text = fmt::format("#include \"CompiledDevice.h\"\n#include \"{}.h\"\n", prefix);
  if (isWritable) text += fmt::format(kWriteWrappers, prefix, MembersText(names, true));
  return text + fmt::format(kWrappers, prefix, names.constants, MembersText(names, false), CString(path),
                            CString(entity.Info().name), isWritable ? "sizeof(" + prefix + "_write)" : "0",
                            isWritable ? "write_members, read_write, apply" : "NULL, NULL, NULL");
}

class Folder {
 public:
  explicit Folder(std::string path) : path_(std::move(path)) {}

  // False when no code is made of the entity.
  bool Add(const std::string& configuration, const std::string& path, const std::string& choice,
           const std::string& prefix) {
    const LogCapture silent;
    json::SyntaxError error;
    const std::optional<json::Document> document = json::Document::Read(path, configuration, error);
    if (!document || !FindingsAgainstCode(path, configuration, choice).empty()) return false;
    const EntityModel entity = ModelOf(*document, ChooseEntity(*document, choice));
    std::string problem;
    const CNames names = NamesFor(entity, prefix, problem);
    if (!problem.empty()) return false;
    const std::string sha256 = Sha256Text(configuration);
    Write(path_ + "/" + names.prefix + ".h", HeaderText(entity, names, sha256));
    Write(path_ + "/" + names.prefix + ".c", SourceText(entity, names, sha256));
    Write(path_ + "/" + names.prefix + "_device.c", GlueText(entity, names, path));
    declarations_ += fmt::format("extern const compiled_device {}_device;\n", names.prefix);
    list_ += fmt::format("    &{}_device,\n", names.prefix);
    return true;
  }

  void Finish() const {
    Write(path_ + "/devices.c",
          fmt::format("#include \"CompiledDevice.h\"\n#ifdef __cplusplus\nextern \"C\" {{\n#endif\n"
                      "{}const compiled_device* const compiled_devices[] = {{\n{}    NULL}};\n"
                      "#ifdef __cplusplus\n}}\n#endif\n",
                      declarations_, list_));
  }

 private:
  const std::string path_;
  std::string declarations_;
  std::string list_;
};

// More flags than fit into a word, gaps, and an enum in bytes.
support::Product WideProduct(support::Source& source) {
  support::Product product;
  product.entity.name = "main";
  const int32_t bools = source.Int(20, 80);
  for (int32_t i = 0; i <= bools; ++i) {
    support::Attribute& attribute = product.attributes.emplace_back();
    attribute.id = i;
    attribute.name = fmt::format("a{}", i);
    attribute.display_name = fmt::format("A{}", i);
    attribute.type = MorvixProtocolTypeStatusWritable_4_0;
    attribute.data_type = MorvixProtocolDataTypeBool_4_0;
    attribute.position = support::BitsAt(3 * i, source.Int(0, 7), 1, 1);
  }
  support::Attribute& last = product.attributes.back();
  last.data_type = MorvixProtocolDataTypeEnum_4_0;
  last.position = support::BytesAt(3 * bools, source.Int(1, 8));
  for (int i = 0; i < 300; ++i) last.enumList.push_back(fmt::format("item {}", i));
  if (last.position.len == 1) last.enumList.resize(256);
  return product;
}

std::string MadeUpConfiguration(support::Source& source) {
  support::Maker maker(source);
  support::Product product = source.OneIn(20) ? WideProduct(source) : maker.MakeProduct(source.Flip());
  for (support::Attribute& attribute : product.attributes) {
    // Names that comments and identifiers have to cope with.
    if (source.OneIn(20)) attribute.name = maker.MakeName();
    if (source.OneIn(5)) attribute.display_name = maker.MakeName();
    if (source.OneIn(5)) attribute.desc = maker.MakeName() + source.Pick({"", "\\", "*/", "/*", "?\?/", "\\\n"});
    for (std::string& item : attribute.enumList) {
      if (source.OneIn(5)) item = maker.MakeName();
    }
  }
  Json::Value configuration;
  configuration["entities"].append(maker.ConfigurationOf(product, true));
  return WriteJson(configuration);
}

void AddMadeUp(Folder& folder, const std::string& path, size_t count, uint64_t seed) {
  size_t made = 0;
  uint64_t number = 0;
  for (; made < count; ++number) {
    support::SeededSource source(seed, number);
    const std::string name = fmt::format("p{}", made);
    const std::string configuration = MadeUpConfiguration(source);
    const std::string file = fmt::format("{}/{}.json", path, name);
    if (!folder.Add(configuration, file, "", name)) continue;
    Write(file, configuration);
    ++made;
  }
  std::printf("%zu of %llu made-up configurations have nothing against them\n", made,
              static_cast<unsigned long long>(number));
}

}  // namespace

int main(int count, char** arguments) try {
  if (count < 3) return 2;
  const std::string path = arguments[1];
  Folder folder(path);
  if (std::string(arguments[2]) == "--random" && count == 5) {
    AddMadeUp(folder, path, std::stoul(arguments[3]), std::stoull(arguments[4]));
  } else {
    for (int i = 2; i < count; ++i) {
      const std::string configuration = ReadFile(arguments[i]);
      const Json::Value root = ParseJson(configuration);
      for (const Json::Value& entity : root["entities"]) {
        const std::string name = entity["name"].asString();
        if (!folder.Add(configuration, arguments[i], name, "")) throw std::runtime_error("no code is made of " + name);
      }
    }
  }
  folder.Finish();
  return 0;
} catch (const std::exception& error) {
  static_cast<void>(std::fprintf(stderr, "firmware_products: %s\n", error.what()));
  return 1;
}
