#include "tools/check/VenueCheck.hpp"

#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/posix/PlistReader.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "tools/check/KitCheck.hpp"
#include "tools/check/MapConfigCheck.hpp"
#include "tools/common/VenueEndpoints.hpp"
#include "tools/common/VenueTroubles.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;

constexpr const char* kUsageDescription = "NSLocationAlwaysUsageDescription";

// One property list of the bundle.
class PropertyListCheck {
 public:
  PropertyListCheck(std::string file, std::vector<Finding>& findings) : file_(std::move(file)), findings_(findings) {
    std::error_code ignored;
    exists_ = std::filesystem::exists(file_, ignored);
    if (exists_) list_ = posix::PlistReader().readDictionary(file_);
    if (exists_ && !list_) tell(Severity::error, propertyListTrouble(file_).value_or("can't be read"));
  }

  bool exists() const { return exists_; }
  bool isReadable() const { return list_.has_value(); }

  void tell(Severity severity, std::string message, TextPlace place = {}) {
    findings_.push_back({.severity = severity, .file = file_, .place = place, .message = std::move(message)});
  }

  void checkText(const char* key, Severity whenMissing) {
    if (!list_) return;
    const Json* value = platform::member(*list_, key);
    const auto text = platform::stringValue(value);
    if (value == nullptr)
      tell(whenMissing, fmt::format("{} is missing", key));
    else if (!text || text->empty())
      tell(Severity::error, fmt::format("{} is not a text", key), placeOf(key));
    else if (std::string_view(key).ends_with("URL") && !isAddress(*text))
      tell(Severity::error, fmt::format("{} is no address of a server: {}", key, inQuotes(*text)), placeOf(key));
  }

 private:
  static bool isAddress(std::string_view text) {
    return platform::isWellFormedUrl(text) && (text.starts_with("http://") || text.starts_with("https://"));
  }

  // Of an XML list; a binary one has no lines.
  TextPlace placeOf(std::string_view key) const {
    constexpr std::size_t kLargest = 16U << 20U;
    const auto text = posix::readRegularFile(file_, kLargest).value_or("");
    const auto offset = text.find(fmt::format("<key>{}</key>", key));
    return offset == text.npos ? TextPlace() : JsonPlaces(text).placeOf(offset);
  }

  std::string file_;
  std::vector<Finding>& findings_;
  bool exists_ = false;
  std::optional<Json> list_;
};

void checkInfo(const std::string& bundle, std::vector<Finding>& findings) {
  PropertyListCheck info(bundle + "/Info.plist", findings);
  if (info.exists() && !info.isReadable()) return;
  if (!info.exists())
    info.tell(Severity::error, fmt::format("is missing: it must have {}", kUsageDescription));
  else
    info.checkText(kUsageDescription, Severity::error);
}

void checkPropertyLists(const std::string& bundle, std::vector<Finding>& findings) {
  PropertyListCheck engine(bundle + "/Geofold.plist", findings);
  PropertyListCheck maps(bundle + "/Wayloom.plist", findings);
  for (auto* list : {&engine, &maps}) {
    list->checkText("GFKitURL", Severity::error);
    list->checkText("GFAPIToken", Severity::error);
    list->checkText("GFAnalyticsURL", Severity::note);
  }
  maps.checkText("WLMapConfigURL", Severity::warning);
  if (!maps.exists())
    maps.tell(engine.exists() ? Severity::warning : Severity::error,
              "is missing: an application that shows maps has no servers");
  checkInfo(bundle, findings);
}

void append(std::vector<Finding>& findings, const CheckedDocument& document) {
  auto more = document.findings();
  findings.insert(findings.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

// The maps that applications will have; null when no document has any.
std::unique_ptr<MapCatalogue> liveMaps(const CheckedDocument& served, const CheckedDocument& builtIn) {
  for (const auto* document : {&served, &builtIn}) {
    auto maps = document->json() != nullptr ? catalogueOf(*document->json()) : nullptr;
    if (maps && !maps->maps().empty()) return maps;
  }
  return nullptr;
}

}  // namespace

std::vector<Finding> checkVenue(const std::string& folder) {
  std::vector<Finding> findings;
  const std::string venue = posix::absolutePath(folder);
  const std::string bundle = venue + "/bundle";
  const VenueEndpoints endpoints(venue);
  const auto documentUrl = endpoints.mapConfigUrl("http://venue");
  CheckedDocument kit(endpoints.files().kitFile());
  CheckedDocument builtIn(bundle + "/map_config.json", Severity::warning);
  const auto servedFile = endpoints.files().mapFileFor(documentUrl);
  CheckedDocument served(servedFile.empty() ? venue + "/server/maps/map_config.json" : servedFile);
  checkPropertyLists(bundle, findings);
  checkMaps(builtIn, documentUrl);
  checkBuiltInImages(builtIn, bundle);
  checkMaps(served, documentUrl);
  checkServedImages(served, documentUrl, venue);
  compareMaps(builtIn, served);
  checkKit(kit, liveMaps(served, builtIn).get());
  for (const auto* document : {&builtIn, &kit, &served}) append(findings, *document);
  for (auto& finding : findings) finding.file = folder + finding.file.substr(venue.size());
  return findings;
}

}  // namespace wayloom::tools
