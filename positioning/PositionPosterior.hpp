#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "wayloom/maps/Geometry.hpp"

namespace wayloom {

// Where on a map may the device be, given how strongly it hears some beacons and that it doesn't hear others? A weight
// for each cell of at most 1 m around a centre, for one instant, from the path-loss model of docs/positions.md. Knows
// no time, no kit and no names; metres from the centre, x to the right and y downwards. 60 kB; no allocation.
class PositionPosterior {
 public:
  static constexpr double kReach = 24.0;  // metres: no cell is farther from the centre, to either side
  static constexpr std::size_t kMostCells = 48 * 48;

  struct Heard {
    float x;
    float y;
    float gain;  // dB over the beacon's power at one metre
  };
  struct Silent {
    float x;
    float y;
    float reach;  // square metres, of reach()
  };
  struct Area {
    double left;
    double top;
    double right;
    double bottom;
  };
  struct Summary {
    Point mean;
    Point variance;  // square metres
    double spread;   // square metres: the variances' sum if beacons' errors were four times as large
  };

  // Parts of the area beyond kReach are left out; what is left must not be empty, but may be a line or a point.
  Summary evaluate(std::span<const Heard> heard, std::span<const Silent> silent, const Area& area);

  // Squared metres at which half of the frames of a beacon are heard that has so many dBm at one metre.
  static float reach(double power);
  // Metres at which a level of so many dB over the beacon's power at one metre is expected.
  static double distance(double gain);

  // After evaluate(): the probability that a place is nearer than the others, for each place. At least one place.
  void nearest(std::span<const Point> places, std::span<double> probabilities);

 private:
  using Cells = std::array<float, kMostCells>;

  void lay(const Area& area);
  void hear(std::span<const Heard> heard);
  void miss(std::span<const Silent> silent);
  void weigh(std::size_t heard);
  Summary summarise() const;

  std::size_t count_ = 0;
  Cells x_{};
  Cells y_{};
  Cells sum_{};      // of the differences of heard and expected level; then the weights with blunter levels
  Cells squares_{};  // of those differences; nearest() uses both for what is nearest
  Cells weight_{};   // first the logarithm, then relative to the likeliest cell
};

}  // namespace wayloom
