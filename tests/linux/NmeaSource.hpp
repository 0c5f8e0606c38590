#pragma once

#include <atomic>
#include <cmath>
#include <fmt/format.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace wayloom::tests {

// A satellite receiver: a unix socket that says four times a second where it is.
class NmeaSource {
 public:
  explicit NmeaSource(const std::string& path) : listener_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    ::listen(listener_, 1);
    thread_ = std::thread([this] { run(); });
  }
  ~NmeaSource() {
    ending_ = true;
    thread_.join();
    ::close(listener_);
  }
  NmeaSource(const NmeaSource&) = delete;
  NmeaSource& operator=(const NmeaSource&) = delete;

  void moveTo(double latitude, double longitude) {
    const std::lock_guard lock(mutex_);
    latitude_ = latitude;
    longitude_ = longitude;
  }

 private:
  void run() {
    while (!ending_) {
      pollfd watched{listener_, POLLIN, 0};
      if (::poll(&watched, 1, 100) <= 0) continue;
      const int peer = ::accept(listener_, nullptr, nullptr);
      while (!ending_ && say(peer)) std::this_thread::sleep_for(std::chrono::milliseconds(250));
      ::close(peer);
    }
  }

  bool say(int peer) {
    const auto text = sentence();
    return ::send(peer, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
  }

  // GGA: time, place, fix quality, satellites, horizontal dilution of precision.
  std::string sentence() {
    const auto now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    const std::lock_guard lock(mutex_);
    const auto minutes = [](double degrees) {
      return std::floor(degrees) * 100 + (degrees - std::floor(degrees)) * 60;
    };
    const auto body = fmt::format("GPGGA,{:02}{:02}{:02},{:09.4f},N,{:010.4f},E,1,08,1.0,10.0,M,0.0,M,,", utc.tm_hour,
                                  utc.tm_min, utc.tm_sec, minutes(latitude_), minutes(longitude_));
    unsigned checksum = 0;
    for (const char c : body) checksum ^= static_cast<unsigned char>(c);
    return fmt::format("${}*{:02X}\r\n", body, checksum);
  }

  int listener_;
  std::mutex mutex_;
  double latitude_ = 48.0;
  double longitude_ = 11.0;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace wayloom::tests
