#include "positioning/BeaconElection.hpp"

#include "positioning/BeaconPlace.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;
using platform::MonotonicTime;

constexpr platform::Duration kDwell = 5s;   // a winner is safe for so long after its election
constexpr platform::Duration kExpiry = 5s;  // life of a winner unseen and of a candidate

struct Distance {
  double metres = 0.0;
  ComparedValue source = ComparedValue::accuracy;
};

Distance comparedDistance(const TGFBeacon& beacon, bool useAccuracy) {
  if (!useAccuracy)
    if (const double own = beacon.distance(); own >= 0.0) return {own, ComparedValue::ownDistance};
  return {beacon.accuracy(), ComparedValue::accuracy};
}

bool sameIdentity(const TGFBeacon& left, const TGFBeacon& right) {
  return left.beacon()->identity() == right.beacon()->identity();
}

bool olderThan(platform::Duration age, const std::optional<MonotonicTime>& time, MonotonicTime now) {
  return time && now - *time > age;
}

platform::Duration ageOf(const std::optional<MonotonicTime>& time, MonotonicTime now) {
  return time ? now - *time : platform::Duration::zero();
}

template <class Entry>
Entry named(const TGFBeacon& beacon) {
  Entry entry;
  entry.identity = beacon.beacon()->identity();
  entry.name = beacon.name();
  entry.identifier = beacon.identifier();
  return entry;
}

void record(ElectionTrace* trace, const TGFBeacon& beacon, const Distance& value, CandidateVerdict verdict) {
  if (!trace) return;
  auto entry = named<ElectionTrace::Beacon>(beacon);
  entry.value = value.metres;
  entry.source = value.source;
  entry.accuracy = beacon.accuracy();
  entry.distance = beacon.distance();
  entry.runningAverageRssi = beacon.runningAverageRssi();
  entry.samples = static_cast<int>(beacon.signalMeasurements().size());
  entry.sinceLastDetected = ageOf(beacon.lastDetected(), trace->time);
  entry.verdict = verdict;
  trace->beacons.push_back(std::move(entry));
}

}  // namespace

void BeaconElection::hold(std::span<const TGFBeacon> tracked, bool useAccuracy, MonotonicTime now,
                          ElectionTrace* trace) {
  if (trace) {
    trace->time = now;
    trace->candidateBefore = describeCandidate(useAccuracy, now);
    trace->winnerBefore = describeWinner(now);
  }
  findCandidate(tracked, useAccuracy, now, trace);
  const ElectionRule rule = electWinner(now);
  if (trace) trace->candidateAfter = describeCandidate(useAccuracy, now);
  const bool hadWinner = winner_ != nullptr;
  expire(now);
  if (!trace) return;
  trace->rule = hadWinner && !winner_ ? ElectionRule::winnerExpired : rule;
  trace->winnerAfter = describeWinner(now);
  trace->candidateExpired = trace->candidateAfter && !candidate_;
}

// A beacon takes the candidate's place only when it is strictly nearer; a comparison with no number is never true.
void BeaconElection::findCandidate(std::span<const TGFBeacon> tracked, bool useAccuracy, MonotonicTime now,
                                   ElectionTrace* trace) {
  const TGFBeacon* nearest = candidate_.get();
  Distance nearestDistance = nearest ? comparedDistance(*nearest, useAccuracy) : Distance();
  for (const auto& beacon : tracked) {
    const Distance distance = comparedDistance(beacon, useAccuracy);
    if (!BeaconPlace::of(beacon).mapId) {
      record(trace, beacon, distance, CandidateVerdict::withoutMap);
      continue;
    }
    const bool known = distance.metres > 0.0;
    const bool nearer = known && (!nearest || nearestDistance.metres > distance.metres);
    if (nearer) {
      nearest = &beacon;
      nearestDistance = distance;
    }
    if (winner_ && sameIdentity(beacon, *winner_)) winnerLastSeen_ = now;
    record(trace, beacon, distance,
           nearer  ? CandidateVerdict::becameCandidate
           : known ? CandidateVerdict::notNearer
                   : CandidateVerdict::unknownDistance);
  }
  if (nearest == candidate_.get()) return;
  candidate_ = std::make_shared<const TGFBeacon>(*nearest);
  candidateLastSeen_ = now;
}

ElectionRule BeaconElection::electWinner(MonotonicTime now) {
  if (!candidate_) return ElectionRule::noCandidate;
  ElectionRule rule = ElectionRule::firstElection;
  if (winner_) {
    if (!olderThan(kDwell, winnerFirstSeen_, now)) return ElectionRule::dwellNotOver;
    rule = sameIdentity(*candidate_, *winner_) ? ElectionRule::electedAgain : ElectionRule::replaced;
  }
  winner_ = candidate_;
  winnerFirstSeen_ = now;
  winnerLastSeen_ = now;
  return rule;
}

void BeaconElection::expire(MonotonicTime now) {
  if (olderThan(kExpiry, winnerLastSeen_, now)) {
    winnerLastSeen_.reset();
    winner_.reset();
  }
  if (olderThan(kExpiry, candidateLastSeen_, now)) {
    candidateLastSeen_.reset();
    candidate_.reset();
  }
}

std::optional<ElectionTrace::Candidate> BeaconElection::describeCandidate(bool useAccuracy, MonotonicTime now) const {
  if (!candidate_) return std::nullopt;
  auto entry = named<ElectionTrace::Candidate>(*candidate_);
  entry.value = comparedDistance(*candidate_, useAccuracy).metres;
  entry.age = ageOf(candidateLastSeen_, now);
  return entry;
}

std::optional<ElectionTrace::Winner> BeaconElection::describeWinner(MonotonicTime now) const {
  if (!winner_) return std::nullopt;
  auto entry = named<ElectionTrace::Winner>(*winner_);
  entry.accuracy = winner_->accuracy();
  entry.sinceElected = ageOf(winnerFirstSeen_, now);
  entry.sinceLastTracked = ageOf(winnerLastSeen_, now);
  return entry;
}

}  // namespace wayloom
