// What a number of the recorder stands for.
#pragma once

#include <cstdio>
#include <string>

namespace wayloom {

inline constexpr int kBeaconsOfARegion = 3;

// The region with that number has it, and so has the beacon that is sighted.
inline std::string numberedUuid(int number) {
  char text[37];
  std::snprintf(text, sizeof text, "5A0E6D0C-7B1F-4E57-9C3D-%012X", static_cast<unsigned>(number));
  return text;
}

// Some regions are never left, so their sessions are never due.
inline bool staysOpen(int number) { return number % 5 == 4; }

}  // namespace wayloom
