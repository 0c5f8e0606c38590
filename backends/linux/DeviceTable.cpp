#include "backends/linux/DeviceTable.hpp"

#include <charconv>

namespace wayloom::linux_ {
namespace {

constexpr std::uint16_t kBeaconCompany = 0x004C;
constexpr std::string_view kDevicePrefix = "/dev_";
constexpr std::size_t kAddressText = 17;  // "D3_AD_13_A2_01_0E"

}  // namespace

void DeviceUpdate::setRssi(int value) {
  if (ranging::isMeasuredRssi(value)) rssi = value;
}

void DeviceUpdate::addManufacturerData(std::uint16_t company, std::span<const std::uint8_t> data) {
  mentionsData = true;
  if (company == kBeaconCompany) beacon = ranging::IBeaconFrame::parse(company, data, 0);
}

DeviceAddress addressInPath(std::string_view path) {
  DeviceAddress address;
  const auto at = path.rfind(kDevicePrefix);
  const auto text = at == path.npos ? std::string_view{} : path.substr(at + kDevicePrefix.size());
  if (text.size() != kAddressText) return address;
  for (std::size_t i = 0; i < address.bytes.size(); ++i) {
    const auto* first = text.data() + 3 * i;
    if (std::from_chars(first, first + 2, address.bytes[i], 16).ptr != first + 2) return {};
  }
  return address;
}

std::optional<BeaconReport> DeviceTable::update(std::string_view path, const DeviceUpdate& news,
                                                platform::MonotonicTime now) {
  const auto* device = take(path, news);
  if (device == nullptr || !device->sentBeaconLast || !device->rssi || (!news.rssi && !news.beacon))
    return std::nullopt;
  BeaconReport report{device->frame, now, device->address};
  report.frame.rssi = *device->rssi;
  return report;
}

// The device after the news; null when it is none that sends iBeacon frames.
DeviceTable::Device* DeviceTable::take(std::string_view path, const DeviceUpdate& news) {
  const auto found = index_.find(path);
  if (found == index_.end() && !news.beacon) return nullptr;
  const auto device = found == index_.end() ? insert(path) : found->second;
  devices_.splice(devices_.begin(), devices_, device);
  if (news.mentionsData) device->sentBeaconLast = news.beacon.has_value();
  if (news.beacon) device->frame = *news.beacon;
  if (news.rssiGone) device->rssi.reset();
  if (news.rssi) device->rssi = news.rssi;
  return &*device;
}

DeviceTable::Devices::iterator DeviceTable::insert(std::string_view path) {
  if (devices_.size() >= capacity_) {
    index_.erase(devices_.back().path);
    devices_.pop_back();
  }
  devices_.push_front({std::string(path), addressInPath(path)});
  index_.emplace(devices_.front().path, devices_.begin());
  return devices_.begin();
}

void DeviceTable::remove(std::string_view path) {
  const auto found = index_.find(path);
  if (found == index_.end()) return;
  const auto device = found->second;
  index_.erase(found);
  devices_.erase(device);
}

void DeviceTable::clear() {
  index_.clear();
  devices_.clear();
}

}  // namespace wayloom::linux_
