#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace wayloom::posix {

// A server that sends what bytes it likes: for each connection `serve` runs on a thread of its own, and must return
// soon after `isStopping()`.
class RawServer {
 public:
  using Serve = std::function<void(RawServer&, int connection)>;

  explicit RawServer(Serve serve) : serve_(std::move(serve)), listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length);
    ::listen(listener_, 128);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    acceptor_ = std::thread([this] { acceptAll(); });
  }
  ~RawServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (auto& thread : threads_) thread.join();
    ::close(listener_);
  }

  const std::string& url() const { return url_; }
  bool isStopping() const { return stopping_; }
  int connections() const { return connections_; }

  static void send(int connection, const std::string& bytes) {
    [[maybe_unused]] const auto sent = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  // Waits for the client to send something or to hang up; empty on the latter.
  static std::string receive(int connection) {
    char buffer[4096];
    const auto count = ::recv(connection, buffer, sizeof buffer, 0);
    return {buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }
  void hang() const {
    while (!stopping_) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

 private:
  void acceptAll() {
    for (;;) {
      const int connection = ::accept(listener_, nullptr, nullptr);
      if (connection < 0) return;
      ++connections_;
      threads_.emplace_back([this, connection] {
        serve_(*this, connection);
        ::close(connection);
      });
    }
  }

  const Serve serve_;
  const int listener_;
  std::string url_;
  std::atomic<bool> stopping_ = false;
  std::atomic<int> connections_ = 0;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

// A server that says `answer` to whatever comes first, and closes the connection or keeps it open without another word.
inline std::unique_ptr<RawServer> answering(std::string answer, bool hangsAfterwards = false) {
  return std::make_unique<RawServer>([answer = std::move(answer), hangsAfterwards](RawServer& server, int connection) {
    if (!RawServer::receive(connection).empty()) RawServer::send(connection, answer);
    if (hangsAfterwards) server.hang();
  });
}

}  // namespace wayloom::posix
