#pragma once

#include <chrono>
#include <httplib.h>
#include <string>

#include "backends/posix/Descriptors.hpp"
#include "backends/posix/FileDescriptor.hpp"
#include "tools/serve/FaultRules.hpp"

namespace wayloom::tools {

// One client's connection to the development server. What it waits for ends at once when the server stops, and answers
// go through it the way a fault wants them. For the thread that serves it.
class ServerConnection : public httplib::Stream {
 public:
  // Owns the socket; `stop` is signalled for good when the server stops.
  ServerConnection(socket_t socket, const posix::EventDescriptor& stop) : socket_(socket), stop_(stop) {}

  // Whether the client sends anything within that time; all of its request has to come within a minute then. The next
  // answer has no fault.
  bool awaitRequest(std::chrono::milliseconds patience);
  // The fault of the answer to come.
  void spoil(const Fault& fault) { fault_ = fault; }
  // Ends it after an answer that leaves a part of the request unread. That is thrown away for a moment: a client that
  // still sends would not see the answer.
  void end();
  // Whether nothing more can be sent.
  bool isBroken() const { return isBroken_; }

  bool is_readable() const override { return !isBroken_; }
  bool is_writable() const override { return !isBroken_; }
  ssize_t read(char* bytes, size_t size) override;
  ssize_t write(const char* bytes, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_.get(); }

 private:
  bool hasReadAhead() const { return consumed_ < received_.size(); }
  bool readAhead();
  // Waits for events of the socket; false when the time is over, the server stops or the socket has failed.
  bool await(short events, std::chrono::milliseconds patience) const;
  bool begin();
  bool sendAtRate(std::string_view bytes, std::size_t bytesASecond);
  bool send(std::string_view bytes);

  posix::FileDescriptor socket_;
  const posix::EventDescriptor& stop_;
  std::string received_;      // read ahead
  std::size_t consumed_ = 0;  // bytes of `received_`
  Fault fault_;
  std::size_t sent_ = 0;   // bytes of this answer
  std::size_t taken_ = 0;  // bytes of this request
  std::chrono::steady_clock::time_point requestEnd_;
  bool isBroken_ = false;
};

// That many bytes drawn from the seed.
std::string randomBytes(std::size_t count, std::uint64_t seed);

}  // namespace wayloom::tools
