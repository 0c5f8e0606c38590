#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace wayloom::platform {

// A 16-byte identifier compared by value.
class UUID {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr UUID() = default;
  constexpr explicit UUID(const Bytes& bytes) : bytes_(bytes) {}

  // Reads 8-4-4-4-12 hexadecimal digits in either case; anything else gives nothing.
  static std::optional<UUID> parse(std::string_view text);

  // Upper-case hexadecimal with hyphens.
  std::string string() const;

  const Bytes& bytes() const { return bytes_; }

  auto operator<=>(const UUID&) const = default;

  std::size_t hash() const {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, bytes_.data(), sizeof high);
    std::memcpy(&low, bytes_.data() + sizeof high, sizeof low);
    return static_cast<std::size_t>((high ^ (low * 0x9E3779B97F4A7C15ULL)) * 0xD6E8FEB86659FD93ULL);
  }

 private:
  Bytes bytes_{};
};

}  // namespace wayloom::platform

template <>
struct std::hash<wayloom::platform::UUID> {
  std::size_t operator()(const wayloom::platform::UUID& uuid) const noexcept { return uuid.hash(); }
};
