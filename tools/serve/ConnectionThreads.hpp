#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <httplib.h>
#include <mutex>
#include <thread>
#include <vector>

namespace wayloom::tools {

// A thread for each connection, so that clients that hang or drip cost nobody else anything; beyond the limit they wait
// for one another. Threads are kept for those to come.
class ConnectionThreads : public httplib::TaskQueue {
 public:
  explicit ConnectionThreads(std::size_t limit) : limit_(limit) {}

  void enqueue(std::function<void()> connection) override;
  void shutdown() override;

 private:
  void run();

  const std::size_t limit_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool isShutDown_ = false;
};

}  // namespace wayloom::tools
