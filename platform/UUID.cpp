#include "wayloom/platform/UUID.hpp"

#include "platform/HexDigit.hpp"

namespace wayloom::platform {
namespace {

constexpr std::size_t kTextLength = 36;

bool isHyphenPlace(std::size_t index) { return index == 8 || index == 13 || index == 18 || index == 23; }

}  // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  Bytes bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextLength; ++i) {
    if (isHyphenPlace(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int digit = hexDigit(text[i]);
    if (digit < 0) return std::nullopt;
    auto& byte = bytes[digits / 2];
    byte = static_cast<std::uint8_t>((byte << 4U) | digit);
    ++digits;
  }
  return UUID(bytes);
}

std::string UUID::string() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(kTextLength);
  for (const auto byte : bytes_) {
    if (isHyphenPlace(text.size())) text.push_back('-');
    text.push_back(kDigits[byte >> 4U]);
    text.push_back(kDigits[byte & 0x0FU]);
  }
  return text;
}

}  // namespace wayloom::platform
