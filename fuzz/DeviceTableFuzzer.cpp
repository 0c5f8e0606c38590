// News of Bluetooth devices in any order: properties of any value, manufacturer data of any length, devices that come
// and go. A report must be a measurement of the iBeacon frame that its device sent last, with no other format since.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "backends/linux/DeviceTable.hpp"

namespace {

using namespace wayloom;

constexpr std::size_t kCapacity = 3;

// Takes numbers and bytes off the front; zeros when there are no more.
class Input {
 public:
  Input(const std::uint8_t* bytes, std::size_t size) : left_(bytes, size) {}

  bool isEmpty() const { return left_.empty(); }
  std::span<const std::uint8_t> bytes(std::size_t count) {
    const auto taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  std::uint8_t byte() {
    const auto taken = bytes(1);
    return taken.empty() ? 0 : taken.front();
  }

 private:
  std::span<const std::uint8_t> left_;
};

std::string pathOf(Input& input) {
  const auto choice = input.byte();
  if (choice < 200) return "/org/bluez/hci0/dev_C0_00_00_00_00_0" + std::to_string(choice % 10);
  const auto raw = input.bytes(choice % 32);
  return {raw.begin(), raw.end()};
}

linux_::DeviceUpdate newsIn(Input& input) {
  linux_::DeviceUpdate news;
  const auto what = input.byte();
  if ((what & 1U) != 0) news.setRssi((input.byte() << 8) - 32768 + input.byte());
  if ((what & 2U) != 0) news.setRssi(-static_cast<int>(input.byte()));
  news.rssiGone = (what & 4U) != 0;
  if ((what & 8U) != 0) news.addManufacturerData((what & 16U) != 0 ? 0x0059 : 0x004C, input.bytes(input.byte() % 64));
  if ((what & 32U) != 0) news.addOtherData();
  return news;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Input input(bytes, size);
  linux_::DeviceTable table(kCapacity);
  std::map<std::string, std::optional<ranging::IBeaconFrame>> sent;  // by each device, last; none of another format
  platform::MonotonicTime now;
  while (!input.isEmpty()) {
    const auto path = pathOf(input);
    if (input.byte() < 16) {
      table.remove(path);
      continue;
    }
    const auto news = newsIn(input);
    if (news.mentionsData) sent[path] = news.beacon;
    const auto report = table.update(path, news, now);
    if (table.size() > kCapacity) std::abort();
    if (!report) continue;
    if (report->frame.rssi >= 0 || report->frame.rssi < -127) std::abort();
    const auto& frame = sent.at(path).value();
    if (report->frame.identity != frame.identity || report->frame.power != frame.power) std::abort();
    if (report->sender != linux_::addressInPath(path)) std::abort();
  }
  return 0;
}
