#pragma once

#include <httplib.h>
#include <string>
#include <thread>
#include <utility>

namespace wayloom::posix {

// A well-behaved server on the loopback interface; handlers are set before start().
template <class Server>
class HttpServer {
 public:
  template <class... Arguments>
  explicit HttpServer(Arguments&&... arguments) : server_(std::forward<Arguments>(arguments)...) {
    server_.set_keep_alive_timeout(1);  // stopping waits for idle connections
    // A connection keeps a thread for as long as it stays open.
    server_.new_task_queue = [] { return new httplib::ThreadPool(32); };
  }
  ~HttpServer() {
    server_.stop();
    if (thread_.joinable()) thread_.join();
  }

  Server* operator->() { return &server_; }
  void start() {
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }
  std::string url(const std::string& path, const std::string& scheme = "http", const std::string& host = "127.0.0.1") {
    return scheme + "://" + host + ":" + std::to_string(port_) + path;
  }

 private:
  Server server_;
  int port_ = 0;
  std::thread thread_;
};

}  // namespace wayloom::posix
