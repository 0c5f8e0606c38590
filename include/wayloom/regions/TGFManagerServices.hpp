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

// Makes the two services that a region manager owns besides its kit. Without a function, the manager has none.
struct TGFManagerServices {
  // Called once, at the end of the manager's construction; the recorder may keep the reference.
  std::function<std::unique_ptr<AnalyticsRecorder>(platform::Platform&, TGFManager&)> makeAnalytics;
  // Called whenever a kit that names a status server is put into effect, on the queue of that kit's download.
  std::function<std::unique_ptr<StatusReporter>(platform::Platform&, const std::string& url, const std::string& token)>
      makeStatus;
};

}  // namespace wayloom
