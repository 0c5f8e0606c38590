#include "tools/replay/RequestJournal.hpp"

#include <cerrno>
#include <fcntl.h>
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
    : file_(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kForOwner)) {
  if (!file_) throw std::system_error(errno, std::generic_category(), path);
}

bool RequestJournal::keep(const ReceivedRequest& request) const {
  const auto line = lineOf(request);
  return ::write(file_.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

}  // namespace wayloom::tools
