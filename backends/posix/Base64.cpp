#include "backends/posix/Base64.hpp"

#include <cstdint>

namespace wayloom::posix {

std::string base64(std::string_view bytes) {
  static constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const auto group = bytes.substr(i, 3);
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < 3; ++j)
      bits = (bits << 8U) | (j < group.size() ? static_cast<unsigned char>(group[j]) : 0U);
    for (std::size_t j = 0; j < 4; ++j)
      text.push_back(j <= group.size() ? kDigits[(bits >> (18 - 6 * j)) & 0x3FU] : '=');
  }
  return text;
}

}  // namespace wayloom::posix
