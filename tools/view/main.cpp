// wayloom-view, which is `wayloom view`: a window on a recording or on the live engine.
#include <array>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <glib-unix.h>
#include <gtk/gtk.h>
#include <malloc.h>
#include <optional>

#include "wayloom/gtk/GtkPlatform.hpp"
#include "wayloom/posix/LibraryResources.hpp"
#include "wayloom/regions/MissingUsageDescription.hpp"
#include "wayloom/sim/VenueHttpServer.hpp"

#include "tools/common/CommandLine.hpp"
#include "tools/common/DocumentsFolder.hpp"
#include "tools/view/LiveServices.hpp"
#include "tools/view/MapWindow.hpp"
#include "tools/view/RecordingPlayer.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Opens a window that follows a recording, or the beacons around, on the venue's maps.";

constexpr const char* kFooter =
    "A tap on the map prints a line such as {\"event\":\"tap\",\"map_id\":\"hall\",\"x_m\":12.3,\"y_m\":4.5}: metres\n"
    "from the map's overlay origin.\n\n"
    "Examples:\n"
    "  wayloom view --venue examples/venue walk.jsonl               as fast as it was recorded\n"
    "  wayloom view --venue examples/venue --speed 20 walk.jsonl    twenty times as fast\n"
    "  wayloom view --venue venue --live                            what Bluetooth hears now\n\n"
    "Exit status: 0 when the window was closed or it was stopped by SIGINT or SIGTERM, 1 when a file can't be used or "
    "there is no display,\n"
    "2 for wrong options.";

constexpr guint kFrame = 16;  // milliseconds

struct Options {
  std::string venue;
  std::string documents;
  std::string map;
  double speed = 1.0;
  bool exitAtEnd = false;
  bool live = false;
  bool network = false;
  std::string bus;
  std::string adapter;
  std::string recording;
};

MapWindow::Options windowOptions(const Options& options) {
  const auto venue = std::filesystem::absolute(options.venue).lexically_normal();
  const auto name = venue.has_filename() ? venue.filename() : venue.parent_path().filename();
  return {.title = name.string() + (options.live ? " \u2013 live" : ""), .mapId = options.map};
}

// Runs GTK until the window is closed, somebody stops it, or SIGINT or SIGTERM ends it.
class Session {
 public:
  Session() : signals_{stopOn(SIGINT), stopOn(SIGTERM)} {}
  ~Session() {
    for (const auto source : signals_) g_source_remove(source);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void run() {
    while (isRunning_) g_main_context_iteration(nullptr, TRUE);
  }
  void stop() { isRunning_ = false; }

 private:
  guint stopOn(int signal) {
    return g_unix_signal_add(
        signal,
        [](gpointer session) noexcept -> gboolean {
          static_cast<Session*>(session)->stop();
          return G_SOURCE_CONTINUE;
        },
        this);
  }

  bool isRunning_ = true;
  std::array<guint, 2> signals_;
};

// Ends the session with a word when there is no map of the name that was asked for.
class MissingMap {
 public:
  MissingMap(const Options& options, MapWindow& window, Session& session) {
    window.setMissingCallback([this, &options, &session] {
      happened_ = true;
      complain(fmt::format("there is no map {} in {}, or it is hidden", options.map, options.venue));
      session.stop();
    });
  }
  MissingMap(const MissingMap&) = delete;
  MissingMap& operator=(const MissingMap&) = delete;

  bool happened() const { return happened_; }

 private:
  bool happened_ = false;
};

// Every frame, time moves on.
class Playback {
 public:
  Playback(const Options& options, RecordingPlayer& player, MapWindow& window, Session& session)
      : exitAtEnd_(options.exitAtEnd), speed_(options.speed), player_(player), window_(window), session_(session) {
    source_ = g_timeout_add(
        kFrame,
        [](gpointer playback) noexcept -> gboolean {
          static_cast<Playback*>(playback)->frame();
          return G_SOURCE_CONTINUE;
        },
        this);
  }
  ~Playback() { g_source_remove(source_); }
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

 private:
  void frame() {
    player_.advance();
    showTime();
    if (exitAtEnd_ && player_.hasEnded()) session_.stop();
  }
  void showTime() {
    const auto now = platform::secondsSince1970(player_.replayer().world()->time().calendarNow());
    const auto seconds = static_cast<std::time_t>(now);
    if (seconds == shown_ && player_.hasEnded() == shownEnd_) return;
    shown_ = seconds;
    shownEnd_ = player_.hasEnded();
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    window_.setTimeText(fmt::format("{:02}:{:02}:{:02} UTC, {}", parts.tm_hour, parts.tm_min, parts.tm_sec,
                                    shownEnd_ ? "the end" : fmt::format("{:g}\u00d7", speed_)));
  }

