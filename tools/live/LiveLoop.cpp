#include "tools/live/LiveLoop.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "wayloom/platform/Time.hpp"

namespace wayloom::tools {

LiveLoop::LiveLoop() {
  sigset_t ends;
  sigemptyset(&ends);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ends, signal);
  ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signals_ = ::signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
}

LiveLoop::~LiveLoop() { ::close(signals_); }

void LiveLoop::run(std::optional<double> seconds) {
  std::unique_ptr<platform::Timer> end;
  if (seconds)
    end = tasks_->startTimer(tasks_->mainQueue(), platform::durationFromSeconds(*seconds), std::nullopt,
                             [this] { stop(); });
  while (!isStopped_) {
    std::array<pollfd, 3> watched = {
        {{tasks_->wakeDescriptor(), POLLIN, 0}, {signals_, POLLIN, 0}, {inputHandler_ ? STDIN_FILENO : -1, POLLIN, 0}}};
    if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) return;
    if (watched[1].revents != 0) return;
    if (watched[2].revents != 0) readInput();
    tasks_->runDue();
  }
}

void LiveLoop::readInput() {
  std::array<char, 256> typed{};
  const auto count = ::read(STDIN_FILENO, typed.data(), typed.size());
  if (count < 0 && errno == EINTR) return;
  const auto handler = inputHandler_;
  if (count <= 0) inputHandler_ = nullptr;
  handler({typed.data(), count > 0 ? static_cast<std::size_t>(count) : 0});
}

}  // namespace wayloom::tools
