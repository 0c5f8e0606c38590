#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"

namespace wayloom::platform {
namespace {

std::string nested(std::size_t depth, std::string_view innermost = "") {
  return std::string(depth, '[').append(innermost).append(depth, ']');
}

Json parsed(std::string_view text) {
  const auto result = parseJson(text);
  EXPECT_EQ(result.error, "") << text;
  return result.value.value_or("unparsed");
}

TEST(JsonParser, ReadsEveryTypeInDocumentOrder) {
  const auto value = parsed(
      "\xEF\xBB\xBF { \"z\": [1, -2, 0.1, 1e3], \"a\": null, \"m\": {\"t\": true, \"f\": false},"
      " \"s\": \"\\u00e9\\ud83d\\ude00\\u0000\" } ");
  EXPECT_EQ(value.dump(), R"({"z":[1,-2,0.1,1000.0],"a":null,"m":{"t":true,"f":false},"s":"é😀\u0000"})");
  EXPECT_TRUE(value["z"][0].is_number_unsigned());
}

TEST(JsonParser, NumbersAreExactOrRefused) {
  EXPECT_EQ(parsed("[9223372036854775807,18446744073709551615,-9223372036854775808]").dump(),
            "[9223372036854775807,18446744073709551615,-9223372036854775808]");
  // Past 64 bits: the nearest double, wherever in the document it stands.
  const auto large = parsed(R"({"n":[18446744073709551616,-9223372036854775809],"d":0.30000000000000004})");
  EXPECT_EQ(large["n"][0].get<double>(), 0x1p64);
  EXPECT_EQ(large["n"][1].get<double>(), -0x1p63);
  EXPECT_EQ(large["d"].get<double>(), 0.1 + 0.2);
  EXPECT_EQ(parsed("1e-400").get<double>(), 0.0);
  for (const auto* text : {"1e400", "[-1e309]", "NaN", "[Infinity]", "01", "1.", ".5", "+1", "0x10"})
    EXPECT_FALSE(parseJson(text).value) << text;
}

TEST(JsonParser, LastDuplicateWinsInFirstPlace) {
  EXPECT_EQ(parsed(R"({"a":1,"b":2,"a":{"c":1,"c":2}})").dump(), R"({"a":{"c":2},"b":2})");
  // The careful path (forced by the long integer) agrees, and many members take no quadratic time.
  EXPECT_EQ(parsed(R"({"a":1,"b":2,"a":99999999999999999999})").dump(), R"({"a":1e+20,"b":2})");
  std::string many = "{";
  for (int round = 0; round < 2; ++round)
    for (int i = 0; i < 50'000; ++i) many += "\"" + std::to_string(i) + "\":" + std::to_string(round) + ",";
  many.back() = '}';
  const auto value = parsed(many);
  ASSERT_EQ(value.size(), 50'000U);
  EXPECT_EQ(value.begin().key(), "0");
  EXPECT_EQ(value.back(), 1);
}

TEST(JsonParser, RefusesWhatIsNoDocumentAndSaysWhere) {
  const std::pair<std::string_view, std::string_view> cases[] = {{"", "byte 1:"},
                                                                 {"  \n", "byte 4:"},
                                                                 {"{} x", "byte 4:"},
                                                                 {"[1,]", "byte 4:"},
                                                                 {"{\"a\" 1}", "byte 6:"},
                                                                 {"\"\xff\"", "byte 2:"},
                                                                 {"\"\xc0\x80\"", "byte 2:"},
                                                                 {"\"\xed\xa0\x80\"", "byte 3:"},
                                                                 {"\"\\ud800\"", "byte 8:"},
                                                                 {"[1}", "byte 3:"},
                                                                 {"\"a\nb\"", "byte 3:"},
                                                                 {"{\"a\":1", "byte 7:"},
                                                                 {std::string_view("[1]\0", 4), "byte 4:"},
                                                                 {"// no\n1", "byte 1:"},
                                                                 {"tru", "byte 4:"}};
  for (const auto& [text, place] : cases) {
    const auto result = parseJson(text);
    EXPECT_FALSE(result.value) << text;
    EXPECT_THAT(result.error, testing::StartsWith(std::string(place))) << text;
    EXPECT_THAT(result.error, testing::Each(testing::AllOf(testing::Ge(' '), testing::Le('~'))));
  }
  // What came from outside doesn't swell the log.
  EXPECT_LT(parseJson("[\"" + std::string(1'000'000, 'x')).error.size(), 200U);
}

TEST(JsonParser, NestingHasALimitOnBothPaths) {
  for (const auto* innermost : {"", "99999999999999999999"}) {
    EXPECT_TRUE(parseJson(nested(kMaximumJsonDepth, innermost)).value);
    EXPECT_FALSE(parseJson(nested(kMaximumJsonDepth + 1, innermost)).value);
  }
  EXPECT_THAT(parseJson(nested(10'000)).error, testing::HasSubstr("nested deeper than 256"));
  EXPECT_FALSE(parseJson(std::string(10'000'000, '[')).value);
  std::string objects;
  for (int i = 0; i < 10'000; ++i) objects += "{\"a\":";
  EXPECT_FALSE(parseJson(objects).value);
}

TEST(JsonParser, CountsEveryValueAndRefusesTooMany) {
  const std::string text = R"({"a":[1,"x,[{,",{}],"b":null,"n":99999999999999999999})";  // seven values
  for (const auto* cut : {"", ",\"n\":99999999999999999999"}) {  // the careful path, and the fast one
    std::string document = text;
    if (*cut != '\0') document.erase(document.find(cut), std::strlen(cut));
    const std::size_t values = *cut != '\0' ? 6 : 7;
    EXPECT_TRUE(parseJson(document, {.elements = values}).value) << document;
    EXPECT_TRUE(parseJson(document, {.elements = 100}).value);
    EXPECT_EQ(parseJson(document, {.elements = values - 1}).error,
              "a document of more values than " + std::to_string(values - 1));
    EXPECT_TRUE(parseJson(document, {.bytes = document.size()}).value);
    EXPECT_EQ(parseJson(document, {.bytes = document.size() - 1}).error,
              "a document of more bytes than " + std::to_string(document.size() - 1));
  }
}

TEST(JsonValue, NumbersComeFromNumbersAndTexts) {
  struct Case {
    Json value;
    std::int64_t integer;
    double number;
    bool truth;
  };
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  constexpr auto kHuge = std::numeric_limits<double>::max();
  const Case cases[] = {
      {Json(-3), -3, -3.0, true},
      {Json(2.9), 2, 2.9, true},
      {Json(-2.9), -2, -2.9, true},
      {Json(0.25), 0, 0.25, true},
      {Json(1e30), kMax, 1e30, true},
      {Json(-1e30), kMin, -1e30, true},
      {Json(0x1p63), kMax, 0x1p63, true},
      {Json(18446744073709551615U), kMax, 0x1p64, true},
      {Json(true), 1, 1.0, true},
      {Json(false), 0, 0.0, false},
      {Json(nullptr), 0, 0.0, false},
      {Json::array({1}), 0, 0.0, false},
      {Json("12 m"), 12, 12.0, true},
      {Json(" \t-59"), -59, -59.0, true},
      {Json("+007.5e1x"), 7, 75.0, true},
      {Json("1e3"), 1, 1000.0, true},
      {Json("1e"), 1, 1.0, true},
      {Json("1e+"), 1, 1.0, true},
      {Json(".5"), 0, 0.5, false},
      {Json("5."), 5, 5.0, true},
      {Json("."), 0, 0.0, false},
      {Json("- 5"), 0, 0.0, false},
      {Json("+-5"), 0, 0.0, false},
      {Json("0x1F"), 0, 0.0, false},
      {Json("1,5"), 1, 1.0, true},
      {Json(""), 0, 0.0, false},
      {Json("x"), 0, 0.0, false},
      {Json("inf"), 0, 0.0, false},
      {Json("nan"), 0, 0.0, false},
      {Json("9223372036854775807"), kMax, 0x1p63, true},
      {Json("-9223372036854775808"), kMin, -0x1p63, true},
      {Json("99999999999999999999"), kMax, 1e20, true},
      {Json("-99999999999999999999"), kMin, -1e20, true},
      {Json("1e999"), 1, kHuge, true},
      {Json("-1e999999999999999999999"), -1, -kHuge, true},
      {Json("1" + std::string(400, '0')), kMax, kHuge, true},
      {Json("0." + std::string(400, '0') + "1"), 0, 0.0, false},
      {Json("1e-999"), 1, 0.0, true},
      {Json(" -00Yes"), 0, 0.0, true},
      {Json("true"), 0, 0.0, true},
      {Json("No"), 0, 0.0, false},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(integerValue(&each.value), each.integer) << each.value;
    EXPECT_EQ(doubleValue(&each.value), each.number) << each.value;
    EXPECT_EQ(boolValue(&each.value), each.truth) << each.value;
  }
  const Json nan = std::nan("");
  EXPECT_EQ(integerValue(&nan), 0);
  const Json beyondFloat = 1e300;
  EXPECT_EQ(floatValue(&beyondFloat), std::numeric_limits<float>::max());
  EXPECT_EQ(integerValue(nullptr) + static_cast<std::int64_t>(doubleValue(nullptr)), 0);
}

TEST(JsonValue, MembersTellMissingFromNull) {
  const auto object = parsed(R"({"name":"Lobby","note":null,"n":1})");
  EXPECT_EQ(stringValue(member(object, "name")), "Lobby");
  EXPECT_TRUE(isNull(member(object, "note")));
  EXPECT_FALSE(isNull(member(object, "missing")));
  EXPECT_EQ(member(object, "missing"), nullptr);
  EXPECT_EQ(member(member(object, "n"), "x"), nullptr);
  EXPECT_EQ(member(nullptr, "x"), nullptr);
  EXPECT_FALSE(stringValue(member(object, "n")));
}

}  // namespace
}  // namespace wayloom::platform
