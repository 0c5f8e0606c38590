// A Bluetooth service that does as it is told, on a bus of the test's.
#pragma once

#include <atomic>
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

// Everything happens on one thread of its own; operations wait for it. Answers calls as the real service does: a second
// StartDiscovery of a client is refused, as is one of an adapter without power; sightings are only told while a client
// scans.
class FakeBluez {
 public:
  // What the calls come to. An empty error name: they do their work.
  struct Faults {
    std::string error = {};           // every call fails with it
    bool hangs = false;               // no call is taken
    bool silentUntilRestart = false;  // nothing is told, until discovery is started afresh
    bool silent = false;              // nothing is told
  };

  explicit FakeBluez(const std::string& busAddress, bool hasAdapter = true);
  ~FakeBluez();

  void setFaults(const Faults& faults);
  void addAdapter(const std::string& name = "hci0", bool powered = true);
  void removeAdapter(const std::string& name = "hci0");
  void setPowered(bool powered, const std::string& name = "hci0");  // off ends discovery
  void endDiscovery();                                              // as a reset of the controller does

  // A device that the service remembers from earlier, seen when its objects are listed.
  void remember(int device, const platform::BeaconIdentity& identity, int rssi);

  // One received frame of a device, named by the last part of its address: 0 to 65535.
  void sight(int device, const platform::BeaconIdentity& identity, int rssi = -60, int power = -59);
  void sight(int device, const Properties& properties);
  // Without a new object: changed and invalidated properties of a known device.
  void change(int device, const Properties& properties, const std::vector<std::string>& invalidated = {});
  void forget(int device);
  // Repeats `work` on the service's thread until it is replaced.
  void every(platform::Duration interval, std::function<void(FakeBluez&)> work);

  int starts() const { return starts_; }  // successful StartDiscovery calls
  int stops() const { return stops_; }
  bool isDiscovering() const { return discovering_; }
  std::string filter() const;  // of the last SetDiscoveryFilter

 private:
  struct Adapter {
    bool powered = true;
    std::unique_ptr<sdbus::IObject> object;
  };

  void run();
  void onThread(const std::function<void()>& work);
  bool isOnThread() const { return std::this_thread::get_id() == thread_.get_id(); }
  void exportAdapter(const std::string& path);
  bool spoil(sdbus::MethodCall& call);
  void startDiscovery(sdbus::MethodCall call, const std::string& path);
  void stopDiscovery(sdbus::MethodCall call, const std::string& path);
  void setDiscovering(const std::string& path, bool discovering);
  void emitChanged(const std::string& path, const std::string& interface, const Properties& changed,
                   const std::vector<std::string>& invalidated = {});
  void emitAdded(const std::string& path, const std::string& interface, const Properties& properties);
  void emitRemoved(const std::string& path, const std::string& interface);
  void signal(const std::string& path, const std::string& interface, const std::string& name,
              const std::function<void(sdbus::Signal&)>& fill);

  std::unique_ptr<sdbus::IConnection> connection_;
  posix::MainLoop loop_;
  Faults faults_;
  std::map<std::string, Adapter> adapters_;
  std::map<int, Properties> devices_;
  std::map<int, std::unique_ptr<sdbus::IObject>> remembered_;
  std::unique_ptr<platform::Timer> repeating_;
  mutable std::mutex mutex_;
  std::string filter_;  // under the mutex
  std::atomic<int> starts_ = 0;
  std::atomic<int> stops_ = 0;
  std::atomic<bool> discovering_ = false;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace wayloom::tests
