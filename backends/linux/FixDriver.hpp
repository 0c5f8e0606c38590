// Talks to the location service and keeps its fixes coming. Lives on a bus thread of its own.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/linux/GeoClueFixes.hpp"

#include "backends/linux/BusCalls.hpp"
#include "backends/linux/BusThread.hpp"

namespace wayloom::linux_ {

// Called on the bus thread.
struct FixCallbacks {
  std::function<void(const platform::CLLocation&)> fixed;
  std::function<void(const FixStatus&)> changed;
};

// GetClient -> the client's properties, one after the other -> Start -> for each LocationUpdated, all properties of the
// new location. A step that fails is followed by a new beginning after a while. GetClient is answered only when
// somebody who gives permission (an agent) is there.
class FixDriver final : public BusClient {
 public:
  FixDriver(GeoClueOptions options, FixCallbacks callbacks);
  ~FixDriver() { bus_.end(); }

  void setWanted(bool wanted);  // any thread

  void busOpened(sdbus::IConnection& connection) override;
  void busLost() override;
  void busUnavailable(const std::string& reason) override;

 private:
  std::vector<BusMatch> matches();
  void onOwnerChanged(sdbus::Message& message);
  void onLocationUpdated(sdbus::Message& message);

  void begin();
  void end();
  void configure(std::size_t property);
  void startClient();
  void readLocation(const std::string& path);
  void adopt(const platform::CLLocation& fix);

  BusMethod clientMethod(const char* interface, const char* name) const;
  void fail(const BusFailure& failure, bool isAsking = false);
  void retryLater();
  void setStatus(FixCondition condition, std::string detail = {});

  const GeoClueOptions options_;
  const FixCallbacks callbacks_;
  bool wanted_ = false;
  FixStatus status_;
  std::string client_;  // path; empty before there is one
  std::unique_ptr<platform::Timer> retry_;
  BusThread bus_;
  BusCalls calls_{bus_};
};

}  // namespace wayloom::linux_
