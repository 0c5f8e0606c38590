#include "wayloom/linux/GeoClueFixes.hpp"

#include <mutex>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"

#include "backends/linux/FixDriver.hpp"

namespace wayloom::linux_ {
namespace {

constexpr std::size_t kMostWaiting = 64;

}  // namespace

bool isTrouble(FixCondition condition) { return condition >= FixCondition::noBus; }

std::string_view description(FixCondition condition) {
  switch (condition) {
    case FixCondition::resting:
      return "Geographic fixes are not asked for";
    case FixCondition::starting:
      return "The location service is being asked for geographic fixes";
    case FixCondition::waiting:
      return "The location service has no geographic fix yet";
    case FixCondition::fixing:
      return "There are geographic fixes";
    case FixCondition::noBus:
      return "The system message bus (D-Bus) can't be reached for geographic fixes";
    case FixCondition::noService:
      return "The location service (GeoClue) is not installed";
    case FixCondition::noAgent:
      return "The location service (GeoClue) waits for an agent that gives permission";
    case FixCondition::refused:
      return "The location service (GeoClue) gives this program no fixes";
    case FixCondition::failing:
      return "The location service (GeoClue) does not do what it is asked";
  }
  return "";
}

std::string_view advice(FixCondition condition) {
  switch (condition) {
    case FixCondition::noBus:
      return "Start it (systemctl start dbus).";
    case FixCondition::noService:
      return "Install it: apt-get install geoclue-2.0.";
    case FixCondition::noAgent:
      return "Desktops bring an agent; on other devices run /usr/libexec/geoclue-2.0/demos/agent.";
    case FixCondition::refused:
      return "Allow the program: a section [wayloom] with allowed=true, system=true and users= in "
             "/etc/geoclue/geoclue.conf, and location turned on in the desktop's settings.";
    case FixCondition::failing:
      return "See what it says (journalctl -u geoclue), and restart it (systemctl restart geoclue).";
    case FixCondition::waiting:
      return "Indoors there may be none. A receiver has to be connected, or a network of NMEA or WiFi sources enabled "
             "in /etc/geoclue/geoclue.conf.";
    case FixCondition::resting:
    case FixCondition::starting:
    case FixCondition::fixing:
      return "";
  }
  return "";
}

// Carries what the bus thread says to the main queue.
class GeoClueFixes::Parts : public std::enable_shared_from_this<Parts> {
 public:
  Parts(platform::TaskScheduler& tasks, GeoClueOptions options, FixListener& listener)
      : tasks_(tasks), options_(std::move(options)), listener_(listener) {}

  void end() {
    isOpen_ = false;
    scope_.close();
    driver_.reset();
  }

  void setWanted(bool wanted) {
    if (!driver_ && !wanted) return;
    if (!driver_)
      driver_.emplace(options_, FixCallbacks{[this](const platform::CLLocation& fix) { push(fix); },
                                             [this](const FixStatus& status) { push(status); }});
    driver_->setWanted(wanted);
  }

  FixStatus status() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }

 private:
  using News = std::variant<platform::CLLocation, FixStatus>;

  void push(const News& news) {
    const std::lock_guard lock(mutex_);
    if (const auto* status = std::get_if<FixStatus>(&news)) status_ = *status;
    if (news_.size() >= kMostWaiting) news_.erase(news_.begin());
    news_.push_back(news);
    if (news_.size() > 1) return;
    tasks_.mainQueue().async(scope_.bind([this] { deliver(); }));
  }

  // Main thread. The listener may end all this.
  void deliver() {
    const auto keepAlive = shared_from_this();
    std::vector<News> delivered;
    {
      const std::lock_guard lock(mutex_);
      delivered.swap(news_);
    }
    for (const auto& news : delivered) {
      if (!isOpen_) return;
      if (const auto* fix = std::get_if<platform::CLLocation>(&news))
        listener_.fixed(*fix);
      else
        listener_.fixesChanged(std::get<FixStatus>(news));
    }
  }

  platform::TaskScheduler& tasks_;
  const GeoClueOptions options_;
  FixListener& listener_;
  bool isOpen_ = true;  // main thread
  mutable std::mutex mutex_;
  FixStatus status_;  // under the mutex, as is the next
  std::vector<News> news_;
  platform::TaskScope scope_;
  std::optional<FixDriver> driver_;
};

GeoClueFixes::GeoClueFixes(platform::TaskScheduler& tasks, GeoClueOptions options, FixListener& listener)
    : parts_(std::make_shared<Parts>(tasks, std::move(options), listener)) {}

GeoClueFixes::~GeoClueFixes() { parts_->end(); }

void GeoClueFixes::setWanted(bool wanted) { parts_->setWanted(wanted); }

FixStatus GeoClueFixes::status() const { return parts_->status(); }

}  // namespace wayloom::linux_