  bool exitAtEnd_;
  double speed_;
  RecordingPlayer& player_;
  MapWindow& window_;
  Session& session_;
  std::time_t shown_ = -1;
  bool shownEnd_ = false;
  guint source_ = 0;
};

int report(const Options& options, const std::optional<sim::RecordingError>& error) {
  if (!error) return kSucceeded;
  complain(error->line == 0 ? fmt::format("{}: {}", options.recording, error->reason)
                            : fmt::format("{}:{}: {}", options.recording, error->line, error->reason));
  return kRunFailed;
}

int viewRecording(const Options& options) {
  sim::ReplayOptions replay;
  replay.venue = options.venue;
  replay.documents = options.documents;
  replay.resourceBundle = posix::libraryResources();
  replay.decorate = [](platform::PlatformServices& services) {
    services.widgets = std::make_shared<gtk::GtkWidgetFactory>();
  };
  sim::ReplayListener nobody;
  RecordingPlayer player(replay, sim::RecordingReader::ofFile(options.recording), options.speed, nobody);
  if (!player.begin())
    return report(options, player.error() ? player.error() : sim::RecordingError{0, "there is no event in it"});
  Session session;
  MapWindow window(player.replayer().world()->platform(), *player.replayer().manager(), windowOptions(options));
  window.setClosedCallback([&] { session.stop(); });
  const MissingMap missing(options, window, session);
  window.setPauseCallback([&](bool paused) { player.setPaused(paused); });
  const Playback playback(options, player, window, session);
  session.run();
  return missing.happened() ? kRunFailed : report(options, player.error());
}

// Unless the network is asked for, the venue folder answers requests.
std::optional<LiveServices> makeLiveServices(const Options& options, const std::string& documents,
                                             const std::shared_ptr<posix::MainLoop>& loop) {
  const auto venue = std::filesystem::absolute(options.venue).string();
  posix::PlatformOptions platformOptions;
  platformOptions.mainBundle = venue + "/bundle";
  platformOptions.documents = documents;
  platformOptions.loop = loop;
  auto live = liveServices(platformOptions, options.bus, options.adapter);
  if (!live) return live;
  auto& services = live->services;
  gtk::addWidgets(services, loop);
  if (!options.network)
    services.http =
        std::make_shared<sim::VenueHttpServer>(services.tasks, services.files, venue, *services.propertyLists);
  return live;
}

int viewLive(const Options& options) {
  const auto loop = std::make_shared<posix::MainLoop>();
  const DocumentsFolder documents(options.documents);
  auto live = makeLiveServices(options, documents.path(), loop);
  if (!live) {
    complain("there is no radio in this build: it was made without the backend for Bluetooth");
    return kRunFailed;
  }
  platform::Platform platform(std::move(live->services));
  TWLManager manager(platform);
  manager.updateMaps();
  Session session;
  MapWindow window(platform, manager, windowOptions(options));
  window.setClosedCallback([&] { session.stop(); });
  const MissingMap missing(options, window, session);
  live->observeRadio([&](const std::string& condition) { window.setTimeText(condition); });
  session.run();
  live->observeRadio({});
  return missing.happened() ? kRunFailed : kSucceeded;
}

int view(const Options& options) {
  if (gtk_init_check() == FALSE) {
    complain("there is no display: set WAYLAND_DISPLAY or DISPLAY");
    return kRunFailed;
  }
  try {
    return options.live ? viewLive(options) : viewRecording(options);
  } catch (const MissingUsageDescription& missing) {
    complain(fmt::format("{}/bundle/Info.plist: {}", options.venue, missing.what()));
    return kRunFailed;
  }
}

void addArguments(Arguments arguments, Options& options) {
  arguments.addVenue(options.venue).required();
  arguments
      .add("--documents", options.documents,
           "Folder for the files that the system keeps from run to run; a fresh one by default")
      .named("DIR");
  arguments.add("--map", options.map, "Show this map and stay on it; otherwise the one that the device is on")
      .named("MAPID");
  arguments.add("--speed", options.speed, "Recorded seconds a second").between(0.01, 10000.0).showsDefault();
  arguments.add("--exit-at-end", options.exitAtEnd, "Close the window when the recording ends");
  const auto live = arguments.add("--live", options.live, "The beacons around, heard by Bluetooth");
  arguments.add("--network", options.network, "With --live, talk to the servers that the bundle names").needs(live);
  arguments.add("--adapter", options.adapter, "The Bluetooth adapter, such as hci1; by default the first that is on")
      .named("NAME")
      .needs(live);
  arguments.add("--bus", options.bus, "D-Bus address of the bus with the Bluetooth service; by default the system's")
      .named("ADDRESS")
      .needs(live);
  arguments.add("RECORDING", options.recording, "File with one JSON event a line").excludes(live);
}

int viewWhatIsAsked(const Options& options) {
  if (!options.live && options.recording.empty()) failForMissing("RECORDING or --live");
  return view(options);
}

}  // namespace
}  // namespace wayloom::tools

int main(int argc, char** argv) {
  using namespace wayloom::tools;
  // Without a graphics processor, every frame is drawn into fresh memory of the window's size: keeping it saves a third
  // of the work. There is one thread yet.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);   // NOLINT(concurrency-mt-unsafe)
  mallopt(M_TRIM_THRESHOLD, 128 << 20);  // NOLINT(concurrency-mt-unsafe)
  Options options;
  CommandLine line("wayloom view", kDescription, kFooter);
  addArguments(line.arguments(), options);
  line.arguments().runs([&options] { return viewWhatIsAsked(options); });
  return line.run(argc, argv);
}
