#include "positioning/PositionPosterior.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "positioning/FastMath.hpp"

namespace wayloom {
namespace {

// docs/positions.md gives reasons and sensitivities.
constexpr double kCell = 1.0;  // metres
constexpr double kDecibelsPerDecade = 23.2;
constexpr float kHeight = 1.0F;              // square metres: beacons hang so much above or beside the device
constexpr float kDeviation = 4.3F;           // dB, of a level around the expected one
constexpr float kReceiverGain = -0.6F;       // dB, that all levels share: receiver, hand, pocket,
constexpr float kReceiverDeviation = 2.15F;  // dB, of the gain that all levels share: receiver, hand, pocket
constexpr float kPriorDeviation = 9.0F;      // metres, around the centre
constexpr double kHearingLimit = -92.0;      // dBm at which half of the beacons are heard
constexpr float kSilenceOfPresent = 0.3F;  // a beacon that must be heard is silent so often: empty, taken down, covered
constexpr float kNegligible = 1e-3F;       // of the likeliest cell's weight

constexpr float kLog2E = 1.44269504F;
// dB for each doubling of the squared distance.
constexpr float kDecibelsPerLog2 = static_cast<float>(kDecibelsPerDecade * 0.5 * 0.30102999566398120);

}  // namespace

void PositionPosterior::lay(const Area& area) {
  const double left = std::max(area.left, -kReach);
  const double top = std::max(area.top, -kReach);
  const double width = std::max(0.0, std::min(area.right, kReach) - left);
  const double height = std::max(0.0, std::min(area.bottom, kReach) - top);
  constexpr double kMost = 2.0 * kReach / kCell;
  const double columns = std::clamp(std::ceil(width / kCell), 1.0, kMost);
  const double rows = std::clamp(std::ceil(height / kCell), 1.0, kMost);
  count_ = 0;
  for (int row = 0; row < static_cast<int>(rows); ++row)
    for (int column = 0; column < static_cast<int>(columns); ++column, ++count_) {
      x_[count_] = static_cast<float>(left + (column + 0.5) * width / columns);
      y_[count_] = static_cast<float>(top + (row + 0.5) * height / rows);
    }
}

void PositionPosterior::hear(std::span<const Heard> heard) {
  std::fill_n(sum_.begin(), count_, 0.0F);
  std::fill_n(squares_.begin(), count_, 0.0F);
  const std::size_t count = count_;
  for (const auto [x, y, heardGain] : heard) {
    const float gain = heardGain - kReceiverGain;
    for (std::size_t i = 0; i < count; ++i) {
      const float dx = x_[i] - x;
      const float dy = y_[i] - y;
      const float difference = gain + kDecibelsPerLog2 * fastLog2(dx * dx + dy * dy + kHeight);
      sum_[i] += difference;
      squares_[i] += difference * difference;
    }
  }
}

// Leaves the logarithm to base 2 of the probability of this silence in the weights. With the slope chosen, the odds of
// hearing a beacon fall with the squared distance: odds = reach / q, and silence = s + (1 - s) / (1 + odds).
void PositionPosterior::miss(std::span<const Silent> silent) {
  std::fill_n(weight_.begin(), count_, 0.0F);
  constexpr std::size_t kFactors = 16;  // so many probabilities can be multiplied before a float is too small
  constexpr std::size_t kLanes = 16;
  static_assert(kMostCells % kLanes == 0);
  for (std::size_t first = 0; first < silent.size(); first += kFactors) {
    const auto group = silent.subspan(first, std::min(kFactors, silent.size() - first));
    for (std::size_t block = 0; block < count_; block += kLanes) {
      float product[kLanes];
      std::fill_n(product, kLanes, 1.0F);
      for (const auto [x, y, reach] : group)
        for (std::size_t k = 0; k < kLanes; ++k) {
          const float dx = x_[block + k] - x;
          const float dy = y_[block + k] - y;
          const float q = dx * dx + dy * dy + kHeight;
          product[k] *= (q + kSilenceOfPresent * reach) / (q + reach);
        }
      for (std::size_t k = 0; k < kLanes; ++k) weight_[block + k] += fastLog2(product[k]);
    }
  }
}

void PositionPosterior::weigh(std::size_t heard) {
  constexpr float kVariance = kDeviation * kDeviation;
  // The gain that all levels share, integrated out.
  const float shared = 1.0F / (static_cast<float>(heard) + kVariance / (kReceiverDeviation * kReceiverDeviation));
  constexpr float kOfLevels = kLog2E / (2.0F * kVariance);
  constexpr float kOfPrior = kLog2E / (2.0F * kPriorDeviation * kPriorDeviation);
  const std::size_t count = count_;
  for (std::size_t i = 0; i < count; ++i) {
    const float misfit = squares_[i] - sum_[i] * sum_[i] * shared;
    weight_[i] -= kOfLevels * misfit + kOfPrior * (x_[i] * x_[i] + y_[i] * y_[i]);
  }
  const float most = *std::max_element(weight_.begin(), weight_.begin() + static_cast<std::ptrdiff_t>(count));
  auto& blunt = sum_;
  for (std::size_t i = 0; i < count; ++i) {
    const float difference = weight_[i] - most;
    const float below = difference < -120.0F ? -120.0F : difference;
    weight_[i] = fastExp2(below);
    blunt[i] = fastExp2(0.25F * below);
  }
}

PositionPosterior::Summary PositionPosterior::summarise() const {
  struct Moments {
    double weight = 0.0;
    double x = 0.0;
    double y = 0.0;
    double xx = 0.0;
    double yy = 0.0;

    void add(double w, double atX, double atY) {
      weight += w;
      x += w * atX;
      y += w * atY;
      xx += w * atX * atX;
      yy += w * atY * atY;
    }
    Point mean() const { return {x / weight, y / weight}; }
    Point variance() const {
      const Point m = mean();
      return {std::max(0.0, xx / weight - m.x * m.x), std::max(0.0, yy / weight - m.y * m.y)};
    }
  };
  Moments sharp;
  Moments blunt;
  for (std::size_t i = 0; i < count_; ++i) {
    sharp.add(weight_[i], x_[i], y_[i]);
    blunt.add(sum_[i], x_[i], y_[i]);
  }
  const Point variance = blunt.variance();
  return {sharp.mean(), sharp.variance(), variance.x + variance.y};
}

PositionPosterior::Summary PositionPosterior::evaluate(std::span<const Heard> heard, std::span<const Silent> silent,
                                                       const Area& area) {
  lay(area);
  hear(heard);
  miss(silent);
  weigh(heard.size());
  return summarise();
}

float PositionPosterior::reach(double power) {
  return static_cast<float>(std::pow(10.0, 2.0 * (power - kHearingLimit) / kDecibelsPerDecade));
}

double PositionPosterior::distance(double gain) { return std::pow(10.0, -gain / kDecibelsPerDecade); }

void PositionPosterior::nearest(std::span<const Point> places, std::span<double> probabilities) {
  // Only the cells that matter, side by side; evaluate() lays all of them anew.
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count_; ++i) {
    if (weight_[i] < kNegligible) continue;
    x_[kept] = x_[i];
    y_[kept] = y_[i];
    weight_[kept++] = weight_[i];
  }
  count_ = kept;
  std::fill_n(sum_.begin(), kept, std::numeric_limits<float>::max());
  for (std::size_t number = 0; number < places.size(); ++number) {
    const auto x = static_cast<float>(places[number].x);
    const auto y = static_cast<float>(places[number].y);
    const auto name = static_cast<float>(number);
    for (std::size_t i = 0; i < kept; ++i) {
      const float dx = x_[i] - x;
      const float dy = y_[i] - y;
      const float distance = dx * dx + dy * dy;
      squares_[i] = distance < sum_[i] ? name : squares_[i];
      sum_[i] = std::min(sum_[i], distance);
    }
  }
  std::fill(probabilities.begin(), probabilities.end(), 0.0);
  double total = 0.0;
  for (std::size_t i = 0; i < kept; ++i) {
    probabilities[static_cast<std::size_t>(squares_[i])] += weight_[i];
    total += weight_[i];
  }
  for (auto& probability : probabilities) probability /= total;
}

}  // namespace wayloom
