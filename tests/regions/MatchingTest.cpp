// The index of a kit against a plain walk over its entries, on many random kits, and what sharing its matches promises.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/regions/TGFAPIBeaconFinder.hpp"

#include "AllocationCounter.hpp"

namespace wayloom {
namespace {

using platform::Json;
using platform::UUID;
using Word = TGFAPIBeaconFinder::Word;

struct Identity {
  UUID uuid;
  Word major;
  Word minor;
};

// The rules of matching, entry by entry, without an index.
class Walk {
 public:
  Walk(const Json& document, const Identity& reported) : reported_(reported) {
    const Json* entries = platform::member(document, "ibeacons");
    if (!entries || !entries->is_array()) return;
    for (const auto& entry : *entries) {
      if (!uuidMatches(entry)) continue;
      if (!majorMatches(entry, false))
        candidates_[0] = &entry;
      else
        candidates_[minorMatches(entry, false) ? 2 : 1] = &entry;
    }
  }

  bool uuidMatches(const Json& entry) const {
    const auto text = platform::stringValue(platform::member(entry, "uuid"));
    return text && UUID::parse(*text) == reported_.uuid && majorMatches(entry, true);
  }

  Json result() const {
    Json attributes = Json::object();
    Json name = "";
    Json identifier = "";
    for (const Json* entry : candidates_) {
      if (!entry) continue;
      if (const Json* own = platform::member(entry, "attributes"); own && own->is_object())
        for (const auto& [key, value] : own->items()) attributes[key] = value;
      name = textOrNull(*entry, "name");
      identifier = textOrNull(*entry, "identifier");
    }
    return {{"name", name}, {"identifier", identifier}, {"attributes", attributes}};
  }

 private:
  static Json textOrNull(const Json& entry, const char* key) {
    const auto text = platform::stringValue(platform::member(entry, key));
    return text ? Json(*text) : Json();
  }
  static bool equals(const Json& entry, const char* key, Word number) {
    return number && platform::integerValue(platform::member(entry, key)) == *number;
  }
  bool minorMatches(const Json& entry, bool allowWildCard) const {
    if (platform::isNull(platform::member(entry, "minor"))) return allowWildCard;
    return equals(entry, "minor", reported_.minor);
  }
  bool majorMatches(const Json& entry, bool allowWildCard) const {
    if (platform::isNull(platform::member(entry, "major"))) return allowWildCard;
    return equals(entry, "major", reported_.major) && minorMatches(entry, true);
  }

  Identity reported_;
  std::array<const Json*, 3> candidates_{};
};

Json described(const BeaconMatch& match) {
  return {{"name", match.name ? Json(*match.name) : Json()},
          {"identifier", match.identifier ? Json(*match.identifier) : Json()},
          {"attributes", match.attributes}};
}

// Makes kits from few values, so that entries meet, and from every kind of value that doesn't belong there.
class KitMaker {
 public:
  explicit KitMaker(unsigned seed) : random_(seed) {}

  Json document() {
    static const Values kOdd = {Json(), 7, Json::object(), Json{{"ibeacons", "none"}}};
    if (chance(0.02)) return pick(kOdd);
    Json entries = Json::array();
    for (auto count = below(30); count > 0; --count) entries.push_back(entry());
    return {{"ibeacons", entries}};
  }

  Identity identity() {
    static const std::array<Word, 6> kWords = {0, 1, 2, 5, 65535, std::nullopt};
    const auto uuid = UUID::parse(kUUIDs[below(3)]);
    return {*uuid, kWords[below(kWords.size())], kWords[below(kWords.size())]};
  }

 private:
  using Values = std::vector<Json>;
  static constexpr std::array<const char*, 5> kUUIDs = {
      "5A0E1C9E-0000-4B7E-8000-000000000001", "5A0E1C9E-0000-4B7E-8000-000000000002",
      "F0000000-0000-0000-0000-00000000000F", "5a0e1c9e-0000-4b7e-8000-000000000001", "not a uuid"};

  std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_); }
  bool chance(double share) { return std::bernoulli_distribution(share)(random_); }
  const Json& pick(const Values& values) { return values[below(values.size())]; }

  const Json& number() {
    static const Values kUsual = {Json(), 0, 1, 2, 5};
    static const Values kUnusual = {"1",
                                    "2 m",
                                    " 5",
                                    "x",
                                    1.9,
                                    true,
                                    65535,
                                    65536,
                                    65537,
                                    -1,
                                    1e300,
                                    Json::array({1}),
                                    Json::object(),
                                    18446744073709551615U};
    return pick(chance(0.8) ? kUsual : kUnusual);
  }
  Json entry() {
    static const Values kNoEntries = {Json(), 5, "entry", Json::array()};
    static const Values kNames = {"lobby", "hall", "door", Json(), 3};
    static const Values kNoAttributes = {Json(), "none", Json::array({1})};
    if (chance(0.03)) return pick(kNoEntries);
    Json made = Json::object();
    if (!chance(0.03)) made["uuid"] = chance(0.03) ? Json(4) : Json(kUUIDs[below(kUUIDs.size())]);
    if (!chance(0.1)) made["major"] = number();
    if (!chance(0.1)) made["minor"] = number();
    if (!chance(0.1)) made["name"] = pick(kNames);
    if (!chance(0.1)) made["identifier"] = pick(kNames);
    if (!chance(0.1)) made["attributes"] = chance(0.1) ? pick(kNoAttributes) : attributes();
    return made;
  }
  Json attributes() {
    Json made = Json::object();
    for (const auto* key : {"map_id", "latitude", "measured_power", "d", "e"})
      if (chance(0.5)) made[key] = below(1000);
    if (chance(0.01))  // many enough for the other way of merging
      for (int i = 0; i < 100; ++i) made["k" + std::to_string(below(200))] = i;
    return made;
  }

