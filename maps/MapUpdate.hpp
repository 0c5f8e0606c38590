#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "wayloom/maps/MapUpdateStep.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Time.hpp"

#include "maps/MapFileNames.hpp"

namespace wayloom {

namespace platform {
class Platform;
}
class MapCatalogue;
class TWLMapConfigRepo;

// One run of TWLMapConfigRepo::update(): asks for the document, then for each of its maps, a bounded number of them at
// a time. Main thread; destruction, which abandons the run, on any.
class MapUpdate {
 public:
  // Ends once every map has been seen to, with the document's bytes, or nothing when it was not modified.
  using Finish = std::function<void(const std::optional<std::string>& document)>;

  MapUpdate(TWLMapConfigRepo& repo, platform::Platform& platform, Finish finish)
      : repo_(repo), platform_(platform), finish_(std::move(finish)) {}
  ~MapUpdate();
  MapUpdate(const MapUpdate&) = delete;
  MapUpdate& operator=(const MapUpdate&) = delete;

  // Fetches the document if the server's is newer than the cut-off.
  void start(platform::CalendarTime cutOff);
  // Whether nothing more will happen.
  bool hasEnded() const { return hasEnded_; }

 private:
  using Date = std::optional<platform::CalendarTime>;
  using Bytes = std::optional<std::string>;
  using Failure = std::optional<platform::Error>;
  using Outcome = MapUpdateStep::Outcome;

  struct Map {
    std::string mapId;
    MapFileResult file;
    std::unique_ptr<platform::HttpTask> download = {};
  };

  void documentArrived(Bytes document, const Failure& error);
  void walk(const MapCatalogue& catalogue);
  void beginMaps();
  void begin(std::size_t index);
  void beginDownload(Map& map, const std::string& installed);
  void mapArrived(std::size_t index, Date date, const Bytes& image, const Failure& error);
  void mapEnded(const Map& map, Outcome outcome, std::size_t bytes = 0, std::string reason = {});
  void end(Outcome outcome, std::string reason = {});
  void tell(MapUpdateStep step) const;

  TWLMapConfigRepo& repo_;
  platform::Platform& platform_;
  Finish finish_;
  std::string documentUrl_;
  Bytes document_;
  std::unique_ptr<platform::HttpTask> documentDownload_;
  std::vector<Map> maps_;
  std::size_t next_ = 0;     // the first map that has not begun
  std::size_t active_ = 0;   // maps under way
  std::size_t pending_ = 0;  // maps that have not ended
  bool hasEnded_ = false;
  platform::TaskScope scope_;
};

}  // namespace wayloom
