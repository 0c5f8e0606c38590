#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wayloom/platform/Error.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// The value of the first header of that name, compared without case; null when there is none.
const std::string* findHeader(const HttpHeaders& headers, std::string_view name);

struct HttpRequest {
  std::string method = "GET";  // "GET", "HEAD" or "POST"
  std::string url = {};        // absolute; an empty or malformed one fails with an error
  HttpHeaders headers = {};
  std::string body = {};
  Duration timeout = std::chrono::seconds(60);  // without any progress; ten times as long as a whole
};

// What came back. With an error (no route, time-out, too large, ...) status is 0 and the rest may be empty. A status
// of 400 or more is not an error here.
struct HttpResponse {
  int status = 0;
  HttpHeaders headers;
  std::string body;
  std::optional<Error> error;  // domain "HTTP"

  // The first header of that name, compared without case.
  std::optional<std::string> header(std::string_view name) const;
};

// A request under way. Destruction cancels it, and no callback follows; a callback that is running on another thread
// is waited for.
class HttpTask {
 public:
  virtual ~HttpTask() = default;
};

class HttpClient {
 public:
  using Handler = std::function<void(HttpResponse)>;

  virtual ~HttpClient() = default;

  // Starts the request and returns; the handler runs once, on the queue, never inside send(). Any thread. Bodies over
  // kMaximumHttpBody bytes fail with an error.
  [[nodiscard]] virtual std::unique_ptr<HttpTask> send(HttpRequest request, TaskQueue& queue, Handler handler) = 0;

  // Blocks until the request has ended. Not for the main thread.
  virtual HttpResponse sendSynchronously(HttpRequest request) = 0;
};

inline constexpr std::size_t kMaximumHttpBody = 256U << 20U;

}  // namespace wayloom::platform
