#include "positioning/BeaconChoice.hpp"

#include <algorithm>
#include <cmath>

namespace wayloom {
namespace {

constexpr double kForgottenShare = 1e-3;

}  // namespace

void BeaconChoice::update(std::span<const std::uint32_t> numbers, std::span<const double> probabilities,
                          double seconds) {
  const bool fresh = shares_.empty();
  const double share = fresh ? 1.0 : 1.0 - std::exp(-seconds / kTime);
  for (auto& old : shares_) old.probability *= 1.0 - share;
  for (std::size_t i = 0; i < numbers.size(); ++i) add(numbers[i], share * probabilities[i]);
  const auto leads = [](const Share& a, const Share& b) { return a.probability < b.probability; };
  const auto first = *std::max_element(shares_.begin(), shares_.end(), leads);
  const auto held = std::find_if(shares_.begin(), shares_.end(),
                                 [this](const Share& other) { return other.number == chosen_.number; });
  const bool changes = fresh || held == shares_.end() || first.probability > held->probability + kLead;
  chosen_ = changes ? first : *held;
  std::erase_if(shares_,
                [this](const Share& old) { return old.probability < kForgottenShare && old.number != chosen_.number; });
}

void BeaconChoice::add(std::uint32_t number, double probability) {
  const auto known =
      std::find_if(shares_.begin(), shares_.end(), [number](const Share& other) { return other.number == number; });
  if (known != shares_.end())
    known->probability += probability;
  else if (probability >= kForgottenShare || shares_.empty())
    shares_.push_back({number, probability});
}

}  // namespace wayloom
