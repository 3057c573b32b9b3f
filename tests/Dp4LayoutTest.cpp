// `dp4 layout`, as text and as a picture. The golden files in tests/golden/dp4/ follow from the configurations in
// examples/; the maps below are drawn by hand.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Dp4Configuration.h"
#include "TestSupport.h"
#include "ToolSupport.h"

namespace {

using testing::TestWithParam;
using testing::Values;

ToolRun LayoutText(const std::string& configuration) { return RunTool({"layout", "-"}, configuration); }

std::string LayoutSvg(const std::string& configuration) {
  const ToolRun run = RunTool({"layout", "-", "--svg", "-"}, configuration);
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  return run.out;
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The drawing alone: from the line of the bit numbers to the last line that has a border.
std::string MapOf(const std::string& text) {
  std::string map;
  std::string pending;
  bool hasBegun = false;
  for (const std::string& line : LinesOf(text)) {
    hasBegun = hasBegun || line.compare(0, 4, "byte") == 0;
    if (!hasBegun) continue;
    pending += line + "\n";
    if (line.size() > 6 && line.find_last_of("+|") == line.size() - 1) {
      map += pending;
      pending.clear();
    }
  }
  return map;
}

// The lines that begin with "Overlap: " and the like.
std::vector<std::string> RemarksOf(const std::string& text) {
  std::vector<std::string> remarks;
  for (const std::string& line : LinesOf(text)) {
    if (std::regex_search(line, std::regex("^(Overlap|Overlap on writing|Nowhere|Note): "))) remarks.push_back(line);
  }
  return remarks;
}

size_t CountOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

// The first error in a string as XML of the kind that the tool writes: one root element, no comments and no sections.
// Empty when there is none.
std::string XmlFault(const std::string& text) {
  const std::string prolog = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  if (text.compare(0, prolog.size(), prolog) != 0) return "no prolog";
  static const std::regex kTag("<(/?)([A-Za-z]+)(( [A-Za-z-]+=\"[^\"<]*\")*)(/?)>");
  static const std::regex kReference("&(?!(amp|lt|gt|quot|apos);)");
  if (std::regex_search(text, kReference)) return "unknown reference";
  std::vector<std::string> open;
  size_t roots = 0;
  for (size_t at = prolog.size(); at < text.size();) {
    if (text[at] != '<') {
      if (open.empty() && text[at] != '\n') return "text outside of the root";
      if (static_cast<unsigned char>(text[at]) < 0x20 && text[at] != '\n') return "control character";
      ++at;
      continue;
    }
    std::smatch tag;
    const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
    if (!std::regex_search(begin, text.end(), tag, kTag, std::regex_constants::match_continuous)) {
      return "bad tag at " + text.substr(at, 60);
    }
    if (tag[1].length() != 0) {
      if (open.empty() || open.back() != tag[2]) return "closed but not open: " + tag.str();
      open.pop_back();
    } else {
      roots += open.empty() ? 1 : 0;
      if (tag[5].length() == 0) open.push_back(tag[2]);
    }
    at += static_cast<size_t>(tag.length());
  }
  if (!open.empty()) return "not closed: " + open.back();
  return roots == 1 ? "" : std::to_string(roots) + " roots";
}

TEST(XmlFault, FindsWhatIsNotWellFormed) {
  const auto fault = [](const std::string& body) {
    return XmlFault("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + body);
  };
  EXPECT_EQ(fault("<a b=\"1\"><c/>x &amp; y</a>\n"), "");
  EXPECT_NE(XmlFault("<a/>"), "");
  for (const char* body : {"<a>", "<a></b>", "</a>", "<a/><b/>", "", "<a b=1/>", "<a>x & y</a>", "<a b=\"<\"/>",
                           "<a/>x", "<a>x < y</a>", "<a>\x1b</a>", "<a><b></a></b>"}) {
    EXPECT_NE(fault(body), "") << body;
  }
}

// One entity of one example.
struct Example {
  const char* file;
  const char* entity;
  const char* golden;
};

std::ostream& operator<<(std::ostream& stream, const Example& example) { return stream << example.golden; }

class LayoutGolden : public TestWithParam<Example> {
 protected:
  static std::string GoldenName(const std::string& ending) {
    return std::string(GetParam().golden) + ".layout." + ending;
  }

  static ToolRun Run(std::vector<std::string> options) {
    options.insert(options.begin(), {"layout", std::string(GetParam().file), "--entity", GetParam().entity});
    return RunTool(options);
  }

  // The attributes' members "name".
  static std::vector<std::string> Names() {
    const Json::Value configuration = ParseJson(ReadFile(std::string(EXAMPLES_DIR) + "/" + GetParam().file));
    std::vector<std::string> names;
    for (const Json::Value& entity : configuration["entities"]) {
      if (entity["name"] != GetParam().entity) continue;
      for (const Json::Value& attribute : entity["attrs"]) names.push_back(attribute["name"].asString());
    }
    EXPECT_FALSE(names.empty());
    return names;
  }
};

TEST_P(LayoutGolden, IsTheMapOfTheExample) {
  const ToolRun run = Run({});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  ExpectGolden(run.out, GoldenName("txt"));
}

TEST_P(LayoutGolden, IsThePictureOfTheExample) {
  const std::string path = testing::TempDir() + GetParam().golden + ".svg";
  std::remove(path.c_str());
  const ToolRun run = Run({"--svg", path});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, "");
  ExpectGolden(ReadFile(path), GoldenName("svg"));
  std::remove(path.c_str());
}

TEST_P(LayoutGolden, ListsEachNameInThePicture) {
  const std::string svg = Run({"--svg", "-"}).out;
  EXPECT_EQ(XmlFault(svg), "");
  for (const std::string& name : Names()) EXPECT_GE(CountOf(svg, ">" + name + "</text>"), 1U) << name;
}

TEST_P(LayoutGolden, NeedsNothingFromOutsideForThePicture) {
  const std::string svg = Run({"--svg", "-"}).out;
  EXPECT_EQ(CountOf(svg, "http:"), 1U);
  EXPECT_EQ(CountOf(svg, "xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\""), 1U);
  for (const char* part : {"href", "<image", "<style", "<script", "@font", "url(h"}) EXPECT_EQ(CountOf(svg, part), 0U);
}

// Characters are assumed to be 0.61 of the font size wide; no common fixed-width font is wider.
TEST_P(LayoutGolden, CutsNothingOffAtTheEdgesOfThePicture) {
  const std::string svg = Run({"--svg", "-"}).out;
  std::smatch size;
  ASSERT_TRUE(std::regex_search(svg, size, std::regex("width=\"([0-9]+)\" height=\"([0-9]+)\"")));
  const double width = std::stod(size[1]);
  const double height = std::stod(size[2]);
  const std::regex text(
      "<text x=\"(\\d+)\" y=\"(\\d+)\" font-size=\"(\\d+)\" [^>]*text-anchor=\"(\\w+)\"[^>]*>([^<]*)<");
  size_t texts = 0;
  for (std::sregex_iterator at(svg.begin(), svg.end(), text), end; at != end; ++at, ++texts) {
    const std::string anchor = (*at)[4];
    const double x = std::stod((*at)[1]);
    const double y = std::stod((*at)[2]);
    const double length = 0.61 * std::stod((*at)[3]) * static_cast<double>((*at)[5].length());
    const double left = anchor == "start" ? x : anchor == "end" ? x - length : x - length / 2;
    EXPECT_GE(left, 10) << at->str();
    EXPECT_LE(left + length, width - 10) << at->str();
    EXPECT_GE(y, 10) << at->str();
    EXPECT_LE(y, height - 10) << at->str();
  }
  EXPECT_GT(texts, Names().size());
}

// Needs a renderer; it is told the size by the picture itself.
TEST_P(LayoutGolden, CanBeRendered) {
  if (std::system("rsvg-convert --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "rsvg-convert is not installed";
  const std::string path = testing::TempDir() + GetParam().golden + ".rendered";
  ASSERT_EQ(Run({"--svg", path + ".svg"}).exitCode, 0);
  const std::string command = "rsvg-convert '" + path + ".svg' -o '" + path + ".png'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string svg = ReadFile(path + ".svg");
  const std::string png = ReadFile(path + ".png");
  std::smatch size;
  ASSERT_TRUE(std::regex_search(svg, size, std::regex("width=\"([0-9]+)\" height=\"([0-9]+)\"")));
  // Width and height of a PNG are big-endian numbers from byte 16 on.
  ASSERT_GT(png.size(), 24U);
  const auto number = [&png](size_t at) {
    unsigned long value = 0;
    for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(png[at + i]);
    return value;
  };
  EXPECT_EQ(number(16), std::stoul(size[1]));
  EXPECT_EQ(number(20), std::stoul(size[2]));
  std::remove((path + ".svg").c_str());
  std::remove((path + ".png").c_str());
}

INSTANTIATE_TEST_SUITE_P(Examples, LayoutGolden,
                         Values(Example{"kettle.json", "kettle", "kettle"},
                                Example{"air_conditioner.json", "air_conditioner", "air_conditioner"},
                                Example{"gateway.json", "gateway", "gateway"},
                                Example{"gateway.json", "thermostat", "thermostat"},
                                Example{"power_meter.json", "meter", "power_meter"}),
                         [](const auto& example) { return std::string(example.param.golden); });

// A fan whose group has two bytes; bit 0 is the lowest bit of the second, and speed takes the bits 6 to 9.
std::string Fan() {
  return Configuration(
      Bool("swing", 0, 0) + "," +
      Attribute("mode", "status_writable", "enum", Bits(0, 2, 2), R"("enum": ["sleep", "breeze", "storm"], )") + "," +
      Attribute("speed", "status_writable", "enum", Bits(0, 6, 4), R"("enum": ["stop", "1", "2", "3"], )"));
}

TEST(LayoutText, DrawsAFieldThatSpansBytesOfItsGroup) {
  EXPECT_EQ(LayoutText(Fan()).out,
            R"(box "Box", id 7: 2 bytes of payload, all in a write

byte bit 7        6        5        4        3        2        1        0
     +-----------------------------------------------------+-----------------+
   0 |   .        .        .        .        .        .    | speed     [3:2] |
     +-----------------+                 +-----------------+--------+--------+
   1 | speed     [1:0] |   .        .    | mode            |   .    | swing  |
     +-----------------+-----------------+-----------------+--------+--------+
. not used   [7:0] bits of the value   2-3 bytes, 0.2 byte and bit

PLACE    NAME   GROUP     TYPE  DISPLAY NAME
0.1-1.6  speed  writable  enum  D speed
1.3-1.2  mode   writable  enum  D mode
1.0      swing  writable  bool  D swing
)");
}

TEST(LayoutText, ShowsASingleValueBit) {
  const ToolRun run = LayoutText(
      Configuration(Attribute("step", "status_writable", "enum", Bits(0, 7, 2), R"("enum": ["1", "2", "3", "4"], )")));
  EXPECT_EQ(MapOf(run.out), R"(byte bit 7        6        5        4        3        2        1        0
     +--------------------------------------------------------------+--------+
   0 |   .        .        .        .        .        .        .    |step [1]|
     +--------+                                                     +--------+
   1 |step [0]|   .        .        .        .        .        .        .    |
     +--------+--------------------------------------------------------------+
)");
}

TEST(LayoutText, MarksAndListsOverlaps) {
  const std::string items = R"("enum": ["0", "1"], )";
  const ToolRun run =
      LayoutText(Configuration(Attribute("a", "status_writable", "enum", Bits(0, 0, 4), items) + "," +
                               Attribute("b", "status_writable", "enum", Bits(0, 2, 4), items) + "," +
                               Attribute("c", "fault", "binary", Bytes(1, 2)) + "," +
                               Attribute("d", "alert", "uint8", Bytes(2, 1), Scaling("0", "9", "1", "0")) + "," +
                               Attribute("e", "alert", "uint8", Bytes(2, 1), Scaling("0", "9", "1", "0"))));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(MapOf(run.out), R"(byte bit 7        6        5        4        3        2        1        0
     +-----------------+-----------------+-----------------+-----------------+
   0 |   .        .    | b         [3:2] | ! b + a         | a         [1:0] |
     +-----------------+-----------------+-----------------+-----------------+
   1 | c                                                                     |
     +-----------------------------------------------------------------------+
   2 | ! c + d + e                                                           |
     +-----------------------------------------------------------------------+
)");
  EXPECT_EQ(RemarksOf(run.out),
            (std::vector<std::string>{"Overlap: 0.3-0.2 lies in b and a", "Overlap: 2 lies in c and d and e"}));
  EXPECT_NE(run.out.find("! fields overlap"), std::string::npos);
}

// The last of the writable bools has bit 9, so that a write's group has two bytes and its bit 0 is in byte 1. On
// reading the group ends with x, at bit 0.
TEST(LayoutText, ListsOverlapsThatAreOnWritingOnly) {
  const std::string attributes = Bool("a", 0, 0) + "," + Bool("x", 3, 0, "status_readonly") + "," + Bool("b", 0, 9) +
                                 "," + Attribute("q", "status_writable", "binary", Bytes(1, 1));
  EXPECT_EQ(RemarksOf(LayoutText(Configuration(attributes)).out),
            (std::vector<std::string>{"Overlap on writing: 1.0 lies in a and q",
                                      "Note: attrs[0] (a) is read at 0.0 but written at 1.0"}));
}

// The last of the writable bools has bit 15, so that a write's group has two bytes and its bit 9 is in byte 0. On
// reading the group ends with b, at bit 0, and has no bit 9.
TEST(LayoutText, ListsOverlapsOfWhatHasAPlaceOnWritingOnly) {
  const std::string attributes = Bool("a", 0, 9) + "," + Bool("b", 0, 0) + "," + Bool("x", 2, 0, "status_readonly") +
                                 "," + Bool("c", 0, 15) + "," +
                                 Attribute("q", "status_writable", "binary", Bytes(0, 1));
  EXPECT_EQ(RemarksOf(LayoutText(Configuration(attributes)).out),
            (std::vector<std::string>{"Overlap: 0.7 lies in c and q", "Overlap: 0.0 lies in q and b",
                                      "Overlap on writing: 0.1 lies in q and a",
                                      "Note: attrs[0] (a) is written at 0.1 but has no place in what is read",
                                      "Note: attrs[1] (b) is read at 0.0 but written at 1.0"}));
}

// The read-only number lacks its ratio, which drops q on reading. So x is alone in its group there and in bit 0 of byte
// 0; on writing q has bit 8, so that the group has two bytes, q is in bit 0 of byte 0, and x in that of byte 1.
TEST(LayoutText, KeepsReadingAndWritingApart) {
  const ToolRun run = LayoutText(Configuration(
      Bool("x", 0, 0) + "," +
      Attribute("n", "status_readonly", "uint8", Bytes(0, 1), R"("uint_spec": {"min": 0, "max": 9, "addition": 0}, )") +
      "," + Bool("q", 0, 8)));
  EXPECT_EQ(MapOf(run.out), R"(byte bit 7        6        5        4        3        2        1        0
     +--------------------------------------------------------------+--------+
   0 |   .        .        .        .        .        .        .    | x      |
     |                                                              +--------+
   1 |   .        .        .        .        .        .        .        .    |
     +-----------------------------------------------------------------------+
)");
  EXPECT_NE(run.out.find(". not read "), std::string::npos);
  EXPECT_NE(run.out.find("0.0 on writing  q "), std::string::npos);
  EXPECT_EQ(
      RemarksOf(run.out),
      (std::vector<std::string>{"Note: attrs[0] (x) is read at 0.0 but written at 1.0",
                                "Note: attrs[1] (n) is dropped, for its 'ratio'",
                                "Note: attrs[2] (q) can be written but not read: decoding drops it, for its 'ratio'"}));
}

// Field i covers the bytes from i on. Two or more share each byte but the first and the last, the same ones those in
// the middle.
TEST(LayoutText, ListsTheOverlapsOfManyLongFields) {
  std::string attributes;
  for (int i = 0; i < 300; ++i) {
    attributes += (i == 0 ? "" : ",") + Attribute("f" + std::to_string(i), "alert", "binary", Bytes(i, 16000));
  }
  const std::vector<std::string> remarks = RemarksOf(LayoutText(Configuration(attributes)).out);
  ASSERT_EQ(remarks.size(), 298u + 1 + 298);
  EXPECT_EQ(remarks[0], "Overlap: 1 lies in f0 and f1");
  EXPECT_EQ(remarks[1], "Overlap: 2 lies in f0 and f1 and f2");
  EXPECT_EQ(remarks[298].substr(0, 38), "Overlap: 299-15999 lies in f0 and f1 a");
  EXPECT_EQ(remarks[596], "Overlap: 16297 lies in f298 and f299");
}

TEST(LayoutText, CutsLongFieldsAndGapsShort) {
  const ToolRun run = LayoutText(Configuration(
      Attribute("three", "fault", "binary", Bytes(0, 3)) + "," + Attribute("key", "fault", "binary", Bytes(10, 12)) +
      "," + Attribute("last", "fault", "uint64", Bytes(25, 4), Scaling("0", "9", "1", "0"))));
  EXPECT_EQ(MapOf(run.out), R"(byte bit 7        6        5        4        3        2        1        0
     +-----------------------------------------------------------------------+
   0 | three                                                                 |
   1 |                                                                       |
   2 |                                                                       |
     +-----------------------------------------------------------------------+
   3 |   .        .        .        .        .        .        .        .    |
  .. | 7 bytes not used                                                      |
   9 |   .        .        .        .        .        .        .        .    |
     +-----------------------------------------------------------------------+
  10 | key                                                                   |
  .. | 12 bytes                                                              |
  21 |                                                                       |
     +-----------------------------------------------------------------------+
  22 |   .        .        .        .        .        .        .        .    |
  23 |   .        .        .        .        .        .        .        .    |
  24 |   .        .        .        .        .        .        .        .    |
     +-----------------------------------------------------------------------+
  25 | last                                                          [31:24] |
  .. | 4 bytes                                                               |
  28 |                                                                 [7:0] |
     +-----------------------------------------------------------------------+
)");
}

TEST(LayoutText, BreaksNamesThatAreTooLongAndCutsThemOffInTheEnd) {
  const std::string endless = "a_name_that_has_more_to_say_than_fits";
  const ToolRun run = LayoutText(Configuration(Bool(endless, 0, 0) + "," + Bool("compressor_on", 0, 1) + "," +
                                               Bool("humidity_high", 0, 2) + "," + Bool("lid_open", 0, 7)));
  EXPECT_EQ(MapOf(run.out), R"(byte bit 7        6        5        4        3        2        1        0
     +--------+-----------------------------------+--------+--------+--------+
   0 |lid_open|   .        .        .        .    |humidity|compress|a_name_t|
     |        |                                   |_high   |or_on   |hat_has_|
     |        |                                   |        |        |more_to~|
     +--------+-----------------------------------+--------+--------+--------+
)");
  EXPECT_NE(run.out.find("\n0.0    " + endless + "  writable"), std::string::npos) << run.out;
}

TEST(LayoutText, ListsWhatHasNoPlace) {
  const ToolRun run = LayoutText(Configuration(
      Bool("power", 0, 0) + "," +
      Attribute("level", "status_readonly", "uint8", Bits(1, 0, 8), Scaling("0", "9", "1", "0")) + ",null"));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(RemarksOf(run.out), (std::vector<std::string>{"Nowhere: level (read-only uint8) has no place in any packet",
                                                          "Note: attrs[2] is dropped, for its 'attr'"}));
}

TEST(LayoutText, DrawsNothingForNoPayload) {
  const ToolRun run = LayoutText(Configuration(""));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, "box \"Box\", id 7: 0 bytes of payload, none in a write\n");
  EXPECT_EQ(XmlFault(LayoutSvg(Configuration(""))), "");
}

TEST(LayoutText, StaysShortForALongPayload) {
  const ToolRun run = LayoutText(
      Configuration(Attribute("all", "status_readonly", "binary", Bytes(0, 16383)) + "," + Bool("end", 16383, 0)));
  EXPECT_EQ(MapOf(run.out), R"(byte  bit 7        6        5        4        3        2        1        0
      +-----------------------------------------------------------------------+
    0 | all                                                                   |
   .. | 16383 bytes                                                           |
16382 |                                                                       |
      +--------------------------------------------------------------+--------+
16383 |   .        .        .        .        .        .        .    | end    |
      +--------------------------------------------------------------+--------+
)");
}

TEST(LayoutText, EscapesNames) {
  const std::string configuration = Configuration(Bool(R"(a\nb)", 0, 0));
  const std::string text = LayoutText(configuration).out;
  EXPECT_NE(text.find("\n   0 |   .        .        .        .        .        .        .    | a\\nb   |\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("a\nb"), std::string::npos);
}

TEST(LayoutText, ColoursOnDemandOnly) {
  EXPECT_EQ(RunTool({"layout", "kettle.json"}).out.find('\x1b'), std::string::npos);
  const std::string colored = RunTool({"layout", "kettle.json", "--color", "always"}).out;
  EXPECT_NE(colored.find("|\x1b[31m sensor \x1b[0m|"), std::string::npos) << colored;
}

TEST(Layout, NeedsAChoiceAmongSeveralEntities) {
  const ToolRun run = RunTool({"layout", "gateway.json"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("--entity"), std::string::npos) << run.err;
}

TEST(LayoutSvg, TellsWhenTheFileCannotBeWritten) {
  const ToolRun run = RunTool({"layout", "kettle.json", "--svg", "no-such-folder/kettle.svg"});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "dp4: no-such-folder/kettle.svg: cannot be written: No such file or directory\n");
}

TEST(LayoutSvg, EscapesNames) {
  const std::string svg = LayoutSvg(Configuration(Bool(R"(<&>\"')", 0, 0) + "," + Bool(R"(\u001b\uffff)", 0, 1)));
  EXPECT_EQ(XmlFault(svg), "");
  EXPECT_GE(CountOf(svg, ">&lt;&amp;&gt;&quot;&apos;</text>"), 1U) << svg;
  EXPECT_GE(CountOf(svg, ">\\x1b\\uffff</text>"), 1U) << svg;
}

// A bit is 80 wide and bit 7 begins at 60, so the bits 1 and 0 of byte 0 begin at 540 and the bits 7 and 6 of byte 1 at
// 60; a row with one line of text is 20 high.
TEST(LayoutSvg, DrawsAFieldThatSpansBytesOfItsGroup) {
  const std::string svg = LayoutSvg(Fan());
  const std::regex piece(R"re(<title>speed \(D speed\): 0\.1-1\.6, writable enum</title>\n)re"
                         R"re(<rect x="(\d+)" y="(\d+)" width="(\d+)" height="20")re");
  std::vector<std::vector<int>> pieces;
  for (std::sregex_iterator at(svg.begin(), svg.end(), piece), end; at != end; ++at) {
    pieces.push_back({std::stoi((*at)[1]), std::stoi((*at)[2]), std::stoi((*at)[3])});
  }
  ASSERT_EQ(pieces.size(), 2U) << svg;
  EXPECT_EQ(pieces[0], (std::vector<int>{60 + 6 * 80, pieces[0][1], 2 * 80}));
  EXPECT_EQ(pieces[1], (std::vector<int>{60, pieces[0][1] + 20, 2 * 80}));
  EXPECT_EQ(CountOf(svg, ">[3:2]</text>"), 1U);
  EXPECT_EQ(CountOf(svg, ">[1:0]</text>"), 1U);
}

TEST(LayoutSvg, MarksAndListsOverlaps) {
  const std::string svg = LayoutSvg(Configuration(Attribute("a", "fault", "binary", Bytes(0, 2)) + "," +
                                                  Attribute("b", "fault", "binary", Bytes(1, 2))));
  EXPECT_EQ(XmlFault(svg), "");
  EXPECT_EQ(CountOf(svg, ">a + b</text>"), 1U) << svg;
  EXPECT_EQ(CountOf(svg, "fill=\"url(#overlap)\""), 2U) << svg;  // the byte and the key
  EXPECT_EQ(CountOf(svg, ">!</text>"), 2U) << svg;
  EXPECT_EQ(CountOf(svg, ">Overlap: 1 lies in a and b</text>"), 1U) << svg;
}

TEST(LayoutSvg, TellsGroupsApartWithoutColours) {
  const std::string svg = RunTool({"layout", "kettle.json", "--svg", "-"}).out;
  // The letter stands in each field, in the key, and in the list of fields.
  EXPECT_EQ(CountOf(svg, ">W</text>"), 3U + 1U + 3U);
  EXPECT_EQ(CountOf(svg, ">R</text>"), 1U + 1U + 1U);
  EXPECT_EQ(CountOf(svg, ">A</text>"), 2U + 1U + 2U);
  EXPECT_EQ(CountOf(svg, ">F</text>"), 1U + 1U + 1U);
  // The pattern fills each row of a field, and its sample; what is writable has none.
  EXPECT_EQ(CountOf(svg, "fill=\"url(#readonly)\""), 2U + 1U);
  EXPECT_EQ(CountOf(svg, "fill=\"url(#alert)\""), 2U + 1U);
  EXPECT_EQ(CountOf(svg, "fill=\"url(#fault)\""), 1U + 1U);
  EXPECT_EQ(CountOf(svg, "fill=\"url(#writable)\""), 0U);
}

TEST(LayoutSvg, GivesLongNamesInFullInTheList) {
  const std::string name = "a_name_that_has_very_much_more_to_say_than_fits";
  const std::string svg = LayoutSvg(Configuration(Bool(name, 0, 0)));
  EXPECT_EQ(CountOf(svg, ">" + name + "</text>"), 1U) << svg;
  EXPECT_EQ(CountOf(svg, "\xe2\x80\xa6</text>"), 1U) << svg;
}

TEST(LayoutSvg, BreaksNamesThatAreTooLongForTheList) {
  const std::string svg = LayoutSvg(Configuration(Bool(std::string(300, 'x'), 0, 0) + "," + Bool("next", 0, 1)));
  const std::regex line(R"re(<text x="(\d+)" y="(\d+)" font-size="9"[^>]*>(x+|next)</text>)re");
  std::vector<int> ys;
  size_t characters = 0;
  for (std::sregex_iterator at(svg.begin(), svg.end(), line), end; at != end; ++at) {
    ys.push_back(std::stoi((*at)[2]));
    if ((*at)[3] != "next") characters += static_cast<size_t>((*at)[3].length());
    EXPECT_LE(std::stoi((*at)[1]) + 5.49 * static_cast<double>((*at)[3].length()), 720 - 10);
  }
  EXPECT_EQ(characters, 300U);
  EXPECT_GE(ys.size(), 4U);
  EXPECT_TRUE(std::is_sorted(ys.begin(), ys.end()));
  EXPECT_EQ(std::adjacent_find(ys.begin(), ys.end()), ys.end());
}

}  // namespace
