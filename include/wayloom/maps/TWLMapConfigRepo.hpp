#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/maps/MapCatalogue.hpp"
#include "wayloom/maps/MapUpdateStep.hpp"
#include "wayloom/maps/TWLMapsFileManager.hpp"
#include "wayloom/platform/DelegateSlot.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

class MapUpdate;

// The built-in document: resource name, of type "json", in the main bundle.
inline constexpr std::string_view BUILT_IN_JSON_FILENAME = "map_config";
// The saved document: file name in the Documents directory.
inline constexpr std::string_view SAVED_JSON_FILENAME = "map_config_updated.json";
// User-defaults key: whole seconds since 1970 of the last finished update.
inline constexpr std::string_view MAP_CONFIG_UPDATE_TIME_KEY = "qmby_map_config_update_time";

// The venue's floor-plan maps by map id, from the saved map configuration document or, without one, from the document
// that is built into the application.
//
// A document is a JSON object: each member's name is a map id, its value the map. Map ids are outside text: one that
// can't be part of a file name keeps its map but gets no image. All operations may be called from any thread; files and
// user defaults are read on the caller's. Destruction abandons updates under way. The Platform must outlive the
// repository.
class TWLMapConfigRepo {
 public:
  // The Platform's own instance.
  static TWLMapConfigRepo& sharedRepo(platform::Platform& platform);

  // Completes an update that was stopped while its files were put in place, loads, then takes updateUrl from the map
  // layer's settings.
  explicit TWLMapConfigRepo(platform::Platform& platform);
  // Only the maps of this document; no file is read, and there is no updateUrl.
  TWLMapConfigRepo(platform::Platform& platform, std::string_view json);
  ~TWLMapConfigRepo();
  TWLMapConfigRepo(const TWLMapConfigRepo&) = delete;
  TWLMapConfigRepo& operator=(const TWLMapConfigRepo&) = delete;

  // The saved document or, when it is missing or useless, the built-in one. When both are, the maps stay as they were.
  void load();
  bool loadFromSavedJSONFile();
  bool loadFromBuiltInJSONFile();
  // Replaces all maps by those of the document. False, and nothing changes, when it is malformed or holds no map;
  // members that are no objects are left out and logged.
  bool loadFromJSON(std::string_view data);
  // Deletes the built-in document, not the saved one, and loads again.
  void reset();

  // Map ids and maps in the document's order.
  std::vector<std::string> mapIds() const;
  std::vector<TWLMapConfigPtr> maps() const;
  TWLMapConfigPtr forMapId(std::string_view mapId) const;  // null when unknown
  // All of them as they are now: replaced as a whole, never changed in place. Never null.
  std::shared_ptr<const MapCatalogue> configRepo() const;

  // Absolute URL of the document on the server; nothing when none is configured.
  std::optional<std::string> updateUrl() const;
  void setUpdateUrl(std::optional<std::string> url);
  // Kept for the host; the repository never asks it.
  bool updatesEnabled() const { return updatesEnabled_; }
  void setUpdatesEnabled(bool enabled) { updatesEnabled_ = enabled; }

  // Whole seconds since 1970 of the last finished update; before the first, of the built-in document's modification
  // (0 without one).
  std::int64_t lastUpdateTime() const;
  // Stores the current time as that, and writes it to disk at once.
  void setLastUpdateTime();

  // Starts an update: fetches the document if the server's is newer than lastUpdateTime(), then each image of its maps
  // that is missing here or older than the server's, some at a time. Images come into the maps directory before the
  // document that names them is saved and loaded. The work is done on the main thread; errors are logged, and a map
  // that fails keeps the image that it has. An update that is under way goes on beside it.
  void update();
  // Told of every update's progress, each step in a task of its own of the main queue, under no lock; it may destroy
  // the repository. Null: nobody. The one before is not called any more when this returns.
  void setUpdateObserver(MapUpdateObserver observer);

  // Downloads. The handler runs on the main thread: the server's Last-Modified, the body, the error, each if there is
  // one. The status is not looked at: an error page is a body. Destroying the task abandons the download.
  using Date = std::optional<platform::CalendarTime>;
  using DownloadHandler =
      std::function<void(Date modified, std::optional<std::string> body, std::optional<platform::Error> error)>;
  [[nodiscard]] std::unique_ptr<platform::HttpTask> loadFromUrlCompletionHandler(const std::string& url,
                                                                                 DownloadHandler handler);
  // Asks for the date first. When it is not later than the given one, or none is given, there is no body; a server
  // that tells none is an error of domain "Wayl".
  [[nodiscard]] std::unique_ptr<platform::HttpTask> loadFromUrlIfNewerThanCompletionHandler(const std::string& url,
                                                                                            Date date,
                                                                                            DownloadHandler handler);

  // The last steps of an update; `data` is the new document, if there is one.
  void finalizeUpdate(const std::optional<std::string>& data);
  // Writes a file as a whole and dates it, when a date is given. The error is logged, too.
  std::optional<platform::Error> writeDataToFileWithModifiedDate(std::string_view data, const std::string& path,
                                                                 Date date);
  // Writes the saved document as a whole; whether that succeeded.
  static bool saveJsonData(platform::Platform& platform, std::string_view data);

  // Reads an HTTP date such as "Sun, 06 Nov 1994 08:49:37 GMT": English names in any case, the day of the week not
  // compared with the date, a time zone of GMT, UTC, UT, Z or an offset such as +0100. Anything else gives nothing.
  static std::optional<platform::CalendarTime> dateFrom(const std::optional<std::string>& text);

 private:
  friend class MapUpdate;

  std::optional<std::string> builtInPath() const;
  std::size_t largestBody(const std::string& url) const;
  void beginUpdate(platform::CalendarTime cutOff);
  void forgetEndedUpdates();
  void tellUpdateObserver(MapUpdateStep step);
  std::optional<std::string> unsavedDocument() const;
  void completeStoppedUpdate();
  void log(std::string_view line) const;

  platform::Platform& platform_;
  TWLMapsFileManager files_;
  mutable std::mutex mutex_;  // guards the two below
  std::shared_ptr<const MapCatalogue> configRepo_ = std::make_shared<const MapCatalogue>();
  std::optional<std::string> updateUrl_;
  platform::DelegateSlot<MapUpdateObserver> updateObserver_;
  std::atomic<bool> updatesEnabled_ = false;
  std::mutex documentMutex_;  // held while the saved document and the loaded one may differ

  // Of the main thread.
  std::vector<std::unique_ptr<MapUpdate>> updates_;
  std::uint64_t begunUpdates_ = 0;
  std::uint64_t newestDocument_ = 0;  // the number of the update that brought the document, 0 without one
  platform::TaskScope scope_;
};

}  // namespace wayloom
