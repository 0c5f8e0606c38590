#include "tools/common/VenueTroubles.hpp"

#include <algorithm>
#include <filesystem>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/posix/PlistReader.hpp"
#include "wayloom/regions/MissingUsageDescription.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "tools/common/Output.hpp"
#include "tools/common/VenueEndpoints.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;

class VenueInspection {
 public:
  explicit VenueInspection(const std::string& venue) : named_(venue), folder_(posix::absolutePath(venue)) {}

  void inspect(VenuePart part) {
    switch (part) {
      case VenuePart::addresses:
        return inspectAddresses(false);
      case VenuePart::serverAddresses:
        return inspectAddresses(true);
      case VenuePart::usage:
        return inspectUsage();
      case VenuePart::builtInMaps:
        return inspectMaps();
      case VenuePart::kit:
        return inspectKit();
    }
  }
  std::vector<std::string> take() { return std::move(troubles_); }

 private:
  void tell(const std::string& file, const std::string& what) { troubles_.push_back(named_ + file + ": " + what); }

  // Whether it is there; what is wrong with it is told.
  bool inspectList(const char* file) {
    std::error_code ignored;
    if (!std::filesystem::exists(folder_ + file, ignored)) return false;
    if (const auto trouble = propertyListTrouble(folder_ + file)) tell(file, *trouble);
    return true;
  }

  void inspectAddresses(bool oneWillDo) {
    const bool hasEngines = inspectList("/bundle/Geofold.plist");
    if (!inspectList("/bundle/Wayloom.plist") && !(hasEngines && oneWillDo))
      tell("/bundle/Wayloom.plist", "is missing: it says where the venue's servers are");
  }

  void inspectUsage() {
    const auto before = troubles_.size();
    inspectList("/bundle/Info.plist");
    if (troubles_.size() > before) return;
    const auto list = posix::PlistReader().readDictionary(folder_ + "/bundle/Info.plist");
    if (!list || platform::member(*list, "NSLocationAlwaysUsageDescription") == nullptr)
      tell("/bundle/Info.plist", MissingUsageDescription().what());
  }

  // Nothing, once told, when the file can't be read or is no JSON.
  std::optional<Json> document(const std::string& file) {
    const auto text = posix::readRegularFile(folder_ + file, platform::kMaximumHttpBody);
    auto parsed = text ? platform::parseJson(*text) : platform::JsonParseResult{};
    if (!text)
      tell(file, "can't be read");
    else if (!parsed.value)
      tell(file, parsed.error);
    return std::move(parsed.value);
  }

  void inspectMaps() {
    const char* file = "/bundle/map_config.json";
    const auto json = document(file);
    if (json && !json->is_object()) tell(file, "is no object with a map under each name");
  }

  void inspectKit() {
    const char* file = "/server/kit.json";
    const auto json = document(file);
    const Json* kit = json ? platform::member(*json, "kit") : nullptr;
    if (json && (kit == nullptr || !kit->is_object())) tell(file, "there is no object under \"kit\"");
  }

  std::string named_;
  std::string folder_;
  std::vector<std::string> troubles_;
};

bool isUtf16(std::string_view bytes) {
  return bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE") ||
         bytes.starts_with(std::string_view("<\0", 2)) || bytes.starts_with(std::string_view("\0<", 2));
}

}  // namespace

std::optional<std::string> propertyListTrouble(const std::string& path) {
  constexpr std::size_t kLargest = 16U << 20U;
  if (posix::PlistReader().readDictionary(path)) return std::nullopt;
  const auto bytes = posix::readRegularFile(path, kLargest);
  if (!bytes) return "can't be read";
  if (isUtf16(*bytes)) return "is in UTF-16, which is not read: save it as UTF-8, or as a binary property list";
  return "is not a property list that holds a dictionary";
}

bool knowsMap(const std::string& venue, const std::string& documents, const std::string& mapId) {
  const VenueEndpoints endpoints(posix::absolutePath(venue));
  std::vector<std::string> files = {endpoints.venue() + "/bundle/map_config.json",
                                    endpoints.files().mapFileFor(endpoints.mapConfigUrl("http://venue"))};
  if (!documents.empty()) files.push_back(posix::absolutePath(documents) + "/" + std::string(SAVED_JSON_FILENAME));
  return std::any_of(files.begin(), files.end(), [&](const std::string& file) {
    const auto text = posix::readRegularFile(file, platform::kMaximumHttpBody);
    const auto json = text ? platform::parseJson(*text).value : std::nullopt;
    return json && platform::member(*json, mapId) != nullptr;
  });
}

std::vector<std::string> troublesOf(const std::string& venue, std::initializer_list<VenuePart> parts) {
  VenueInspection inspection(venue);
  for (const auto part : parts) inspection.inspect(part);
  return inspection.take();
}

bool tellTroubles(const std::string& venue, std::initializer_list<VenuePart> parts) {
  const auto troubles = troublesOf(venue, parts);
  for (const auto& trouble : troubles) complain(trouble);
  return !troubles.empty();
}

}  // namespace wayloom::tools
