// Talks to the Bluetooth service and keeps its scan going. Lives on a bus thread of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wayloom/linux/BluezScanner.hpp"

#include "backends/linux/AdvertisementMonitor.hpp"
#include "backends/linux/BluezMessages.hpp"
#include "backends/linux/BusCalls.hpp"
#include "backends/linux/BusThread.hpp"
#include "backends/linux/DeviceTable.hpp"

namespace wayloom::linux_ {

// Called on the bus thread.
struct ScanCallbacks {
  std::function<void(std::span<const BeaconReport>)> heard;  // at most once for the messages that are read together
  std::function<void(const RadioStatus&)> changed;
};

// The way to a running scan:
//
//   open the bus -> find the service's owner -> list its objects -> choose an adapter that is powered
//     -> RegisterMonitor (where the adapter takes monitors) -> StopDiscovery (of an earlier attempt)
//     -> SetDiscoveryFilter -> StartDiscovery -> listen
//
// Each step that fails is tried again from the list of objects on, ever more slowly up to a limit. What can only end by
// an event (no service, no adapter, no power) waits for its signal. At most one call is under way.
class ScanDriver final : public BusClient {
 public:
  ScanDriver(BluezOptions options, ScanCallbacks callbacks);
  ~ScanDriver() { bus_.end(); }

  void setWanted(bool wanted);  // any thread

  void busOpened(sdbus::IConnection& connection) override;
  void busLost() override;
  void busUnavailable(const std::string& reason) override;
  void messagesRead() override;

 private:
  struct Adapter {
    bool powered = false;
    bool discovering = false;
    bool hasMonitors = false;  // takes advertisement monitors

    void take(const AdapterUpdate& update);
  };

  std::vector<BusMatch> matches();
  void onOwnerChanged(sdbus::Message& message);
  void onObjects(sdbus::Message& message);
  void onProperties(sdbus::Message& message);
  bool isFromDaemon(const sdbus::Message& message) const;
  bool isOnAdapter(const std::string& path) const;

  void findDaemon();
  void daemonCame(const std::string& owner);
  void daemonWent();
  void listObjects();
  void adapterTold(const std::string& path, const AdapterUpdate& update);
  void deviceTold(const std::string& path, const DeviceUpdate& update);
  void reconsiderSoon();
  void reconsider();
  std::string chooseAdapter() const;

  void startScan();
  void registerMonitor();
  void endEarlierScan();
  void setFilter();
  void startDiscovery();
  void scanStarted();
  void stopScan();
  void stopListening();
  void watch();

  void callAdapter(const char* method, const BusCalls::Fill& fill, platform::Task next, BusCalls::Fail fail);
  void callMonitors(const char* method, platform::Task next, BusCalls::Fail fail);
  void fail(const char* doing, const BusFailure& failure);
  void later(platform::Duration delay, platform::Task task);
  void forgetDaemon();
  void setStatus(RadioCondition condition, std::string detail = {});
  void tell();
  platform::MonotonicTime now() const;

  const BluezOptions options_;
  const ScanCallbacks callbacks_;
  const ObjectListener signalled_;  // takes what signals tell
  bool wanted_ = false;
  RadioStatus status_;
  RadioStatus told_;   // what the callback had last
  std::string owner_;  // unique name of the service; empty: it does not run
  std::map<std::string, Adapter> adapters_;
  bool isListed_ = false;  // the adapters are known
  std::string adapter_;    // path of the one that scans
  DeviceTable devices_;
  std::vector<BeaconReport> reports_;  // of the messages that are being read
  bool isStarting_ = false;
  bool isReconsidering_ = false;
  bool isQuiet_ = false;  // nothing has been heard since the watchdog restarted the scan
  platform::MonotonicTime lastHeard_;
  platform::Duration retryDelay_;
  std::unique_ptr<platform::Timer> timer_;  // the next thing to do by itself: a retry, or a look of the watchdog
  BusThread bus_;
  BusCalls calls_{bus_};
  std::optional<AdvertisementMonitor> monitor_;  // while the bus is open
};

}  // namespace wayloom::linux_
