#pragma once

#include <string>
#include <string_view>

namespace wayloom::posix {

// With padding, on one line (RFC 4648, 4).
std::string base64(std::string_view bytes);

}  // namespace wayloom::posix
