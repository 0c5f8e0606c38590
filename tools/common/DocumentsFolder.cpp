#include "tools/common/DocumentsFolder.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/signalfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "backends/posix/Descriptors.hpp"
#include "backends/posix/FileDescriptor.hpp"
#include "backends/posix/PosixFiles.hpp"
#include "backends/sim/FreshFolder.hpp"

namespace wayloom::tools {
namespace {

// Those that would end the program: one that is ignored, as after nohup, stays so.
sigset_t signalsThatEnd() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) sigaddset(&signals, signal);
  }
  return signals;
}

// Removes a folder when a signal comes, and lets the signal end the program then.
class RemovalOnSignal {
 public:
  explicit RemovalOnSignal(std::string folder) : folder_(std::move(folder)), signals_(signalsThatEnd()) {
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    arrivals_ = posix::FileDescriptor(::signalfd(-1, &signals_, SFD_CLOEXEC));
    thread_ = std::thread([this] { watch(); });
  }
  ~RemovalOnSignal() {
    end_.signal();
    thread_.join();
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  RemovalOnSignal(const RemovalOnSignal&) = delete;
  RemovalOnSignal& operator=(const RemovalOnSignal&) = delete;

 private:
  void watch() const {
    std::array<pollfd, 2> descriptors{pollfd{arrivals_.get(), POLLIN, 0}, pollfd{end_.get(), POLLIN, 0}};
    while (::poll(descriptors.data(), descriptors.size(), -1) < 0 && errno == EINTR) {
    }
    signalfd_siginfo arrival{};
    if (descriptors[1].revents != 0 || ::read(arrivals_.get(), &arrival, sizeof arrival) != sizeof arrival) return;
    // The command still works, and may make a file while others are removed.
    constexpr int kTries = 20;
    std::error_code failure;
    for (int i = 0; i < kTries; ++i)
      if (std::filesystem::remove_all(folder_, failure); !failure) break;
    const int signal = static_cast<int>(arrival.ssi_signo);
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
    ::raise(signal);
  }

  const std::string folder_;
  const sigset_t signals_;
  sigset_t before_{};
  posix::FileDescriptor arrivals_;
  posix::EventDescriptor end_;
  std::thread thread_;
};

}  // namespace

struct DocumentsFolder::Fresh {
  explicit Fresh(StopSignals signals) {
    if (signals == StopSignals::endTheProgram) removal.emplace(folder.path());
  }

  sim::FreshFolder folder;
  std::optional<RemovalOnSignal> removal;
};

DocumentsFolder::DocumentsFolder(const std::string& named, StopSignals signals)
    : fresh_(named.empty() ? std::make_unique<Fresh>(signals) : nullptr),
      path_(fresh_ ? fresh_->folder.path() : posix::absolutePath(named)) {
  if (const auto error = posix::makeDirectories(path_)) throw std::runtime_error(error->description);
  if (::access(path_.c_str(), W_OK | X_OK) != 0)
    throw std::runtime_error(posix::systemError(errno, "cannot write to", path_).description);
}

DocumentsFolder::~DocumentsFolder() = default;

}  // namespace wayloom::tools
