#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <random>

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom::platform {

// Hashes under a seed of its own, so that nobody who writes a kit or sends frames can choose keys that fall together.
//
// Numbers by multiply-shift (Dietzfelbinger and others, A reliable randomized algorithm for the closest-pair problem,
// 1997), longer keys by multilinear hashing of their 32-bit words (Lemire and Kaser, Strongly universal string hashing
// is fast, 2014): of two keys the uppermost k bits are the same with a probability of 2 in 2^k at most. So tables that
// want few bits take the uppermost.
class SeededHash {
 public:
  SeededHash() {
    std::random_device device;
    for (auto& factor : factors_) factor = (static_cast<std::uint64_t>(device()) << 32U) | device();
    factors_[5] |= 1U;
  }

  std::uint32_t operator()(std::uint64_t key) const { return upperHalf(factors_[5] * key); }
  std::uint32_t operator()(const UUID& uuid) const { return upperHalf(sum(uuid)); }
  std::uint32_t operator()(const BeaconIdentity& identity) const {
    return upperHalf(sum(identity.uuid) + factors_[4] * ((std::uint32_t{identity.major} << 16U) | identity.minor));
  }

 private:
  static std::uint32_t upperHalf(std::uint64_t number) { return static_cast<std::uint32_t>(number >> 32U); }
  std::uint64_t sum(const UUID& uuid) const {
    std::array<std::uint32_t, 4> words{};
    std::memcpy(words.data(), uuid.bytes().data(), sizeof words);
    return factors_[0] * words[0] + factors_[1] * words[1] + factors_[2] * words[2] + factors_[3] * words[3];
  }

  std::array<std::uint64_t, 6> factors_{};  // of four words of a UUID, of major and minor, and of a number
};

}  // namespace wayloom::platform
