// What the command line reads and shows: numbers, words, descriptors, and texts that hold what a
// terminal obeys.

#include "cli/Output.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/DescriptorFields.h"
#include "cli/Words.h"
#include "common/Number.h"

namespace {

using namespace quillwork::cli;
using namespace quillwork::client;
using quillwork::parseInteger;
using quillwork::parseReal;

TEST(Numbers, AreDecimalOrHexadecimalAndNothingElse) {
  const std::pair<const char*, std::int64_t> numbers[] = {
      {"0", 0},           {"17", 17},
      {"-1", -1},         {"010", 10},
      {"0x11", 17},       {"0X1f", 31},
      {"-0x10", -16},     {"8191", 8191},
      {"0x1fff", 0x1fff}, {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
  };
  for (const auto& [text, number] : numbers) EXPECT_EQ(parseInteger(text), number) << text;
  for (const char* const text : {"", "-", "x", "0x", "0xg", "1x", " 1", "1 ", "+1", "--1", "1.5",
                                 "0x-1", "11h", "9223372036854775808", "1e3"}) {
    EXPECT_FALSE(parseInteger(text)) << text;
  }
  EXPECT_EQ(parseReal("-0.25"), -0.25);
  EXPECT_EQ(parseReal("1e6"), 1e6);
  EXPECT_EQ(parseReal("0x10"), 16.0);
  for (const char* const text : {"", "inf", "nan", "1,5", "1e999", "0.5x", " 0.5"}) {
    EXPECT_FALSE(parseReal(text)) << text;
  }
}

TEST(Arguments, SayTheirRangeInWords) {
  using Kind = Argument::Kind;
  const Argument kind{"KIND", Kind::integer, "", {}, 1, 4};
  EXPECT_EQ(kind.range(), "1 to 4");
  EXPECT_EQ(kind.complaint("4"), "");
  EXPECT_EQ(kind.complaint("0x4"), "");
  EXPECT_EQ(kind.complaint("9"), "9 is not 1 to 4");
  EXPECT_EQ(kind.complaint("one"), "'one' is no number");
  EXPECT_EQ((Argument{"--id", Kind::integer, "", "-1", -1, 255}).range(), "0 to 255");
  EXPECT_EQ((Argument{"--wait", Kind::integer, "", "0", 0}).range(), "0 or more");
  const Argument any{"PID", Kind::integer, "", {}};
  EXPECT_EQ(any.range(), "");
  EXPECT_EQ(any.complaint("0x80000000"), "0x80000000 is too large");
}

TEST(Texts, DoNotReachATerminalWithWhatItObeys) {
  const std::string hostile =
      "a\x1b[31m\x9b"
      "b\xc2\x9b"
      "c\x7f\nd\xff";
  EXPECT_EQ(printable(hostile),
            "a [31m\xef\xbf\xbd"
            "b c  d\xef\xbf\xbd");
  EXPECT_EQ(printable("Réseau d’échantillon 日本"), "Réseau d’échantillon 日本");
  EXPECT_EQ(written(Json{{"text", text(hostile)}}),
            "{\"text\":\"a\\u001b[31m\xef\xbf\xbd"
            "b\\u009bc\\u007f\\nd\xef\xbf\xbd\"}");
  // Still the same text.
  const Json json{{"text", text(hostile)}};
  EXPECT_EQ(Json::parse(written(json, 2)), json);
}

TEST(Times, AreUnsignedUntil2106) {
  EXPECT_EQ(time(-1), "-");
  EXPECT_EQ(time(0), "-");
  EXPECT_EQ(time(1), "1970-01-01 00:00:01");
  EXPECT_EQ(time(static_cast<std::int32_t>(2155593600U)), "2038-04-23 00:00:00");
  ProgramEvent event{};
  event.values[2] = static_cast<std::int32_t>(2155593600U);
  EXPECT_EQ(toJson(event)["value_3"], 2155593600U);
  EXPECT_EQ(toJson(event)["start"], "2038-04-23 00:00:00");
  event.values[2] = -1;
  EXPECT_EQ(toJson(event)["value_3"], -1);
  EXPECT_TRUE(toJson(event)["start"].is_null());
}

TEST(Words, StandBesideTheNumbers) {
  EXPECT_EQ(words::serviceType(0x19), "H.264/AVC HD digital television");
  EXPECT_EQ(words::serviceType(0x80), "user defined");
  EXPECT_EQ(words::serviceType(-1), "");
  EXPECT_EQ(words::runningStatus(4), "running");
  EXPECT_EQ(words::streamType(0x0b), "DSM-CC U-N messages");
  EXPECT_EQ(words::eventTable(0x5f), "schedule");
  EXPECT_EQ(words::caSystem(0x0b00), "Conax");
  EXPECT_EQ(words::caSystem(0x0005), "B-CAS");
  const std::vector<std::uint8_t> content = {0x14, 0x00, 0x20, 0x00, 0x00, 0x00};
  using Texts = std::vector<std::string>;
  EXPECT_EQ(words::content(content, 1), (Texts{"movie/drama: comedy", "news/current affairs"}));
  EXPECT_EQ(words::content(content, 0x7fe0), Texts{}) << "ISDB has genres of its own";
  const std::vector<std::uint8_t> rating = {'D', 'E', 'U', 3, '\x1b', 'R', 'A', 0x11};
  EXPECT_EQ(words::parentalRating(rating), (Texts{"DEU: from 6", "RA: 0x11 of the broadcaster"}));
}

TEST(Xml, IsReadAsFieldsWhateverStandsInIt) {
  std::string name;
  EXPECT_EQ(
      elementsOf("<SHORT_EVENT_DESC lang=\"eng\" event_name=\"A &lt;b&gt; &amp;amp;\" x=\"7\"/>",
                 name),
      (Json{{"lang", "eng"}, {"event_name", "A <b> &amp;"}, {"x", 7}}));
  EXPECT_EQ(name, "short event");
  name.clear();
  EXPECT_EQ(elementsOf("<A_DESC a=\"1\" /><A_DESC a=\"0x02\" />", name),
            (Json{Json{{"a", 1}}, Json{{"a", "0x02"}}}));
  name.clear();
  EXPECT_EQ(
      elementsOf("<E_DESC n=\"0\"><ITEM d=\"x\" t=\"y\"/><ITEM d=\"\" t=\"z\"/></E_DESC>", name),
      (Json{{"n", 0}, {"items", Json{Json{{"d", "x"}, {"t", "y"}}, Json{{"d", ""}, {"t", "z"}}}}}));
  name.clear();
  EXPECT_TRUE(elementsOf("<PLAIN_DESC/>", name).is_null());
  EXPECT_EQ(name, "plain");
  for (const char* const broken : {"", "<", "</", "<a", "<a b", "<a b=", "<a b=\"", "<a b=\"c",
                                   "<a/", "<a b=\"\"c\"/>", "<<>>", "<a b=\">\"/>"}) {
    std::string ignored;
    elementsOf(broken, ignored);
  }
}

#ifdef QUILLWORK_BITSTREAM
std::vector<std::uint8_t> bytes(const std::string& text) { return {text.begin(), text.end()}; }

TEST(Descriptors, AreReadByTheirFields) {
  const std::vector<Descriptor> loop = {
      {0x48, bytes("\x19\x03"
                   "ERT"
                   "\x04"
                   "News")},
      {0x41, bytes(std::string("\x0d\x49\x01\x0d\x52\x1f", 6))},
      {0x83, bytes(std::string("\x0d\x49\xfc\x01", 4))},
      {0x5f, bytes(std::string("\x00\x00\x00\x02", 4))},
      {0x83, bytes(std::string("\x0d\x49\xfc\x01", 4))},
      {0x5f, bytes(std::string("\x00\x00\x21\x2c", 4))},
      {0x83, bytes(std::string("\x0d\x49\xfc\x01", 4))},
      {0x48, bytes("\x01\xff")},
      {0x6f, bytes("")},
      {0xf0, bytes("x")},
  };
  const auto described = describe(loop, "ISO6937");
  ASSERT_EQ(described.size(), loop.size());
  EXPECT_EQ(described[0].name, "service");
  EXPECT_EQ(described[0].fields,
            (Json{{"type", "0x19"}, {"provider", "ERT"}, {"service", "News"}}));
  EXPECT_EQ(described[1].fields,
            (Json{Json{{"sid", 3401}, {"type", "0x01"}}, Json{{"sid", 3410}, {"type", "0x1f"}}}));
  const Json channel{{"sid", 3401}, {"visible", 1}, {"lcn", 1}};
  EXPECT_EQ(described[2].fields, channel);
  EXPECT_TRUE(described[4].fields.is_null()) << "a broadcaster's own meaning";
  EXPECT_EQ(described[6].fields, channel);
  EXPECT_TRUE(described[7].fields.is_null()) << "its lengths do not fit";
  EXPECT_EQ(described[8].name, "application signalling");
  EXPECT_EQ(described[9].name, "");
  EXPECT_TRUE(described[9].fields.is_null());
}

// Lengths inside of a descriptor that lead back to its begin, or beyond its end.
TEST(Descriptors, OfAnyBytesEndNothing) {
  std::minstd_rand random(1);
  for (int tag = 0; tag < 256; ++tag) {
    for (int round = 0; round < 60; ++round) {
      const std::size_t limit = round % 4 == 0 ? 256 : 40;
      std::vector<std::uint8_t> data(random() % limit);
      // Half of them with small numbers: lengths that fit.
      const unsigned most = round % 2 == 0 ? 256 : 16;
      for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random() % most);
      const auto described = describe({{static_cast<std::int16_t>(tag), data}}, "ISO6937");
      ASSERT_EQ(described.size(), 1U);
      EXPECT_EQ(described[0].descriptor.data, data);
      EXPECT_NO_THROW(written(toJson(described[0])));
    }
  }
}
#endif

}  // namespace
