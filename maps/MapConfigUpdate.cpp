// The updates of TWLMapConfigRepo: their beginning, and their end on disk.
//
// The end takes several steps, each of which leaves files that belong together apart: the date of the update is stored,
// images are moved one by one, the document is saved. A process may be stopped between any two of them. So what is to
// be done is written down first, as the file kUpdateToComplete in the Documents directory, which holds the new document
// (or nothing when there is none) and is removed after the last step. Where the next start finds it, it takes the steps
// again.
#include <algorithm>
#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/Platform.hpp"

#include "maps/ErrorText.hpp"
#include "maps/MapUpdate.hpp"

namespace wayloom {
namespace {

constexpr std::string_view kUpdateToComplete = "map_update_to_complete";

std::string inDocuments(platform::Platform& platform, std::string_view name) {
  return platform.files().documentsDirectory() + "/" + std::string(name);
}

}  // namespace

void TWLMapConfigRepo::update() {
  const auto cutOff = platform::calendarTimeFromSeconds(static_cast<double>(lastUpdateTime()));
  platform_.tasks().mainQueue().async(scope_.bind([this, cutOff] { beginUpdate(cutOff); }));
}

// Of updates that overlap, one that began earlier must not put its document in place of a later one's.
void TWLMapConfigRepo::beginUpdate(platform::CalendarTime cutOff) {
  const auto number = ++begunUpdates_;
  auto finish = [this, number](const std::optional<std::string>& document) {
    const bool isOutdated = number < newestDocument_;
    if (document && !isOutdated) newestDocument_ = number;
    finalizeUpdate(isOutdated ? std::nullopt : document);
  };
  updates_.push_back(std::make_unique<MapUpdate>(*this, platform_, std::move(finish)));
  updates_.back()->start(cutOff);
}

// Later, as an update that ends is still on its way out.
void TWLMapConfigRepo::forgetEndedUpdates() {
  platform_.tasks().mainQueue().async(
      scope_.bind([this] { std::erase_if(updates_, [](const auto& update) { return update->hasEnded(); }); }));
}

// A document that an earlier update could not save is saved with the first update that brings no newer one: the server
// will not send it again. When neither the note nor the document can be written, the update counts as if it had not
// been, so that the next one asks again.
void TWLMapConfigRepo::finalizeUpdate(const std::optional<std::string>& data) {
  const std::string toComplete = inDocuments(platform_, kUpdateToComplete);
  const auto document = data ? data : unsavedDocument();
  const auto error = platform_.files().writeFileAtomically(toComplete, document.value_or(""));
  if (error) log("Error writing down the map update to complete: " + textOf(*error));
  const auto lastUpdate = platform_.userDefaults().integerForKey(MAP_CONFIG_UPDATE_TIME_KEY);
  setLastUpdateTime();
  files_.copyDownloadedMapFiles();
  bool isSaved = true;
  if (document) {
    const std::lock_guard lock(documentMutex_);
    isSaved = saveJsonData(platform_, *document);
    if (data) loadFromJSON(*data);
  }
  if (isSaved) {
    platform_.files().removeFile(toComplete);
  } else if (error) {
    platform_.userDefaults().setInteger(MAP_CONFIG_UPDATE_TIME_KEY, lastUpdate);
    platform_.userDefaults().synchronize();
  }
}

std::optional<std::string> TWLMapConfigRepo::unsavedDocument() const {
  auto noted = platform_.files().readFile(inDocuments(platform_, kUpdateToComplete));
  return noted && !noted->empty() ? std::move(noted) : std::nullopt;
}

void TWLMapConfigRepo::completeStoppedUpdate() {
  const std::string toComplete = inDocuments(platform_, kUpdateToComplete);
  if (!platform_.files().fileExists(toComplete)) return;
  log("Completing a map update that was stopped");
  files_.copyDownloadedMapFiles();
  const auto data = platform_.files().readFile(toComplete);
  if (!data) return;
  const bool hasMaps = !data->empty() && !TWLMapConfigRepo(platform_, *data).mapIds().empty();
  if (!hasMaps || saveJsonData(platform_, *data)) platform_.files().removeFile(toComplete);
}

bool TWLMapConfigRepo::saveJsonData(platform::Platform& platform, std::string_view data) {
  const std::string path = inDocuments(platform, SAVED_JSON_FILENAME);
  const auto error = platform.files().writeFileAtomically(path, data);
  platform.systemLog().write(error ? "Error saving file to " + path + ": " + textOf(*error) : "Saved file to " + path);
  return !error;
}

std::optional<platform::Error> TWLMapConfigRepo::writeDataToFileWithModifiedDate(std::string_view data,
                                                                                 const std::string& path, Date date) {
  auto error = platform_.files().writeFileAtomically(path, data);
  if (!error && date) error = platform_.files().setModificationDate(path, *date);
  if (error) log("Error writing file: " + textOf(*error));
  return error;
}

void TWLMapConfigRepo::setUpdateObserver(MapUpdateObserver observer) {
  updateObserver_.set(observer ? std::make_shared<MapUpdateObserver>(std::move(observer)) : nullptr);
}

// In a task of its own: who tells is still at work, and the observer may destroy it.
void TWLMapConfigRepo::tellUpdateObserver(MapUpdateStep step) {
  if (updateObserver_.get() == nullptr) return;
  platform_.tasks().mainQueue().async(scope_.bind([this, step = std::move(step)] {
    updateObserver_.tell([&](const MapUpdateObserver& observer) { observer(step); });
  }));
}

}  // namespace wayloom
