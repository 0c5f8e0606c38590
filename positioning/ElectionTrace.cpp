#include "wayloom/positioning/ElectionTrace.hpp"

#include <array>
#include <charconv>

#include "positioning/BeaconKey.hpp"

namespace wayloom {
namespace {

// With one or two decimals, whatever the process's locale is.
std::string decimal(double value, int places, std::string_view unit) {
  std::array<char, 64> text{};
  auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, places);
  if (end.ec != std::errc()) end = std::to_chars(text.data(), text.data() + text.size(), value);
  return std::string(text.data(), end.ptr).append(unit);
}

std::string metres(double value) { return decimal(value, 2, " m"); }
std::string seconds(platform::Duration duration) { return decimal(platform::secondsOf(duration), 1, " s"); }

std::string quoted(const ElectionTrace::Name& name) { return std::string("\"").append(name.text()).append("\""); }

std::string describe(const ElectionTrace::Candidate& candidate) {
  return quoted(candidate) + ", compared at " + metres(candidate.value) + " since " + seconds(candidate.age);
}

std::string nobodyStands(const ElectionTrace& trace) {
  if (trace.rule == ElectionRule::winnerExpired)
    return quoted(*trace.winnerBefore) + " is no winner any more: it was not tracked for " +
           seconds(trace.winnerBefore->sinceLastTracked) + ", and no other beacon has a map and a known distance";
  if (!trace.winnerAfter) return "No winner: no tracked beacon has a map and a known distance";
  return quoted(*trace.winnerAfter) + " stays the winner, last tracked " +
         seconds(trace.winnerAfter->sinceLastTracked) + " ago: no other beacon has a map and a known distance";
}

}  // namespace

std::string_view textOf(ComparedValue value) {
  switch (value) {
    case ComparedValue::accuracy:
      return "accuracy";
    case ComparedValue::ownDistance:
      return "own distance";
  }
  return "";
}

std::string_view textOf(CandidateVerdict verdict) {
  switch (verdict) {
    case CandidateVerdict::becameCandidate:
      return "became candidate";
    case CandidateVerdict::notNearer:
      return "not nearer than the candidate";
    case CandidateVerdict::unknownDistance:
      return "unknown distance";
    case CandidateVerdict::withoutMap:
      return "without map";
  }
  return "";
}

std::string_view textOf(ElectionRule rule) {
  switch (rule) {
    case ElectionRule::noCandidate:
      return "no candidate";
    case ElectionRule::winnerExpired:
      return "winner expired";
    case ElectionRule::firstElection:
      return "first election";
    case ElectionRule::dwellNotOver:
      return "dwell not over";
    case ElectionRule::electedAgain:
      return "elected again";
    case ElectionRule::replaced:
      return "replaced";
  }
  return "";
}

std::string ElectionTrace::Name::text() const {
  if (name && !name->empty()) return *name;
  if (identifier && !identifier->empty()) return *identifier;
  return beaconKey(identity);
}

std::string ElectionTrace::explanation() const {
  switch (rule) {
    case ElectionRule::noCandidate:
    case ElectionRule::winnerExpired:
      return nobodyStands(*this);
    case ElectionRule::firstElection:
      return "There was no winner: elected is the candidate " + describe(*candidateAfter);
    case ElectionRule::dwellNotOver:
      return quoted(*winnerAfter) + " stays the winner: elected " + seconds(winnerAfter->sinceElected) +
             " ago, it holds for 5 s; the candidate is " + describe(*candidateAfter);
    case ElectionRule::electedAgain:
      return quoted(*winnerAfter) + " is elected again after " + seconds(winnerBefore->sinceElected) +
             ": it is the candidate " + describe(*candidateAfter);
    case ElectionRule::replaced:
      return quoted(*winnerBefore) + ", elected " + seconds(winnerBefore->sinceElected) +
             " ago, is replaced by the candidate " + describe(*candidateAfter);
  }
  return "";
}

}  // namespace wayloom
