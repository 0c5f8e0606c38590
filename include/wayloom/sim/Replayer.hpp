// Runs the whole system on a recording, in virtual time.
//
//   struct Printer : sim::ReplayListener {
//     void located(double t, const TWLMapLocationPtr& location) override { ... }
//   } printer;
//   sim::Replayer replayer({.venue = "examples/venue"}, printer);
//   auto reader = sim::RecordingReader::ofFile("walk.jsonl");
//   const auto error = replayer.run(reader);
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/positioning/ElectionTrace.hpp"
#include "wayloom/positioning/RefinedPosition.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/sim/RecordedEvent.hpp"
#include "wayloom/sim/RecordingReader.hpp"
#include "wayloom/sim/SimPlatform.hpp"

namespace wayloom::sim {

// Told what a replay brings about, in order. `t` is the virtual time in seconds since 1970; while a line is delivered,
// the very double that the line has. Every operation is optional.
class ReplayListener {
 public:
  virtual ~ReplayListener() = default;

  // The world has been made, and the system is about to be.
  virtual void began(SimPlatform&) {}

  // Before a line is delivered, after everything that was due until then.
  virtual void delivering(const RecordedEvent&) {}

  // The position after each ranging and each fix; null when there is none.
  virtual void located(double t, const TWLMapLocationPtr&) {}

  virtual void synced(double t) {}
  virtual void failed(double t, const platform::Error&) {}
  virtual void entered(double t, const TGFRegion&) {}
  virtual void exited(double t, const TGFRegion&) {}
  virtual void determinedState(double t, platform::CLRegionState, const TGFRegion&) {}
  // Comes before the position that the ranging leads to.
  virtual void ranged(double t, const TGFBeaconList&, const TGFBeaconRegion&) {}
  virtual void requested(double t, const platform::HttpRequest&) {}
  virtual void logged(double t, LogChannel, std::string_view line) {}
  // Only with ReplayOptions::viewMap: a script that the map view runs in its page.
  virtual void scripted(double t, std::string_view script) {}
  // Only with ReplayOptions::explainElections. Comes after the position: a ranging is weighed when it has been told.
  virtual void elected(double t, const ElectionTrace&) {}
  // Only with ReplayOptions::refined: once for each instant of rangings, when it is over; `t` is that instant's.
  virtual void refined(double t, const RefinedPosition&) {}
};

struct ReplayOptions {
  std::string venue;
  std::string resourceBundle{};  // as in SimOptions
  std::string documents{};       // as in SimOptions
  // Compare the beacons' own distances instead of the platform's accuracies.
  bool useOwnDistance = false;
  bool explainElections = false;
  bool refined = false;  // find refined positions, too
  // Shows this map in a view on the simulated screen, as soon as the catalogue has it; empty: no view.
  std::string viewMap{};
  // As in SimOptions; leaves the screen alone when there is a view.
  std::function<void(platform::PlatformServices&)> decorate{};
};

// One thread. The world begins with the first event, at its time; nothing is told once the destructor has begun.
class Replayer {
 public:
  Replayer(ReplayOptions options, ReplayListener& listener);  // the listener is not owned
  ~Replayer();

  // Lets everything happen that is due up to and including the event's time, delivers the event, and lets everything
  // happen that it makes ready. Headers are ignored. Times must not go back. Throws what SimPlatform and TWLManager
  // throw on construction.
  void deliver(const RecordedEvent& event);

  // Tells what waited for the end of the last event's instant. Deliver no event of that instant afterwards.
  void finish();

  // Delivers all events of a recording, and finishes. The error of a malformed line, or of a recording without events.
  std::optional<RecordingError> run(RecordingReader& reader);

  // Null before the first event.
  SimPlatform* world();
  TWLManager* manager();

 private:
  struct World;

  ReplayOptions options_;
  ReplayListener& listener_;
  std::unique_ptr<World> world_;
};

}  // namespace wayloom::sim
