#include "tools/replay/ElectionJson.hpp"

#include "wayloom/platform/Time.hpp"

namespace wayloom::tools {
namespace {

using sim::JsonText;

double seconds(platform::Duration duration) { return platform::secondsOf(duration); }

void appendIdentity(JsonText& text, const platform::BeaconIdentity& identity) {
  text.member("uuid", identity.uuid.string()).member("major", identity.major).member("minor", identity.minor);
}

void beginNamed(JsonText& text, const ElectionTrace::Name& name) {
  text.beginObject().member("identifier", name.identifier);
  appendIdentity(text, name.identity);
}

void append(JsonText& text, const ElectionTrace::Beacon& beacon) {
  beginNamed(text, beacon);
  text.member("value", beacon.value)
      .member("compared", textOf(beacon.source))
      .member("accuracy", beacon.accuracy)
      .member("distance", beacon.distance)
      .member("average_rssi", beacon.runningAverageRssi)
      .member("samples", beacon.samples)
      .member("age", seconds(beacon.sinceLastDetected))
      .member("verdict", textOf(beacon.verdict))
      .endObject();
}

void append(JsonText& text, const ElectionTrace::Candidate& candidate) {
  beginNamed(text, candidate);
  text.member("value", candidate.value).member("age", seconds(candidate.age)).endObject();
}

void append(JsonText& text, const ElectionTrace::Winner& winner) {
  beginNamed(text, winner);
  text.member("accuracy", winner.accuracy)
      .member("since_elected", seconds(winner.sinceElected))
      .member("since_tracked", seconds(winner.sinceLastTracked))
      .endObject();
}

template <class Part>
void appendOptional(JsonText& text, const char* name, const std::optional<Part>& part) {
  text.key(name);
  if (part)
    append(text, *part);
  else
    text.null();
}

}  // namespace

void appendElection(JsonText& text, const ElectionTrace& trace) {
  text.member("rule", textOf(trace.rule)).member("explanation", trace.explanation());
  appendOptional(text, "winner", trace.winnerAfter);
  appendOptional(text, "winner_before", trace.winnerBefore);
  appendOptional(text, "candidate", trace.candidateAfter);
  appendOptional(text, "candidate_before", trace.candidateBefore);
  text.member("candidate_expired", trace.candidateExpired);
  text.key("beacons").beginArray();
  for (const auto& beacon : trace.beacons) append(text, beacon);
  text.endArray().key("dropped").beginArray();
  for (const auto& identity : trace.dropped) {
    text.beginObject();
    appendIdentity(text, identity);
    text.endObject();
  }
  text.endArray();
}

}  // namespace wayloom::tools
