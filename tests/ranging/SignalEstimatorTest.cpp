#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "wayloom/ranging/SignalEstimator.hpp"

namespace wayloom::ranging {
namespace {

using namespace platform;
using namespace std::chrono_literals;

// A beacon whose frames come in one after the other at even intervals.
class Signal {
 public:
  explicit Signal(Duration interval = 500ms) : interval_(interval) {}

  Signal& hear(int rssi, int times = 1) {
    for (int i = 0; i < times; ++i) {
      now_ += interval_;
      estimator_.add(rssi, now_);
    }
    return *this;
  }

  // Seconds of readings at `rssi` until the level is within 3 dB of it.
  double secondsToReach(int rssi) {
    const auto start = now_;
    while (std::abs(level() - rssi) > 3.0 && now_ - start < 60s) hear(rssi);
    return secondsOf(now_ - start);
  }

  double level(Duration later = 0s) const { return estimator_.level(now_ + later); }
  MonotonicTime now() const { return now_; }
  SignalEstimator& estimator() { return estimator_; }

 private:
  Duration interval_;
  MonotonicTime now_;
  SignalEstimator estimator_;
};

TEST(SignalEstimatorTest, SettlesOnASteadyLevelAndStaysWithinItsNoise) {
  EXPECT_DOUBLE_EQ(Signal().hear(-70).level(), -70.0);
  EXPECT_DOUBLE_EQ(Signal().hear(-70, 20).level(), -70.0);

  Signal noisy;
  noisy.hear(-70, 20);
  for (int i = 0; i < 50; ++i) {
    noisy.hear(-73).hear(-67);
    ASSERT_NEAR(noisy.level(), -70.0, 3.0);
  }
}

TEST(SignalEstimatorTest, AReadingFarOffMovesLittleAndAFadeLess) {
  const double peak = Signal().hear(-80, 20).hear(-40).level() + 80.0;
  const double fade = -60.0 - Signal().hear(-60, 20).hear(-100).level();
  EXPECT_LT(peak, 6.0);
  EXPECT_GT(peak, 0.5);
  EXPECT_LT(fade, 2.0);
  EXPECT_GT(fade, 0.0);
}

TEST(SignalEstimatorTest, FollowsARealChangeWithinSecondsWhateverTheFrameRate) {
  for (const auto interval : {100ms, 500ms, 1000ms}) {
    Signal approached(interval);
    Signal left(interval);  // through a door
    Signal receding(interval);
    const double up = approached.hear(-85, 30).secondsToReach(-65);
    const double down = left.hear(-65, 30).secondsToReach(-85);
    for (int rssi = -65; rssi > -80; --rssi) receding.hear(rssi, static_cast<int>(1s / interval));
    EXPECT_LT(receding.level(), -72.0) << interval.count();
    EXPECT_LE(up, 6.0) << interval.count();
    EXPECT_LT(down, 8.0) << interval.count();
  }
}

TEST(SignalEstimatorTest, SilenceCountsAgainstABeaconAndMakesTheNextReadingCountForMore) {
  Signal steady;
  steady.hear(-70, 20);
  EXPECT_NEAR(steady.level(4s), -72.0, 1e-9);
  EXPECT_DOUBLE_EQ(steady.level(-1s), -70.0);

  Signal resumed = steady;
  resumed.estimator().add(-60, resumed.now() + 8s);
  steady.hear(-60);
  EXPECT_GT(resumed.estimator().level(resumed.now() + 8s), steady.level() + 2.0);

  // Beyond its memory it starts afresh.
  Signal forgotten;
  forgotten.hear(-50, 20).estimator().add(-90, forgotten.now() + SignalEstimator::kMemory + 1ms);
  EXPECT_DOUBLE_EQ(forgotten.estimator().level(forgotten.now() + SignalEstimator::kMemory + 1ms), -90.0);
}

TEST(SignalEstimatorTest, StaysFiniteWithManyReadingsAtOneMomentAndClocksThatStep) {
  Signal signal(0ns);
  for (int i = 0; i < 100'000; ++i) signal.hear(i % 2 == 0 ? -127 : -1);
  EXPECT_TRUE(signal.level() >= -127.0 && signal.level() <= -1.0) << signal.level();

  signal.estimator().add(-50, signal.now() - 1h);
  EXPECT_TRUE(signal.level() >= -127.0 && signal.level() <= -1.0) << signal.level();
}

TEST(SignalEstimatorTest, DistancesArePhysicalAndBounded) {
  EXPECT_NEAR(SignalEstimator::distance(-59.0, -59), 1.0, 1e-12);
  EXPECT_NEAR(SignalEstimator::distance(-79.0, -59), 10.0, 1e-9);

  // A frame may claim any power: none makes a beacon win everywhere or gives what is no distance.
  for (int power = -128; power <= 127; ++power) {
    for (const double level : {-127.0, -95.0, -60.0, -1.0}) {
      const double metres = SignalEstimator::distance(level, power);
      ASSERT_TRUE(metres >= SignalEstimator::kNearest && metres <= SignalEstimator::kFarthest) << power;
    }
  }
  for (const int absurd : {-128, -101, -19, 0, 127, std::numeric_limits<int>::min()})
    EXPECT_DOUBLE_EQ(SignalEstimator::distance(-70.0, absurd), SignalEstimator::distance(-70.0, -59)) << absurd;

  EXPECT_EQ(SignalEstimator::proximity(-1.0), CLProximity::unknown);
  EXPECT_EQ(SignalEstimator::proximity(std::numeric_limits<double>::quiet_NaN()), CLProximity::unknown);
  EXPECT_EQ(SignalEstimator::proximity(0.5), CLProximity::immediate);
  EXPECT_EQ(SignalEstimator::proximity(3.0), CLProximity::near);
  EXPECT_EQ(SignalEstimator::proximity(3.01), CLProximity::far);
}

}  // namespace
}  // namespace wayloom::ranging
