#include "backends/linux/BusAddress.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace wayloom::linux_ {
namespace {

constexpr const char* kSystemBus = "unix:path=/run/dbus/system_bus_socket";

std::string systemBus() {
  const char* named = ::secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return named != nullptr && *named != '\0' ? named : kSystemBus;
}

// Cuts the text up to `separator` off the front of `rest`.
std::string_view cut(std::string_view& rest, char separator) {
  const auto end = std::min(rest.find(separator), rest.size());
  const auto front = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return front;
}

// The file of an entry "unix:path=FILE,...". None of another kind, and of one with escaped characters, which are rare.
std::optional<std::string> socketFile(std::string_view entry) {
  constexpr std::string_view kPath = "path=";
  if (cut(entry, ':') != "unix") return std::nullopt;
  while (!entry.empty()) {
    const auto pair = cut(entry, ',');
    if (pair.starts_with(kPath) && pair.find('%') == pair.npos) return std::string(pair.substr(kPath.size()));
  }
  return std::nullopt;
}

// 0 when somebody listens at the socket, or errno.
int connectionError(const std::string& file) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (file.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  file.copy(address.sun_path, file.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  const int error = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
  ::close(fd);
  return error == EAGAIN ? 0 : error;  // many are waiting already
}

}  // namespace

std::string busAbsence(const std::string& addresses) {
  const auto list = addresses.empty() ? systemBus() : addresses;
  std::string_view rest = list;
  std::string absence;
  while (!rest.empty()) {
    const auto file = socketFile(cut(rest, ';'));
    if (!file) return "";
    const int error = connectionError(*file);
    if (error == 0) return "";
    absence = "Failed to open bus (" + *file + ": " + std::generic_category().message(error) + ")";
  }
  return absence;
}

}  // namespace wayloom::linux_
