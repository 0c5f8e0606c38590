#include "tools/replay/RequestJournal.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/posix/PosixClocks.hpp"

#include "backends/sim/JsonText.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;

constexpr mode_t kForOwner = 0600;

std::string lineOf(const ReceivedRequest& request) {
  Json line = {{"t", platform::secondsSince1970(posix::PosixCalendarClock().now())}, {"status", request.status}};
  if (!request.fault.empty()) line["fault"] = request.fault;
  line["path"] = request.path;
  auto& headers = line["headers"] = Json::object();
  for (const auto& [name, value] : request.headers) headers[name] = value;
  if (auto body = platform::parseJson(request.body); body.value)
    line["body"] = std::move(*body.value);
  else
    line["body_text"] = request.body;
  return sim::jsonText(line) + "\n";
}

}  // namespace

RequestJournal::RequestJournal(const std::string& path)
    : file_(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, kForOwner)) {
  if (!file_) throw std::system_error(errno, std::generic_category(), path);
  struct stat status {};
  char last = '\n';
  if (::fstat(file_.get(), &status) == 0 && status.st_size > 0)
    isTorn_ = ::pread(file_.get(), &last, 1, status.st_size - 1) == 1 && last != '\n';
}

int RequestJournal::keep(const ReceivedRequest& request) {
  const std::lock_guard lock(mutex_);
  const auto line = (isTorn_ ? "\n" : "") + lineOf(request);
  const auto count = ::write(file_.get(), line.data(), line.size());
  if (count == static_cast<ssize_t>(line.size())) {
    isTorn_ = false;
    return 0;
  }
  if (count < 0) return errno;
  if (count > 0) isTorn_ = line[static_cast<std::size_t>(count) - 1] != '\n';
  return ENOSPC;
}

}  // namespace wayloom::tools
