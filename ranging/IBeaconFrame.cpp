#include "wayloom/ranging/IBeaconFrame.hpp"

#include <algorithm>

namespace wayloom::ranging {
namespace {

using platform::UUID;

constexpr std::uint16_t kCompany = 0x004C;
constexpr std::uint8_t kType = 0x02;
constexpr std::uint8_t kPayloadLength = 0x15;
constexpr std::size_t kUuidOffset = 2;
constexpr std::size_t kMajorOffset = kUuidOffset + sizeof(UUID::Bytes);
constexpr std::size_t kMinorOffset = kMajorOffset + 2;
constexpr std::size_t kPowerOffset = kMinorOffset + 2;
constexpr std::size_t kLength = kPowerOffset + 1;
static_assert(kLength == kPayloadLength + 2);

std::uint16_t bigEndian(std::span<const std::uint8_t> data, std::size_t offset) {
  return static_cast<std::uint16_t>((data[offset] << 8U) | data[offset + 1]);
}

}  // namespace

std::optional<IBeaconFrame> IBeaconFrame::parse(std::uint16_t company, std::span<const std::uint8_t> data, int rssi) {
  if (company != kCompany || data.size() != kLength) return std::nullopt;
  if (data[0] != kType || data[1] != kPayloadLength) return std::nullopt;
  UUID::Bytes uuid{};
  std::copy_n(data.begin() + kUuidOffset, uuid.size(), uuid.begin());
  return IBeaconFrame{.identity = {UUID(uuid), bigEndian(data, kMajorOffset), bigEndian(data, kMinorOffset)},
                      .rssi = rssi,
                      .power = static_cast<std::int8_t>(data[kPowerOffset])};
}

}  // namespace wayloom::ranging
