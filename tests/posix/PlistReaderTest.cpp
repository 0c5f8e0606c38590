#include <clocale>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include "wayloom/posix/PlistReader.hpp"

namespace wayloom::posix {
namespace {

using platform::Json;

std::string xml(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//A//DTD PLIST 1.0//EN\" "
         "\"http://a/b.dtd\">\n"
         "<plist version=\"1.0\">\n" +
         content + "\n</plist>\n";
}

// The binary form of an XML property list, as another implementation writes it, which reads numbers with the locale.
std::string binary(const std::string& text) {
  const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
  const locale_t before = ::uselocale(plain);
  plist_t list = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
  ::uselocale(before);
  ::freelocale(plain);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(list, &bytes, &length);
  std::string copy(bytes, length);
  std::free(bytes);
  plist_free(list);
  return copy;
}

// A binary property list of these objects (each with its marker), one-byte references, the first on top.
std::string binaryOf(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string offsets;
  for (const auto& object : objects) {
    offsets.push_back(static_cast<char>(bytes.size() >> 8U));
    offsets.push_back(static_cast<char>(bytes.size()));
    bytes += object;
  }
  const auto number = [](std::size_t value) {
    return std::string(6, '\0') + static_cast<char>(value >> 8U) + static_cast<char>(value);
  };
  const auto table = bytes.size();
  return bytes + offsets + std::string(6, '\0') + "\x02\x01" + number(objects.size()) + number(0) + number(table);
}

TEST(PlistReader, BothFormatsGiveTheSame) {
  const auto text = xml(R"(<dict>
    <key>GFKitURL</key> <string>http://h/kits/42?a=1&amp;b=&#x32;</string> <!-- <key>no</key> -->
    <key>Empty</key><string/> <key>Umlaut</key><string>ä€😀</string>
    <key>Numbers</key><array><integer>0</integer><integer>-5</integer><integer>70000</integer>
      <integer>9223372036854775807</integer><real>0.1</real><real>-1e-3</real></array>
    <key>Flags</key><dict><key>a</key><true/><key>b</key><false/></dict>
    <key>Date</key><date>2015-01-30T16:09:32Z</date> <key>Old</key><date>1969-12-31T23:59:59Z</date>
    <key>Data</key><data> aGVs
      bG8= </data> <key>NoData</key><data></data> <key>None</key><dict/> <key>Nothing</key><array/></dict>)");
  const auto expected = Json::parse(R"({"GFKitURL":"http://h/kits/42?a=1&b=2","Empty":"","Umlaut":"ä€😀",
    "Numbers":[0,-5,70000,9223372036854775807,0.1,-0.001],"Flags":{"a":true,"b":false},
    "Date":1422634172.0,"Old":-1.0,"Data":"aGVsbG8=","NoData":"","None":{},"Nothing":[]})");
  EXPECT_EQ(PlistReader::parseDictionary(text), expected);
  EXPECT_EQ(PlistReader::parseDictionary("\xEF\xBB\xBF" + text), expected);
  EXPECT_EQ(PlistReader::parseDictionary(binary(text)), expected);
}

TEST(PlistReader, DetailsOfEachFormat) {
  const auto valueOf = [](const std::string& element) {
    return PlistReader::parseDictionary(xml("<dict><key>k</key>" + element + "</dict>"))
        .value_or(Json{{"k", "?"}})["k"];
  };
  EXPECT_EQ(valueOf("<string>a<![CDATA[<b>&]]>c<!-- x -->d</string>"), "a<b>&cd");
  EXPECT_EQ(valueOf("<integer> 0x1F </integer>"), 31);
  EXPECT_EQ(valueOf("<integer>18446744073709551615</integer>"), 18446744073709551615U);
  EXPECT_EQ(valueOf("<integer>-9223372036854775808</integer>"), INT64_MIN);
  EXPECT_EQ(valueOf("<true></true>"), true);
  EXPECT_EQ(PlistReader::parseDictionary(xml("<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>"))
                ->dump(),
            R"({"a":false,"b":true})");
  const std::string dictionary = "\xD1\x01\x02";
  const auto binaryValue = [&](const std::string& object) {
    return PlistReader::parseDictionary(binaryOf({dictionary, "\x51k", object})).value_or(Json{{"k", "?"}})["k"];
  };
  EXPECT_EQ(binaryValue(std::string("\x62\xd8\x3d\xde\x00", 5)), "😀");
  EXPECT_EQ(binaryValue(std::string("\x00", 1)), nullptr);
  EXPECT_EQ(binaryValue(std::string("\x14") + std::string(8, '\0') + std::string(8, '\xff')), 18446744073709551615U);
  EXPECT_EQ(binaryValue(std::string("\x22\x3f\x80\0\0", 5)), 1.0);
  EXPECT_EQ(binaryValue("\x5f\x10\x10" + std::string(16, 'x')), std::string(16, 'x'));
}

TEST(PlistReader, MalformedBytesGiveNothing) {
  for (const auto* element : {"<integer>zz</integer>",
                              "<integer>18446744073709551616</integer>",
                              "<integer>-9223372036854775809</integer>",
                              "<integer/>",
                              "<real>inf</real>",
                              "<real>1x</real>",
                              "<date>2015-02-30T00:00:00Z</date>",
                              "<date>today</date>",
                              "<data>a</data>",
                              "<data>a===</data>",
                              "<data>!!!!</data>",
                              "<string>&nbsp;</string>",
                              "<string>&#xD800;</string>",
                              "<string>&#0;</string>",
                              "<string>&amp</string>",
                              "<string>a</key>",
                              "<string>\xff</string>",
                              "<blob/>",
                              "</dict>",
                              "<true>x</true>",
                              "<string>",
                              "<!-- ",
                              "<key>b</key>",
                              ""})
    EXPECT_FALSE(PlistReader::parseDictionary(xml(std::string("<dict><key>k</key>") + element + "</dict>"))) << element;
  for (const auto& text :
       {std::string(), std::string("plist"), xml("<array/>"), xml("<string>s</string>"), xml("<dict/><dict/>"),
        xml("<dict><string>k</string><true/></dict>"), xml("<dict/>") + "x", std::string("<plist><dict/>"),
        std::string("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><dict/></plist>"), std::string("bplist00")})
    EXPECT_FALSE(PlistReader::parseDictionary(text)) << text;
  // A good binary list, cut off anywhere or with any one byte changed, is read or refused but never worse.
  const auto good = binary(xml("<dict><key>a</key><array><integer>1</integer><string>ä</string></array></dict>"));
  for (std::size_t length = 0; length < good.size(); ++length)
    EXPECT_FALSE(PlistReader::parseDictionary(good.substr(0, length)));
  for (std::size_t place = 8; place < good.size(); ++place) {
    for (int value = 0; value < 256; ++value) {
      auto changed = good;
      changed[place] = static_cast<char>(value);
      PlistReader::parseDictionary(changed);
    }
  }
}

TEST(PlistReader, HostileNestingIsHarmless) {
  for (const std::size_t depth : {10'000U, 100'000U}) {
    std::string arrays;
    std::string dictionaries;
    for (std::size_t i = 0; i < depth; ++i) {
      arrays += "<array>";
      dictionaries += "<dict><key>a</key>";
    }
    EXPECT_FALSE(PlistReader::parseDictionary(xml("<dict><key>a</key>" + arrays)));
    EXPECT_FALSE(PlistReader::parseDictionary(xml(dictionaries)));
  }
  EXPECT_FALSE(PlistReader::parseDictionary(binaryOf({"\xD1\x01\x02", "\x51k", "\xA1\x02"}))) << "an array in itself";
  std::vector<std::string> doubling = {"\xD1\x01\x02", "\x51k"};
  for (char next = 3; next < 60; ++next) doubling.push_back({'\xA2', next, next});
  doubling.push_back("\x50");
  EXPECT_FALSE(PlistReader::parseDictionary(binaryOf(doubling)));
}

TEST(PlistReader, ReadsFiles) {
  const auto path = testing::TempDir() + "/list.plist";
  std::ofstream(path) << xml("<dict><key>a</key><string>b</string></dict>");
  EXPECT_EQ(PlistReader().readDictionary(path), Json({{"a", "b"}}));
  EXPECT_FALSE(PlistReader().readDictionary(path + ".missing"));
  EXPECT_FALSE(PlistReader().readDictionary(testing::TempDir()));
}

}  // namespace
}  // namespace wayloom::posix
