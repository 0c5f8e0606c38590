#include "tools/serve/ServerConnection.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace wayloom::tools {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience{30'000};     // with a client that stands still in the middle of an answer
constexpr milliseconds kRequestTime{60'000};  // for all of a request to come in, however it drips
constexpr milliseconds kFarewell{1'000};
constexpr std::size_t kLargestRequest = 32U << 20U;
constexpr milliseconds kLongestHang = std::chrono::hours(1);
constexpr milliseconds kRateStep{50};
constexpr std::size_t kReadAhead = 16'384;

void describe(const sockaddr_storage& address, std::string& ip, int& port) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (address.ss_family == AF_INET6) {
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    ::inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
    port = ntohs(six.sin6_port);
  } else {
    const auto& four = reinterpret_cast<const sockaddr_in&>(address);
    ::inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
    port = ntohs(four.sin_port);
  }
  ip = text.data();
}

using NameOf = int (*)(int, sockaddr*, socklen_t*);

void describePeer(NameOf nameOf, int socket, std::string& ip, int& port) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  if (nameOf(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0) describe(address, ip, port);
}

}  // namespace

bool ServerConnection::awaitRequest(milliseconds patience) {
  fault_ = {};
  sent_ = 0;
  if (isBroken_ || !(hasReadAhead() || await(POLLIN, patience))) return false;
  taken_ = 0;
  requestEnd_ = std::chrono::steady_clock::now() + kRequestTime;
  return true;
}

bool ServerConnection::await(short events, milliseconds patience) const {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::array<pollfd, 2> descriptors{pollfd{socket_.get(), events, 0}, pollfd{stop_.get(), POLLIN, 0}};
  for (;;) {
    const auto left =
        std::max(std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()), milliseconds(0));
    const int count = ::poll(descriptors.data(), descriptors.size(), static_cast<int>(left.count()));
    if (count < 0 && errno == EINTR) continue;
    // Data that came before the client hung up can still be read.
    return count > 0 && descriptors[1].revents == 0 && (descriptors[0].revents & events) != 0;
  }
}

// The headers are asked for byte by byte.
ssize_t ServerConnection::read(char* bytes, size_t size) {
  if (!hasReadAhead() && !readAhead()) return -1;
  const auto count = received_.copy(bytes, size, consumed_);
  consumed_ += count;
  return static_cast<ssize_t>(count);
}

bool ServerConnection::readAhead() {
  const auto left = std::chrono::ceil<milliseconds>(requestEnd_ - std::chrono::steady_clock::now());
  if (isBroken_ || taken_ > kLargestRequest || !await(POLLIN, std::min(kPatience, left))) return false;
  received_.resize(kReadAhead);
  const auto count = ::recv(socket_.get(), received_.data(), received_.size(), 0);
  received_.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  consumed_ = 0;
  taken_ += received_.size();
  return count > 0;
}

void ServerConnection::end() {
  isBroken_ = true;
  ::shutdown(socket_.get(), SHUT_WR);
  const auto deadline = std::chrono::steady_clock::now() + kFarewell;
  std::array<char, kReadAhead> rest{};
  while (std::chrono::steady_clock::now() < deadline && await(POLLIN, kFarewell) &&
         ::recv(socket_.get(), rest.data(), rest.size(), 0) > 0) {
  }
}

ssize_t ServerConnection::write(const char* bytes, size_t size) {
  if (isBroken_ || !begin()) return -1;
  const std::string noise = fault_.spoilsAll ? randomBytes(size, fault_.seed + sent_) : std::string();
  auto rest = fault_.spoilsAll ? std::string_view(noise) : std::string_view(bytes, size);
  const bool isCut = fault_.cut && sent_ + size > *fault_.cut;
  if (isCut) rest = rest.substr(0, *fault_.cut - sent_);
  isBroken_ = !(fault_.rate ? sendAtRate(rest, *fault_.rate) : send(rest)) || isCut;
  return isBroken_ ? -1 : static_cast<ssize_t>(size);
}

// What has to pass before the first byte of an answer.
bool ServerConnection::begin() {
  if (sent_ > 0) return true;
  if (fault_.hangs) {
    await(POLLRDHUP, kLongestHang);
    isBroken_ = true;
  } else if (fault_.slow > platform::Duration::zero()) {
    // Whether the client hangs up meanwhile is seen when something is sent.
    pollfd stop{stop_.get(), POLLIN, 0};
    isBroken_ = ::poll(&stop, 1, static_cast<int>(std::chrono::ceil<milliseconds>(fault_.slow).count())) != 0;
  }
  return !isBroken_;
}

bool ServerConnection::sendAtRate(std::string_view bytes, std::size_t bytesASecond) {
  const auto step = std::max<std::size_t>(bytesASecond * kRateStep.count() / 1000, 1);
  const milliseconds pause(1000 * step / bytesASecond);
  for (; !bytes.empty(); bytes.remove_prefix(std::min(step, bytes.size()))) {
    pollfd stop{stop_.get(), POLLIN, 0};
    if (::poll(&stop, 1, static_cast<int>(pause.count())) != 0 || !send(bytes.substr(0, step))) return false;
  }
  return true;
}

bool ServerConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!await(POLLOUT, kPatience)) return false;
    const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
    const auto sent = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    sent_ += sent;
    bytes.remove_prefix(sent);
  }
  return true;
}

void ServerConnection::get_remote_ip_and_port(std::string& ip, int& port) const {
  describePeer(::getpeername, socket_.get(), ip, port);
}

void ServerConnection::get_local_ip_and_port(std::string& ip, int& port) const {
  describePeer(::getsockname, socket_.get(), ip, port);
}

std::string randomBytes(std::size_t count, std::uint64_t seed) {
  sim::SeededRandom random(seed, 1);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random.index(256));
  return bytes;
}

}  // namespace wayloom::tools
