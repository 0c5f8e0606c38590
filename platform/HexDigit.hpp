#pragma once

namespace wayloom::platform {

// The value of a hexadecimal digit in either case, or -1.
constexpr int hexDigit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return -1;
}

}  // namespace wayloom::platform
