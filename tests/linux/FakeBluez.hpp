// A Bluetooth service that does as it is told, on a bus of the test's.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <sdbus-c++/sdbus-c++.h>
#include <string>
#include <thread>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/posix/MainLoop.hpp"

namespace wayloom::tests {

using Properties = std::map<std::string, sdbus::Variant>;

// The 23 bytes of an iBeacon frame.
std::vector<std::uint8_t> beaconData(const platform::BeaconIdentity& identity, int power = -59);
sdbus::Variant manufacturerData(const std::vector<std::uint8_t>& bytes, std::uint16_t company = 0x004C);

// Everything happens on one thread of its own; operations wait for it. Does as the real service does (BlueZ 5.66 and
// its documents): a second StartDiscovery of a client is refused, as is one of an adapter without power; sightings are
// only told while a client scans; when it ends its scan, the devices of it are removed, to be added again when they are
// seen again. A registered monitor is looked at and activated, and has the controller report every frame.
class FakeBluez {
 public:
  // What the calls come to. An empty error name: they do their work.
  struct Faults {
    std::string error = {};           // every call fails with it
    bool hangs = false;               // no call is taken
    bool silentUntilRestart = false;  // nothing is told, until discovery is started afresh
    bool silent = false;              // nothing is told
    // The controller drops duplicates: it reports a device once in each of these, counted from the start of the scan,
    // unless there is an advertisement monitor.
    platform::Duration duplicateWindow = {};
    bool refusesMonitors = false;
  };

  enum class Monitors : std::uint8_t { none, taken };

  explicit FakeBluez(const std::string& busAddress, Monitors monitors = Monitors::none);
  ~FakeBluez();

  void setFaults(const Faults& faults);
  void addAdapter(const std::string& name = "hci0", bool powered = true);
  void removeAdapter(const std::string& name = "hci0");
  void setPowered(bool powered, const std::string& name = "hci0");  // off ends discovery
  void endDiscovery();                                              // as a reset of the controller does

  // A device that the service remembers from earlier, seen when its objects are listed.
  void remember(int device, const platform::BeaconIdentity& identity, int rssi);

  // One received frame of a device, named by the last part of its address: 0 to 65535. True when it is told.
  bool sight(int device, const platform::BeaconIdentity& identity, int rssi = -60, int power = -59);
  bool sight(int device, const Properties& properties);
  // Without a new object: changed and invalidated properties of a known device.
  void change(int device, const Properties& properties, const std::vector<std::string>& invalidated = {});
  void forget(int device);
  // Repeats `work` on the service's thread until it is replaced.
  void every(platform::Duration interval, std::function<void(FakeBluez&)> work);

  int starts() const { return starts_; }  // successful StartDiscovery calls
  int stops() const { return stops_; }
  bool isDiscovering() const { return discovering_; }
  std::string filter() const;  // of the last SetDiscoveryFilter
  // What the registered monitor shows: "or_patterns 0 255 4C000215"; empty when there is none.
  std::string monitor() const;

 private:
  struct Adapter {
    bool powered = true;
    std::unique_ptr<sdbus::IObject> object;
  };

  void run();
  void onThread(const std::function<void()>& work);
  bool isOnThread() const { return std::this_thread::get_id() == thread_.get_id(); }
  void exportAdapter(const std::string& path);
  void exportMonitorManager(sdbus::IObject& object);
  void lookAtMonitor(const sdbus::ObjectPath& root, sdbus::MethodCall call);
  bool isDuplicate(int device);
  bool spoil(sdbus::MethodCall& call);
  void startDiscovery(sdbus::MethodCall call, const std::string& path);
  void stopDiscovery(sdbus::MethodCall call, const std::string& path);
  void setDiscovering(const std::string& path, bool discovering);
  void emitChanged(const std::string& path, const std::string& interface, const Properties& changed,
                   const std::vector<std::string>& invalidated = {});
  void emitAdded(const std::string& path, const std::map<std::string, Properties>& interfaces);
  void emitRemoved(const std::string& path, const std::string& interface);
  void signal(const std::string& path, const std::string& interface, const std::string& name,
              const std::function<void(sdbus::Signal&)>& fill);

  std::unique_ptr<sdbus::IConnection> connection_;
  posix::MainLoop loop_;
  const Monitors monitors_;
  Faults faults_;
  std::map<std::string, Adapter> adapters_;
  std::map<int, Properties> devices_;
  std::map<int, std::int64_t> reported_;  // by device, the window in which it was reported last
  std::chrono::steady_clock::time_point scanStart_;
  std::unique_ptr<sdbus::IProxy> monitoring_;  // of whoever registered a monitor
  std::map<int, std::unique_ptr<sdbus::IObject>> remembered_;
  std::unique_ptr<platform::Timer> repeating_;
  mutable std::mutex mutex_;
  std::string filter_;  // under the mutex, as is the next
  std::string monitor_;
  std::atomic<int> starts_ = 0;
  std::atomic<int> stops_ = 0;
  std::atomic<bool> discovering_ = false;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace wayloom::tests
