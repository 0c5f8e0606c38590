#pragma once

#include <string>

#include "wayloom/sim/SeededRandom.hpp"

namespace wayloom::sim {

// Drops the end, from anywhere on.
inline void cutBytes(std::string& bytes, SeededRandom& random) {
  if (!bytes.empty()) bytes.resize(random.index(bytes.size()));
}

// Overwrites up to eight bytes, anywhere.
inline void garbleBytes(std::string& bytes, SeededRandom& random) {
  if (bytes.empty()) return;
  for (auto count = 1 + random.index(8); count > 0; --count)
    bytes[random.index(bytes.size())] = static_cast<char>(random.index(256));
}

}  // namespace wayloom::sim
