#include "wayloom/linux/BluezScanner.hpp"

#include <fmt/format.h>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"

#include "backends/linux/ScanDriver.hpp"

namespace wayloom::linux_ {
namespace {

// While the main thread is busy with something else: four seconds of a venue with a hundred beacons.
constexpr std::size_t kMostWaitingReports = 4096;
constexpr std::size_t kMostWaitingChanges = 64;

// The oldest give way, half of them at once, so that this is cheap for each.
template <class Element>
void appendBounded(std::vector<Element>& waiting, std::span<const Element> more, std::size_t most) {
  waiting.insert(waiting.end(), more.begin(), more.end());
  if (waiting.size() > most) waiting.erase(waiting.begin(), waiting.end() - static_cast<std::ptrdiff_t>(most / 2));
}

}  // namespace

std::string DeviceAddress::text() const {
  return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
                     bytes[5]);
}

// Carries what the bus thread hears to the main queue, many reports a task.
class BluezScanner::Parts : public std::enable_shared_from_this<Parts> {
 public:
  Parts(platform::TaskScheduler& tasks, ScannerListener& listener) : tasks_(tasks), listener_(listener) {}

  void start(BluezOptions options) {
    driver_.emplace(std::move(options), ScanCallbacks{[this](std::span<const BeaconReport> reports) { push(reports); },
                                                      [this](const RadioStatus& status) { push(status); }});
  }

  void end() {
    isOpen_ = false;
    scope_.close();
    driver_.reset();
  }

  void setWanted(bool wanted) { driver_->setWanted(wanted); }

  RadioStatus status() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }

 private:
  void push(std::span<const BeaconReport> reports) {
    const std::lock_guard lock(mutex_);
    appendBounded(reports_, reports, kMostWaitingReports);
    post();
  }

  void push(const RadioStatus& status) {
    const std::lock_guard lock(mutex_);
    status_ = status;
    appendBounded<RadioStatus>(changes_, {&status, 1}, kMostWaitingChanges);
    post();
  }

  void post() {
    if (std::exchange(isPosted_, true)) return;
    tasks_.mainQueue().async(scope_.bind([this] { deliver(); }));
  }

  // Main thread. The listener may end all this.
  void deliver() {
    const auto keepAlive = shared_from_this();
    {
      const std::lock_guard lock(mutex_);
      isPosted_ = false;
      deliveredReports_.swap(reports_);
      deliveredChanges_.swap(changes_);
    }
    for (const auto& status : deliveredChanges_)
      if (isOpen_) listener_.radioChanged(status);
    if (isOpen_ && !deliveredReports_.empty()) listener_.heard(deliveredReports_);
    deliveredReports_.clear();
    deliveredChanges_.clear();
  }

  platform::TaskScheduler& tasks_;
  ScannerListener& listener_;
  bool isOpen_ = true;  // main thread, as are the next two, which keep their memory
  std::vector<BeaconReport> deliveredReports_;
  std::vector<RadioStatus> deliveredChanges_;

  mutable std::mutex mutex_;  // for what follows
  RadioStatus status_;
  std::vector<BeaconReport> reports_;
  std::vector<RadioStatus> changes_;
  bool isPosted_ = false;

  platform::TaskScope scope_;
  std::optional<ScanDriver> driver_;
};

BluezScanner::BluezScanner(platform::TaskScheduler& tasks, BluezOptions options, ScannerListener& listener)
    : parts_(std::make_shared<Parts>(tasks, listener)) {
  parts_->start(std::move(options));
}

BluezScanner::~BluezScanner() { parts_->end(); }

void BluezScanner::setWanted(bool wanted) { parts_->setWanted(wanted); }

RadioStatus BluezScanner::status() const { return parts_->status(); }

}  // namespace wayloom::linux_
