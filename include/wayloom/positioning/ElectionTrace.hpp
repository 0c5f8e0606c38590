// Why a beacon was elected, or was not: what the location tracker weighed after one ranging.
//
//   tracker.setElectionObserver([](const ElectionTrace& trace) { std::puts(trace.explanation().c_str()); });
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom {

// Where a compared distance came from.
enum class ComparedValue { accuracy, ownDistance };

// What became of one tracked beacon in the walk for a candidate.
enum class CandidateVerdict {
  becameCandidate,  // nearer than the candidate at that moment; a later one may have been nearer still
  notNearer,        // as near as the candidate, or farther
  unknownDistance,  // its distance is 0, negative or no number
  withoutMap,       // its attributes name no map
};

// What decided about the winner.
enum class ElectionRule {
  noCandidate,    // nobody stands for election; a winner stays until it was not tracked for 5 s
  winnerExpired,  // nobody stands for election, and the winner was not tracked for more than 5 s
  firstElection,  // there was no winner
  dwellNotOver,   // the winner was elected at most 5 s ago and stays, whoever is nearer
  electedAgain,   // the candidate is the winner itself: its time of election begins anew
  replaced,       // the candidate took the winner's place
};

std::string_view textOf(ComparedValue value);
std::string_view textOf(CandidateVerdict verdict);
std::string_view textOf(ElectionRule rule);

// A plain value; no time of it means anything but its distance from the others.
struct ElectionTrace {
  struct Name {
    platform::BeaconIdentity identity;
    std::optional<std::string> name;        // of the kit
    std::optional<std::string> identifier;  // of the kit

    std::string text() const;  // the best of the three for people
  };

  struct Beacon : Name {
    double value = 0.0;  // metres: what was compared
    ComparedValue source = ComparedValue::accuracy;
    double accuracy = 0.0;            // metres, the platform's
    double distance = 0.0;            // metres, from the averaged signal; -1: unknown
    double runningAverageRssi = 0.0;  // dBm; 0: no sample
    int samples = 0;                  // in the averaging window
    platform::Duration sinceLastDetected{};
    CandidateVerdict verdict = CandidateVerdict::notNearer;
  };

  // A candidate is compared by the value of the ranging that made it the candidate, not by today's.
  struct Candidate : Name {
    double value = 0.0;        // metres
    platform::Duration age{};  // since it was chosen; above 5 s it expires
  };

  struct Winner : Name {
    double accuracy = 0.0;                  // metres, at the time when it became candidate: half the uncertainty
    platform::Duration sinceElected{};      // above 5 s another one may be elected
    platform::Duration sinceLastTracked{};  // above 5 s it expires
  };

  platform::MonotonicTime time;
  std::vector<Beacon> beacons;                    // in the order of the walk
  std::vector<platform::BeaconIdentity> dropped;  // unseen for 5 s: not tracked any more
  std::optional<Candidate> candidateBefore;
  std::optional<Candidate> candidateAfter;  // who stood for election
  std::optional<Winner> winnerBefore;
  std::optional<Winner> winnerAfter;
  ElectionRule rule = ElectionRule::noCandidate;
  bool candidateExpired = false;  // candidateAfter was too old to be kept for the next ranging

  // One sentence for people, without the beacons that were not chosen.
  std::string explanation() const;
};

}  // namespace wayloom
