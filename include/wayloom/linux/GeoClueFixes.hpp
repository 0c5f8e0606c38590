#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::linux_ {

// What geographic fixes are about, or what keeps them away.
enum class FixCondition : std::uint8_t {
  resting,    // nobody wants any
  starting,   // the service is being asked
  waiting,    // it has accepted, and there is no fix yet
  fixing,     // there are fixes
  noBus,      // the message bus can't be reached
  noService,  // the location service is not installed
  noAgent,    // it waits for somebody who may give permission
  refused,    // it does not give this process any
  failing,    // calls to it fail
};

bool isTrouble(FixCondition condition);
std::string_view description(FixCondition condition);
std::string_view advice(FixCondition condition);

struct FixStatus {
  FixCondition condition = FixCondition::resting;
  std::string detail{};  // what the service or the system said; may be empty

  bool operator==(const FixStatus&) const = default;
};

// The times are for tests.
struct GeoClueOptions {
  std::string bus = {};                 // D-Bus address; empty: the system bus
  std::string desktopId = {"wayloom"};  // the application's, by which the service knows whom it allows
  platform::Duration callTimeout = std::chrono::seconds(10);
  platform::Duration retry = std::chrono::seconds(5);
  // A fix that was taken this long ago says nothing about now.
  platform::Duration oldest = std::chrono::minutes(3);
};

// Told on the main queue.
class FixListener {
 public:
  virtual ~FixListener() = default;
  virtual void fixed(const platform::CLLocation& fix) = 0;
  virtual void fixesChanged(const FixStatus&) {}
};

// Geographic fixes of GeoClue, the location service of Linux desktops, over D-Bus. The same rules as for BluezScanner:
// made and destroyed on the main thread, quick to destroy, a bus thread of its own from the first setWanted(true) on.
class GeoClueFixes {
 public:
  GeoClueFixes(platform::TaskScheduler& tasks, GeoClueOptions options, FixListener& listener);  // listener: not owned
  ~GeoClueFixes();
  GeoClueFixes(const GeoClueFixes&) = delete;
  GeoClueFixes& operator=(const GeoClueFixes&) = delete;

  void setWanted(bool wanted);  // main thread
  FixStatus status() const;     // any thread

 private:
  class Parts;
  std::shared_ptr<Parts> parts_;
};

}  // namespace wayloom::linux_
