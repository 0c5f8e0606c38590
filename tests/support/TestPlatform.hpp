// A whole Platform in memory and in virtual time.
#pragma once

#include <memory>
#include <string>

#include "wayloom/ranging/RangerLocationServices.hpp"
#include "wayloom/sim/SimWidgets.hpp"
#include "wayloom/sim/VirtualTime.hpp"

#include "tests/support/TestServices.hpp"

namespace wayloom::test {

struct TestPlatform {
  explicit TestPlatform(double secondsSince1970 = 1'000'000'000.0)
      : time(platform::calendarTimeFromSeconds(secondsSince1970)),
        console(std::make_shared<RecordingLog>()),
        systemLog(std::make_shared<RecordingLog>()),
        files(std::make_shared<MemoryFiles>(time.calendarClock())),
        mainBundle(std::make_shared<MemoryBundle>(files, "/app")),
        resourceBundle(std::make_shared<MemoryBundle>(files, "/library")),
        defaults(std::make_shared<MemoryDefaults>()),
        http(std::make_shared<ScriptedHttp>()),
        location(std::make_shared<ranging::RangerLocationServices>(*time.scheduler(), *time.monotonicClock())),
        widgets(std::make_shared<sim::SimWidgetFactory>(time.scheduler())),
        instance(std::make_unique<platform::Platform>(services())) {}

  operator platform::Platform&() { return *instance; }

  void wait(double seconds) { time.advanceBy(platform::durationFromSeconds(seconds)); }

  platform::PlatformServices services() const {
    return {.console = console,
            .systemLog = systemLog,
            .calendarClock = time.calendarClock(),
            .monotonicClock = time.monotonicClock(),
            .tasks = time.scheduler(),
            .files = files,
            .propertyLists = std::make_shared<JsonPropertyLists>(files),
            .mainBundle = mainBundle,
            .resourceBundle = resourceBundle,
            .userDefaults = defaults,
            .device = std::make_shared<FixedDevice>(),
            .http = http,
            .location = location,
            .bluetooth = std::make_shared<NoRadio>(),
            .widgets = widgets};
  }

  sim::VirtualTime time;
  std::shared_ptr<RecordingLog> console;
  std::shared_ptr<RecordingLog> systemLog;
  std::shared_ptr<MemoryFiles> files;
  std::shared_ptr<MemoryBundle> mainBundle;      // "/app"
  std::shared_ptr<MemoryBundle> resourceBundle;  // "/library"
  std::shared_ptr<MemoryDefaults> defaults;
  std::shared_ptr<ScriptedHttp> http;
  std::shared_ptr<ranging::RangerLocationServices> location;
  std::shared_ptr<sim::SimWidgetFactory> widgets;
  std::unique_ptr<platform::Platform> instance;
};

}  // namespace wayloom::test
