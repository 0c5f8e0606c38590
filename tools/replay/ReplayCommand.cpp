// wayloom replay: runs the whole system on a recording and prints what comes of it.
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "wayloom/posix/LibraryResources.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "tools/common/Command.hpp"
#include "tools/common/DocumentsFolder.hpp"
#include "tools/common/EngineOptions.hpp"
#include "tools/common/Progress.hpp"
#include "tools/common/VenueTroubles.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Runs the whole system on a recording, in virtual time, and prints one JSON line for each output.";

constexpr const char* kFooter =
    "The same recording, venue and options print the same lines, byte for byte. docs/recording.md describes\n"
    "recordings, docs/replay.md the output, and docs/venue.md how to make a venue folder.\n\n"
    "Examples:\n"
    "  wayloom replay --venue examples/venue walk.jsonl\n"
    "      where the device was said to be after every ranging and fix\n"
    "  wayloom replay --venue examples/venue --events all walk.jsonl | grep '\"election\"'\n"
    "      which beacon was elected each time, and why\n"
    "  zcat walk.jsonl.gz | wayloom replay --venue examples/venue -\n"
    "  wayloom replay --venue examples/venue --documents state day1.jsonl\n"
    "  wayloom replay --venue examples/venue --documents state day2.jsonl\n"
    "      a restart: the second run finds the files of the first\n\n"
    "Exit status: 0 when all lines were delivered; 1 when a line is malformed (what was printed until then\n"
    "stands), or a file can't be used; 2 for wrong options.";

struct Options {
  EngineOptions engine;
  std::string viewMap;
  std::string recording;
};

// The recording's file, or standard input. Before it waits for more input, what was printed is written out, so that a
// recording can be replayed while it is being made.
class Input {
 public:
  explicit Input(const std::string& path)
      : name_(path == "-" ? "<stdin>" : path),
        descriptor_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~Input() {
    if (descriptor_ > STDIN_FILENO) ::close(descriptor_);
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  const std::string& name() const { return name_; }

  // Bytes, or 0 when nobody knows.
  std::uint64_t size() const {
    struct stat status {};
    const bool isFile = ::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  sim::RecordingReader::Source source(ReplayPrinter& printer) const {
    return [descriptor = descriptor_, &printer](std::span<char> bytes) -> std::ptrdiff_t {
      if (!printer.flush()) return 0;
      for (;;) {
        const auto count = ::read(descriptor, bytes.data(), bytes.size());
        if (count >= 0 || errno != EINTR) return count;
      }
    };
  }

 private:
  std::string name_;
  int descriptor_;
};

sim::ReplayOptions replayOptions(const Options& options, const DocumentsFolder& documents) {
  sim::ReplayOptions replay;
  replay.venue = options.engine.venue;
  replay.documents = documents.path();
  replay.resourceBundle = posix::libraryResources();
  replay.useOwnDistance = options.engine.useOwnDistance;
  replay.explainElections = options.engine.printsAll();
  replay.refined = options.engine.refined;
  replay.viewMap = options.viewMap;
  return replay;
}

int fail(ReplayPrinter& printer, const std::string& text) {
  printer.flush();
  standardError().print("{}\n", text);
  return kRunFailed;
}

int report(const sim::RecordingError& error, const Input& input, ReplayPrinter& printer) {
  if (error.line == 0) return fail(printer, fmt::format("{}: {}", input.name(), error.reason));
  return fail(printer, fmt::format("{}:{}: {}", input.name(), error.line, error.reason));
}

int runLines(const Input& input, sim::Replayer& replayer, ReplayPrinter& printer) {
  auto reader = sim::RecordingReader(input.source(printer));
  ReadingProgress progress(input.size());
  while (printer.isWanted()) {
    const auto* event = reader.next();
    if (event == nullptr) break;
    replayer.deliver(*event);
    progress.show(reader.line(), reader.bytesRead());
  }
  replayer.finish();
  progress.clear();
  if (!printer.flush()) return kSucceeded;  // why, is looked at where all commands end
  if (reader.error()) return report(*reader.error(), input, printer);
  if (replayer.world() == nullptr) return report({0, "there is no event in it"}, input, printer);
  return kSucceeded;
}

int replay(const Options& options) {
  std::vector<std::string> folders = {posix::absolutePath(options.engine.venue)};
  if (!options.engine.documents.empty()) folders.push_back(posix::absolutePath(options.engine.documents));
  ReplayPrinter printer(standardOutput(), options.engine.printed(), std::move(folders));
  const Input input(options.recording);
  if (!input.isOpen())
    return fail(printer, fmt::format("{}: {}", input.name(), std::generic_category().message(errno)));
  if (tellTroubles(options.engine.venue, {VenuePart::addresses, VenuePart::usage, VenuePart::builtInMaps}))
    return kRunFailed;
  if (!options.viewMap.empty() && !knowsMap(options.engine.venue, options.engine.documents, options.viewMap))
    return fail(printer, fmt::format("{}: the venue has no map \"{}\" to show", options.engine.venue, options.viewMap));
  const DocumentsFolder documents(options.engine.documents, StopSignals::endTheProgram);
  sim::Replayer replayer(replayOptions(options, documents), printer);
  const int status = runLines(input, replayer, printer);
  // Without a kit there is something to see, too: what the system makes of that.
  return tellTroubles(options.engine.venue, {VenuePart::kit}) ? kRunFailed : status;
}

}  // namespace

void registerReplay(CommandLine& line) {
  auto options = std::make_shared<Options>();
  auto command = line.addCommand("replay", kDescription, kFooter);
  options->engine.addTo(command);
  command
      .add(
          "--view-map", options->viewMap,
          "Show this map in a view without a screen; with --events all, every script that the view runs in its page is "
          "printed")
      .named("MAPID");
  command.add("RECORDING", options->recording, "File with one JSON event a line; - reads standard input").required();
  command.runs([options] { return replay(*options); });
}

}  // namespace wayloom::tools
