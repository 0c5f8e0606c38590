#include "wayloom/sim/SeededRandom.hpp"

#include <cmath>
#include <numbers>

namespace wayloom::sim {
namespace {

// The finaliser of SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators, 2014).
std::uint64_t mixed(std::uint64_t value) {
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9ULL;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBULL;
  return value ^ (value >> 31U);
}

}  // namespace

SeededRandom::SeededRandom(std::uint64_t seed, std::uint64_t stream)
    : engine_(mixed(mixed(seed + 0x9E3779B97F4A7C15ULL) + stream)) {}

// The standard library's distributions differ between implementations; these don't.
double SeededRandom::uniform() { return static_cast<double>(engine_() >> 11U) * 0x1.0p-53; }

double SeededRandom::normal() {
  const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));  // Box and Muller, 1958
  return radius * std::cos(2.0 * std::numbers::pi * uniform());
}

std::size_t SeededRandom::index(std::size_t count) {
  return static_cast<std::size_t>(uniform() * static_cast<double>(count));
}

}  // namespace wayloom::sim
