// A connection to a message bus with a thread of its own, which never waits for anything but messages.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <sdbus-c++/sdbus-c++.h>
#include <string>
#include <thread>
#include <vector>

#include "wayloom/platform/Time.hpp"
#include "wayloom/posix/MainLoop.hpp"

namespace wayloom::linux_ {

// Messages that the bus shall deliver. The handler runs on the bus thread; what it throws counts as a malformed
// message, which is dropped.
struct BusMatch {
  std::string rule;
  std::function<void(sdbus::Message&)> handler;
};

// Told on the bus thread.
class BusClient {
 public:
  virtual void busOpened(sdbus::IConnection& connection) = 0;
  // After busOpened, while the connection object still exists: nothing of it may be kept.
  virtual void busLost() = 0;
  virtual void busUnavailable(const std::string& reason) = 0;  // each time that it can't be opened
  virtual void messagesRead() {}                               // after the last message of those that had arrived

 protected:
  ~BusClient() = default;
};

struct BusThreadOptions {
  std::string address;           // empty: the system bus
  platform::Duration gathering;  // how long messages pile up before they are read, at most
  platform::Duration retry;      // between attempts to open the bus
};

// Opens the bus, again and again when it can't be reached or is lost. Connecting blocks when the bus hangs, so a
// detached thread does it, which finds nobody waiting if this object has gone meanwhile.
class BusThread {
 public:
  BusThread(BusThreadOptions options, BusClient& client);  // client: not owned
  ~BusThread();
  BusThread(const BusThread&) = delete;
  BusThread& operator=(const BusThread&) = delete;

  // Begins. Once.
  void start(std::vector<BusMatch> matches);
  // The client is told busLost() if the bus was open, and nothing after that: for the client's destructor.
  void end();

  // Its main queue is the bus thread. Any thread.
  platform::TaskScheduler& tasks() { return *loop_; }
  // Bus thread, in a task of tasks(): gives the connection up and opens another.
  void reopen();

 private:
  struct OpenBus;
  struct Waiter;

  void run();
  void pass();
  void readMessages();
  void pauseAfter(int messages);
  void connect();
  void connected(std::unique_ptr<OpenBus> bus, const std::string& failure);
  void close();

  const BusThreadOptions options_;
  BusClient& client_;
  std::vector<BusMatch> matches_;
  std::unique_ptr<posix::MainLoop> loop_ = std::make_unique<posix::MainLoop>();
  std::shared_ptr<Waiter> waiter_;
  std::unique_ptr<OpenBus> bus_;
  std::unique_ptr<platform::Timer> retry_;
  platform::MonotonicTime lastRead_;
  platform::MonotonicTime nextRead_;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace wayloom::linux_
