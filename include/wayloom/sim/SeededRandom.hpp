#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace wayloom::sim {

// Random numbers that are the same on every machine for one seed and stream. Not thread-safe.
class SeededRandom {
 public:
  // Streams of one seed are independent of one another, so that adding a drawer of numbers changes no other's.
  SeededRandom(std::uint64_t seed, std::uint64_t stream);

  double uniform();  // 0 (included) to 1 (excluded)
  double uniform(double from, double to) { return from + (to - from) * uniform(); }
  double normal();                       // mean 0, standard deviation 1
  std::size_t index(std::size_t count);  // 0 to count - 1; count must be positive
  bool chance(double probability) { return uniform() < probability; }

 private:
  std::mt19937_64 engine_;
};

}  // namespace wayloom::sim
