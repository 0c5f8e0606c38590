// A real web server on the loopback interface, with a configuration of the test's own.
#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <netinet/in.h>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/sim/SimVenue.hpp"

namespace wayloom::test {

class Nginx {
 public:
  // Serves the folder at "/"; `locations` are further blocks of the server's configuration. Waits until it listens.
  explicit Nginx(const std::string& root, const std::string& locations = {}) {
    for (int attempt = 0; attempt < 5 && !isListening_; ++attempt) start(root, locations);
  }
  ~Nginx() { stop(); }
  Nginx(const Nginx&) = delete;
  Nginx& operator=(const Nginx&) = delete;

  // "http://127.0.0.1:40123"
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  bool isListening() const { return isListening_; }

 private:
  static sockaddr_in address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
  }

  static int freePort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    auto any = address(0);
    socklen_t length = sizeof any;
    ::bind(socket, reinterpret_cast<sockaddr*>(&any), length);
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&any), &length);
    ::close(socket);
    return ntohs(any.sin_port);
  }

  static bool accepts(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    const auto there = address(port);
    const bool connected = ::connect(socket, reinterpret_cast<const sockaddr*>(&there), sizeof there) == 0;
    ::close(socket);
    return connected;
  }

  void start(const std::string& root, const std::string& locations) {
    stop();
    port_ = freePort();
    std::string temporaries;
    for (const std::string kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
      temporaries += kind + "_temp_path " + folder_.path() + "/" + kind + ";\n";
    folder_.write("nginx.conf", "daemon off; master_process off; worker_processes 1;\nerror_log stderr crit; pid " +
                                    folder_.path() +
                                    "/pid;\nevents { worker_connections 256; }\nhttp { access_log off; " + temporaries +
                                    "server { listen 127.0.0.1:" + std::to_string(port_) + "; root " + root + ";\n" +
                                    locations + "} }\n");
    const std::string configuration = folder_.path() + "/nginx.conf";
    std::string words[] = {"nginx", "-p", folder_.path(), "-c", configuration};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), words[4].data(), nullptr};
    if (::posix_spawn(&process_, "/usr/sbin/nginx", nullptr, nullptr, arguments, environ) != 0) process_ = -1;
    for (int wait = 0; wait < 200 && process_ > 0 && !isListening_; ++wait) {
      isListening_ = accepts(port_);
      if (!isListening_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  void stop() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }

  sim::TestFolder folder_;
  pid_t process_ = -1;
  int port_ = 0;
  bool isListening_ = false;
};

}  // namespace wayloom::test
