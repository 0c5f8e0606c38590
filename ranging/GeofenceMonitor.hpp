// Decides from geographic fixes when circles are entered and left.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/CLCircularRegion.hpp"
#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/Time.hpp"

#include "ranging/IdentifiedList.hpp"

namespace wayloom::ranging {

using CLCircularRegionPtr = std::shared_ptr<const platform::CLCircularRegion>;

// What a fix changed, or what somebody asked for and can be told now.
struct GeofenceNews {
  enum class Kind : std::uint8_t { entered, exited, state };
  Kind kind;
  CLCircularRegionPtr region;
  platform::CLRegionState state = platform::CLRegionState::unknown;  // for Kind::state
};

// A fix tells the device's place to within its accuracy, a radius that holds it with about 68 %. It speaks for inside
// when it lies deeper in the circle than that, for outside when it lies farther away, and for neither in between or
// when it is vaguer than the circle is large. The state changes
//
//  - from unknown, with the first fix that speaks for one side;
//  - otherwise at once with a fix beyond doubt (twice the accuracy inside, three times outside: 3 and 4.5 standard
//    deviations across the edge), or when all fixes of kDwell, at least two, speak for the other side.
//
// So somebody who stands on the edge is told once at most. Belongs to one queue.
class GeofenceMonitor {
 public:
  static constexpr platform::Duration kDwell = std::chrono::seconds(10);

  void start(CLCircularRegionPtr region);
  // One that is started again unchanged before the next fix but one goes on as it was.
  void stop(const std::string& identifier);
  // The state, now if it is known, and otherwise with the fix that decides it.
  std::optional<GeofenceNews> requestState(const std::string& identifier);

  std::vector<GeofenceNews> receive(const platform::CLLocation& fix, platform::MonotonicTime now);

 private:
  struct Watch {
    CLCircularRegionPtr region;
    bool isActive = true;
    bool isForgotten = false;  // with the next fix
    bool isAsked = false;
    platform::CLRegionState state = platform::CLRegionState::unknown;
    std::optional<platform::MonotonicTime>
        changingSince{};  // the first of the fixes in a row that speak for the other side
  };

  static platform::CLRegionState decide(Watch& watch, const platform::CLLocation& fix, platform::MonotonicTime now);

  IdentifiedList<Watch> watches_;
};

}  // namespace wayloom::ranging
