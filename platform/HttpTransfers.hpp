#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom::platform {

// The requests that one client has under way. Answers arrive one at a time, on a serial queue of its own; what has
// ended goes with the next request. Any thread. Destruction, which a handler may cause too, cancels what is under way:
// no handler follows, and one that runs on another thread is waited for.
class HttpTransfers {
 public:
  HttpTransfers(HttpClient& http, TaskScheduler& tasks, std::string queueName)
      : http_(http), queue_(tasks.makeSerialQueue(std::move(queueName))) {}
  ~HttpTransfers() { scope_.close(); }
  HttpTransfers(const HttpTransfers&) = delete;
  HttpTransfers& operator=(const HttpTransfers&) = delete;

  void send(HttpRequest request, HttpClient::Handler handler);

 private:
  struct Transfer {
    std::shared_ptr<std::atomic<bool>> ended = std::make_shared<std::atomic<bool>>(false);
    std::unique_ptr<HttpTask> task;
  };

  HttpClient& http_;
  std::unique_ptr<TaskQueue> queue_;
  std::mutex mutex_;
  std::list<Transfer> transfers_;  // under the mutex; goes before the queue
  TaskScope scope_;
};

}  // namespace wayloom::platform
