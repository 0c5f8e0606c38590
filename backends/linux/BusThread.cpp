#include "backends/linux/BusThread.hpp"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <poll.h>
#include <utility>

#include "wayloom/posix/PosixClocks.hpp"

#include "backends/linux/BusAddress.hpp"

namespace wayloom::linux_ {
namespace {

using platform::Duration;
using std::chrono::milliseconds;

// Tasks and the end of this object get their turn after these, however fast messages come.
constexpr int kMostMessagesAPass = 1000;
// Messages are left to pile up until there are about this many. The socket between holds some 170 of them: where more
// come before it is read, the bus has to keep them back, and what it keeps grows for as long as that goes on.
constexpr int kMessagesAPass = 100;
constexpr Duration kShortestPause = milliseconds(1);
constexpr int kNoTimeout = -1;

std::unique_ptr<sdbus::IConnection> openConnection(const std::string& address) {
  return address.empty() ? sdbus::createSystemBusConnection() : sdbus::createSessionBusConnectionWithAddress(address);
}

// An exception must not pass through the C library that calls this.
sdbus::message_handler guarded(std::function<void(sdbus::Message&)> handler) {
  return [handler = std::move(handler)](sdbus::Message& message) {
    try {
      handler(message);
    } catch (const std::exception&) {
      return;  // malformed
    }
  };
}

int shorter(int a, int b) { return a < 0 ? b : b < 0 ? a : std::min(a, b); }

}  // namespace

struct BusThread::OpenBus {
  std::unique_ptr<sdbus::IConnection> connection;
  std::vector<sdbus::Slot> slots;  // go before the connection

  // Null, and why, when it can't be opened.
  static std::unique_ptr<OpenBus> open(const std::string& address, const std::vector<BusMatch>& matches,
                                       std::string& failure) try {
    auto bus = std::make_unique<OpenBus>();
    bus->connection = openConnection(address);
    for (const auto& match : matches)
      bus->slots.push_back(bus->connection->addMatch(match.rule, guarded(match.handler)));
    return bus;
  } catch (const sdbus::Error& error) {
    failure = error.getMessage();
    return nullptr;
  }
};

// What the connecting thread reports to; `owner` is null when it has gone.
struct BusThread::Waiter {
  std::mutex mutex;
  BusThread* owner;
};

BusThread::BusThread(BusThreadOptions options, BusClient& client)
    : options_(std::move(options)), client_(client), waiter_(std::make_shared<Waiter>()) {
  waiter_->owner = this;
}

BusThread::~BusThread() { end(); }

void BusThread::end() {
  {
    const std::lock_guard lock(waiter_->mutex);
    waiter_->owner = nullptr;
  }
  if (!thread_.joinable()) return;
  ending_ = true;
  loop_->mainQueue().async([] {});
  thread_.join();
}

void BusThread::start(std::vector<BusMatch> matches) {
  matches_ = std::move(matches);
  thread_ = std::thread([this] { run(); });
}

void BusThread::run() {
  connect();
  while (!ending_) pass();
  close();
}

// Waits for a task, a message or a time-out, and works off what there is.
void BusThread::pass() {
  pollfd watched[2] = {{loop_->wakeDescriptor(), POLLIN, 0}, {-1, 0, 0}};
  int timeout = kNoTimeout;
  if (bus_) {
    const auto lull = nextRead_ - posix::PosixMonotonicClock().now();
    if (lull > Duration::zero()) {
      timeout = static_cast<int>(std::chrono::ceil<milliseconds>(lull).count());
    } else {
      try {
        const auto data = bus_->connection->getEventLoopPollData();
        watched[1] = {data.fd, data.events, 0};
        timeout = shorter(timeout, data.getPollTimeout());
      } catch (const sdbus::Error&) {
        return reopen();
      }
    }
  }
  if (::poll(watched, 2, timeout) < 0 && errno != EINTR) return;
  loop_->runDue();
  if (bus_ && posix::PosixMonotonicClock().now() >= nextRead_) readMessages();
}

void BusThread::readMessages() {
  int count = 0;
  bool isLost = false;
  try {
    while (count < kMostMessagesAPass && bus_->connection->processPendingRequest()) ++count;
  } catch (const sdbus::Error&) {
    isLost = true;
  }
  client_.messagesRead();
  if (isLost) return reopen();
  if (count > 0 && count < kMostMessagesAPass) pauseAfter(count);
}

// As long as the messages take to become kMessagesAPass, at the rate at which they came since the last pass.
void BusThread::pauseAfter(int messages) {
  const auto now = posix::PosixMonotonicClock().now();
  const auto pause = std::min(now - lastRead_, Duration(std::chrono::minutes(1))) * kMessagesAPass / messages;
  lastRead_ = now;
  nextRead_ = now + std::min(std::max(pause, kShortestPause), options_.gathering);
}

void BusThread::connect() {
  std::thread([address = options_.address, matches = matches_, waiter = waiter_] {
    std::string failure = busAbsence(address);
    auto bus = failure.empty() ? OpenBus::open(address, matches, failure) : nullptr;
    const std::lock_guard lock(waiter->mutex);
    if (waiter->owner == nullptr) return;
    waiter->owner->loop_->mainQueue().async([owner = waiter->owner,
                                             held = std::make_shared<std::unique_ptr<OpenBus>>(std::move(bus)),
                                             failure] { owner->connected(std::move(*held), failure); });
  }).detach();
}

void BusThread::connected(std::unique_ptr<OpenBus> bus, const std::string& failure) {
  if (bus) {
    bus_ = std::move(bus);
    nextRead_ = {};
    return client_.busOpened(*bus_->connection);
  }
  client_.busUnavailable(failure);
  retry_ = loop_->startTimer(loop_->mainQueue(), options_.retry, std::nullopt, [this] { connect(); });
}

void BusThread::close() {
  if (!bus_) return;
  client_.busLost();
  bus_.reset();
}

void BusThread::reopen() {
  if (!bus_) return;
  close();
  // Not at once: a bus that ends drops its clients before its address is free.
  retry_ = loop_->startTimer(loop_->mainQueue(), options_.retry, std::nullopt, [this] { connect(); });
}

}  // namespace wayloom::linux_
