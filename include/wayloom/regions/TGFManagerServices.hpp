#pragma once

#include <functional>
#include <memory>
#include <string>

#include "wayloom/regions/AnalyticsRecorder.hpp"
#include "wayloom/regions/StatusReporter.hpp"

namespace wayloom {

class TGFManager;

namespace platform {
class Platform;
}

// Makes the two services that a region manager owns besides its kit: at first a TGFAnalytics and a TPLStatusManager. A
// host may replace either; with a null function, the manager has none. What they make is a part of the manager: it
// doesn't end the manager.
struct TGFManagerServices {
  using MakeAnalytics = std::function<std::unique_ptr<AnalyticsRecorder>(platform::Platform&, TGFManager&)>;
  using MakeStatus = std::function<std::unique_ptr<StatusReporter>(platform::Platform&, const std::string& url,
                                                                   const std::string& token)>;

  TGFManagerServices();
  // The manager records and reports nothing.
  static TGFManagerServices none();

  // Called once, at the end of the manager's construction; the recorder may keep the reference.
  MakeAnalytics makeAnalytics;
  // Called whenever a kit that names a status server is put into effect, on the queue of the kit downloads.
  MakeStatus makeStatus;
};

}  // namespace wayloom
