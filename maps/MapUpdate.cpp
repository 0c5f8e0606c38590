#include "maps/MapUpdate.hpp"

#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/Platform.hpp"

#include "maps/ErrorText.hpp"

namespace wayloom {
namespace {

// Over a slow link a map costs waiting, not work: enough at a time to hide it, few enough for any server, and images
// of no more than so many maps in memory.
constexpr std::size_t kMapsAtATime = 16;

}  // namespace

// No handler runs from here on, while the downloads go.
MapUpdate::~MapUpdate() { scope_.close(); }

void MapUpdate::start(platform::CalendarTime cutOff) {
  documentUrl_ = repo_.updateUrl().value_or("");
  documentDownload_ = repo_.loadFromUrlIfNewerThanCompletionHandler(
      documentUrl_, cutOff, scope_.bind([this](const Date&, Bytes document, const Failure& error) {
        documentArrived(std::move(document), error);
      }));
}

void MapUpdate::documentArrived(Bytes document, const Failure& error) {
  if (error) {
    platform_.systemLog().write("Error: " + textOf(*error));
    tell({.kind = MapUpdateStep::Kind::document, .outcome = Outcome::failed, .reason = textOf(*error)});
    return end(Outcome::failed, textOf(*error));
  }
  document_ = std::move(document);
  if (!document_) return walk(*repo_.configRepo());
  const TWLMapConfigRepo downloaded(platform_, *document_);
  walk(*downloaded.configRepo());
}

void MapUpdate::walk(const MapCatalogue& catalogue) {
  for (const auto& map : catalogue.maps()) {
    const auto& mapId = map.config->mapId();
    maps_.push_back({mapId, mapFile(mapId, map.config->filePath(), documentUrl_)});
  }
  pending_ = maps_.size();
  const bool isUsable = !maps_.empty();
  tell({.kind = MapUpdateStep::Kind::document,
        .outcome = !document_ ? Outcome::unchanged
                   : isUsable ? Outcome::downloaded
                              : Outcome::refused,
        .bytes = document_ ? document_->size() : 0});
  if (!isUsable) return end(Outcome::failed, "the document holds no map");
  beginMaps();
}

void MapUpdate::beginMaps() {
  while (active_ < kMapsAtATime && next_ < maps_.size()) begin(next_++);
}

void MapUpdate::begin(std::size_t index) {
  Map& map = maps_[index];
  if (!map.file.file) {
    platform_.systemLog().write("Refused map " + shownInLog(map.mapId) + ": " + map.file.refusal);
    return mapEnded(map, Outcome::refused, 0, map.file.refusal);
  }
  ++active_;
  auto handler = scope_.bind([this, index](const Date& date, const Bytes& image, const Failure& error) {
    --active_;
    mapArrived(index, date, image, error);
    beginMaps();
  });
  const std::string installed = repo_.files_.mapDirectoryPath() + "/" + map.file.file->localName;
  auto& files = platform_.files();
  const bool isDirectory = files.listDirectory(installed).has_value();  // whose date says nothing; it gives way
  if (isDirectory || !files.fileExists(installed)) {
    map.download = repo_.loadFromUrlCompletionHandler(map.file.file->url, std::move(handler));
    return;
  }
  const auto modified = files.modificationDate(installed);
  if (!modified) platform_.systemLog().write("Error getting modified date of map file: " + installed);
  map.download = repo_.loadFromUrlIfNewerThanCompletionHandler(map.file.file->url, modified, std::move(handler));
}

// An image of no bytes is none: what is installed is worth more.
void MapUpdate::mapArrived(std::size_t index, Date date, const Bytes& image, const Failure& error) {
  const Map& map = maps_[index];
  if (error) {
    platform_.systemLog().write("Error downloading map: " + textOf(*error));
    return mapEnded(map, Outcome::failed, 0, textOf(*error));
  }
  if (!image) return mapEnded(map, Outcome::unchanged);
  if (image->empty()) {
    platform_.systemLog().write("Error downloading map: nothing came from " + map.file.file->url);
    return mapEnded(map, Outcome::failed, 0, "nothing came from " + map.file.file->url);
  }
  const std::string path = repo_.files_.mapDownloadPath() + "/" + map.file.file->localName;
  const auto failure = repo_.writeDataToFileWithModifiedDate(*image, path, date);
  mapEnded(map, failure ? Outcome::failed : Outcome::downloaded, image->size(), failure ? textOf(*failure) : "");
}

void MapUpdate::mapEnded(const Map& map, Outcome outcome, std::size_t bytes, std::string reason) {
  --pending_;
  tell({.kind = MapUpdateStep::Kind::map,
        .outcome = outcome,
        .mapId = map.mapId,
        .bytes = bytes,
        .reason = std::move(reason)});
  if (pending_ > 0) return;
  finish_(document_);
  end(document_ ? Outcome::downloaded : Outcome::unchanged);
}

void MapUpdate::end(Outcome outcome, std::string reason) {
  hasEnded_ = true;
  tell({.kind = MapUpdateStep::Kind::ended, .outcome = outcome, .reason = std::move(reason)});
  repo_.forgetEndedUpdates();
}

void MapUpdate::tell(MapUpdateStep step) const {
  step.done = maps_.size() - pending_;
  step.total = maps_.size();
  repo_.tellUpdateObserver(std::move(step));
}

}  // namespace wayloom