  std::mt19937 random_;
};

TEST(Matching, IndexFindsWhatAWalkOverTheEntriesFinds) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    KitMaker maker(seed);
    const auto document = std::make_shared<const Json>(maker.document());
    const TGFAPIBeaconFinder finder(document);
    for (int query = 0; query < 20; ++query) {
      const auto reported = maker.identity();
      const auto& match = finder.findAttrsForUUIDMajorMinor(reported.uuid, reported.major, reported.minor);
      ASSERT_EQ(described(*match), Walk(*document, reported).result()) << "seed " << seed << ": " << document->dump();
    }
  }
}

// Whether the kit names the UUID, or, with numbers, has an entry for one of the beacons that kits of KitMaker speak of.
bool walkKnows(const Json& document, const Identity& asked) {
  const Json* entries = platform::member(document, "ibeacons");
  if (!entries || !entries->is_array()) return false;
  const auto some = [&](auto predicate) { return std::any_of(entries->begin(), entries->end(), predicate); };
  if (!asked.major)
    return some([&](const Json& entry) {
      return UUID::parse(platform::stringValue(platform::member(entry, "uuid")).value_or("")) == asked.uuid;
    });
  for (const auto minor : std::array<std::uint16_t, 5>{0, 1, 2, 5, 65535}) {
    const Walk walk(document, {asked.uuid, asked.major, asked.minor.value_or(minor)});
    if (some([&](const Json& entry) { return walk.uuidMatches(entry); })) return true;
  }
  return false;
}

TEST(Matching, KnowsTheRegionsThatHoldABeaconOfSomeEntry) {
  for (unsigned seed = 0; seed < 1000; ++seed) {
    KitMaker maker(seed);
    const auto document = std::make_shared<const Json>(maker.document());
    const TGFAPIBeaconFinder finder(document);
    for (int query = 0; query < 20; ++query) {
      const auto asked = maker.identity();
      const platform::CLBeaconRegion region(asked.uuid, asked.major, asked.minor, "r");
      ASSERT_EQ(finder.knows(region), walkKnows(*document, asked)) << "seed " << seed << ": " << document->dump();
    }
  }
}

constexpr auto kUUID = "5A0E1C9E-0000-4B7E-8000-000000000001";

std::shared_ptr<const Json> smallKit() {
  return std::make_shared<const Json>(Json::parse(R"({"ibeacons": [
    {"uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": null, "minor": 7, "name": "venue", "identifier": "v",
     "attributes": {"map_id": 12, "measured_power": "-59 dBm", "latitude": "50.5"}},
    {"uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": 1, "minor": 4, "identifier": "x",
     "attributes": {"map_id": "lobby", "longitude": 8.25, "measured_power": null}},
    {"uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": 2, "minor": 4, "attributes": {"map_id": null}}]})"));
}

TEST(Matching, NamesTheBeaconAsItsMostSpecificEntryDoes) {
  const TGFAPIBeaconFinder finder(smallKit());
  const auto uuid = *UUID::parse(kUUID);

  const auto exact = finder.findIBeaconForCLBeacon({uuid, 1, 4, -70, 2.5, platform::CLProximity::near});
  EXPECT_EQ(exact.name(), std::nullopt) << "the exact entry has no name, and its own counts";
  EXPECT_EQ(exact.identifier(), "x");
  EXPECT_EQ(exact.rssi(), -70);
  EXPECT_EQ(exact.accuracy(), 2.5);
  EXPECT_TRUE(exact.hasMajor() && exact.hasMinor());

  const auto other = finder.findIBeaconForCLBeacon({uuid, 9, 9});
  EXPECT_EQ(other.name(), "venue");

  const auto stranger = TGFAPIBeaconFinder(nullptr).findIBeaconForCLBeacon({uuid, 1, 4});
  EXPECT_EQ(stranger.name(), "");
  EXPECT_EQ(stranger.identifier(), "");
  EXPECT_TRUE(stranger.attributes().is_object() && stranger.attributes().empty());
}

TEST(Matching, AKnownIdentityAllocatesNothing) {
  const TGFAPIBeaconFinder finder(smallKit());
  const auto uuid = *UUID::parse(kUUID);
  const auto ask = [&] {
    std::size_t found = 0;
    for (std::uint16_t major = 0; major < 4; ++major)
      found += finder.findAttrsForUUIDMajorMinor(uuid, major, std::uint16_t{4})->attributes.size();
    return found + finder.findAttrsForUUIDMajorMinor(UUID(), std::uint16_t{1}, std::uint16_t{1})->attributes.size();
  };
  const auto first = ask();
  const auto before = allocationCount();
  const auto second = ask();
  EXPECT_EQ(allocationCount(), before);
  EXPECT_EQ(first, second);
}

TEST(Matching, ThreadsShareOneMatchForAnIdentity) {
  const TGFAPIBeaconFinder finder(smallKit());
  const auto uuid = *UUID::parse(kUUID);
  std::array<std::vector<const BeaconMatch*>, 4> seen;
  {
    std::vector<std::jthread> threads;
    for (auto& mine : seen)
      threads.emplace_back([&finder, &uuid, &mine] {
        for (std::uint16_t major = 0; major < 4; ++major)
          mine.push_back(finder.findAttrsForUUIDMajorMinor(uuid, major, std::uint16_t{4}).get());
      });
  }
  for (const auto& mine : seen) EXPECT_EQ(mine, seen[0]);
}

}  // namespace
}  // namespace wayloom
