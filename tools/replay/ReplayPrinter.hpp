#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

#include "wayloom/sim/Replayer.hpp"

#include "backends/sim/JsonText.hpp"
#include "tools/common/Output.hpp"
#include "tools/replay/RelativePaths.hpp"

namespace wayloom::tools {

// Prints what a replay brings about, one JSON line each, through a buffer of its own.
class ReplayPrinter : public sim::ReplayListener {
 public:
  enum class Events { location, all };

  // The output must outlive it. Until the world has been made, paths below the folders are printed relative to
  // them; then, relative to the world's own.
  ReplayPrinter(Output& output, Events events, std::vector<std::string> folders = {})
      : output_(output), printsAll_(events == Events::all), paths_(std::move(folders)) {}
  ~ReplayPrinter() override { flush(); }

  // False when nothing more can be written or is wanted.
  bool flush();
  bool isWanted() const { return isWanted_; }  // as the last flush had it

  void began(sim::SimPlatform& world) override;
  void located(double t, const TWLMapLocationPtr& location) override;
  void synced(double t) override;
  void failed(double t, const platform::Error& error) override;
  void entered(double t, const TGFRegion& region) override { crossed(t, "enter", region); }
  void exited(double t, const TGFRegion& region) override { crossed(t, "exit", region); }
  void determinedState(double t, platform::CLRegionState state, const TGFRegion& region) override;
  void ranged(double t, const TGFBeaconList& beacons, const TGFBeaconRegion& region) override;
  void requested(double t, const platform::HttpRequest& request) override;
  void logged(double t, sim::LogChannel channel, std::string_view line) override;
  void scripted(double t, std::string_view script) override;
  void elected(double t, const ElectionTrace& trace) override;
  void refined(double t, const RefinedPosition& position) override;

 private:
  struct Attributes {
    TGFBeaconPtr owner;  // keeps the key alive
    std::string json;
  };

  sim::JsonText& begin(double t, const char* event);
  void end();
  void crossed(double t, const char* event, const TGFRegion& region);
  void appendBeacon(const TGFBeaconPtr& beacon);
  const std::string& attributesOf(const TGFBeaconPtr& beacon);

  Output& output_;
  bool printsAll_;
  bool isWanted_ = true;
  RelativePaths paths_;
  sim::JsonText text_;
  std::unordered_map<const BeaconMatch*, Attributes> attributes_;  // a kit has few, and a day has many rangings
};

}  // namespace wayloom::tools
