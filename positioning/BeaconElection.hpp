#pragma once

#include <memory>
#include <optional>
#include <span>

#include "wayloom/platform/Time.hpp"
#include "wayloom/positioning/ElectionTrace.hpp"
#include "wayloom/regions/TGFBeacon.hpp"

namespace wayloom {

// Elects the closest beacon with hysteresis: the nearest beacon seen lately is the candidate; it becomes the winner
// when there is none, or when the winner's election is more than 5 seconds old. Candidate and winner are kept as they
// were in the ranging that made them candidate, and expire. Pure logic: no clock, no lock.
class BeaconElection {
 public:
  // Holds one election after a ranging was merged; every tracked beacon must be a ranged one. With `useAccuracy` the
  // platform's accuracies are compared, else the beacons' own distances where they are known. A trace, when given, is
  // filled in; `dropped` is left to the caller.
  void hold(std::span<const TGFBeacon> tracked, bool useAccuracy, platform::MonotonicTime now, ElectionTrace* trace);

  // Forgets a winner that was not tracked, and a candidate that was chosen, more than 5 seconds ago.
  void expire(platform::MonotonicTime now);

  const TGFBeaconPtr& winner() const { return winner_; }
  const TGFBeaconPtr& candidate() const { return candidate_; }
  std::optional<platform::MonotonicTime> winnerFirstSeen() const { return winnerFirstSeen_; }
  std::optional<platform::MonotonicTime> winnerLastSeen() const { return winnerLastSeen_; }
  std::optional<platform::MonotonicTime> candidateLastSeen() const { return candidateLastSeen_; }

 private:
  void findCandidate(std::span<const TGFBeacon> tracked, bool useAccuracy, platform::MonotonicTime now,
                     ElectionTrace* trace);
  ElectionRule electWinner(platform::MonotonicTime now);
  std::optional<ElectionTrace::Candidate> describeCandidate(bool useAccuracy, platform::MonotonicTime now) const;
  std::optional<ElectionTrace::Winner> describeWinner(platform::MonotonicTime now) const;

  TGFBeaconPtr winner_;
  TGFBeaconPtr candidate_;
  std::optional<platform::MonotonicTime> winnerFirstSeen_;  // never cleared
  std::optional<platform::MonotonicTime> winnerLastSeen_;
  std::optional<platform::MonotonicTime> candidateLastSeen_;
};

}  // namespace wayloom
