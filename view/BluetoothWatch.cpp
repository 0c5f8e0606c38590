#include "view/BluetoothWatch.hpp"

#include <memory>
#include <vector>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {

struct BluetoothWatch::Watches {
  explicit Watches(platform::Platform& platform) : bluetooth(platform.bluetooth()) {
    bluetooth.setStateCallback([this](platform::CBCentralManagerState state) {
      for (auto* watch : all) watch->state_ = state;
    });
  }
  ~Watches() { bluetooth.setStateCallback({}); }
  Watches(const Watches&) = delete;
  Watches& operator=(const Watches&) = delete;

  platform::CBCentralManager& bluetooth;
  std::vector<BluetoothWatch*> all;
};

BluetoothWatch::BluetoothWatch(platform::Platform& platform)
    : watches_(platform.shared<Watches>([&] { return std::make_unique<Watches>(platform); })),
      state_(platform.bluetooth().state()) {
  watches_.all.push_back(this);
}

BluetoothWatch::~BluetoothWatch() { std::erase(watches_.all, this); }

}  // namespace wayloom
