#pragma once

#include <cstddef>
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

inline constexpr std::size_t kMaximumHttpBody = 256U << 20U;  // bytes

struct HttpRequest {
  std::string method = "GET";  // "GET", "HEAD" or "POST"
  std::string url = {};        // absolute; an empty or malformed one fails with an error
  HttpHeaders headers = {};
  std::string body = {};
  // Without any progress while it has a connection. Ten times as long as a whole, from send() on: a request that waits
  // for its turn at a silent server ends, too.
  Duration timeout = std::chrono::seconds(60);
  // Of the answer, after decompression; a longer one is an error.
  std::size_t maximumBody = kMaximumHttpBody;
};

// The code of the error that an answer beyond the size limit ends with.
inline constexpr int kHttpAnswerTooLarge = 63;

// What came back. With an error (no route, time-out, too large, ...) status is 0 and the rest may be empty. A status
// of 400 or more is not an error here.
struct HttpResponse {
  int status = 0;
  HttpHeaders headers;
  std::string body;
  std::optional<Error> error;  // domain "HTTP"

  // The first header of that name, compared without case.
  std::optional<std::string> header(std::string_view name) const;
  // Whether the request has reached a server, which has answered: also when the answer was too large to be taken.
  bool isAnswered() const { return !error || error->code == kHttpAnswerTooLarge; }
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

  // Starts the request and returns; the handler runs once, on the queue, never inside send(); not at all when the queue
  // is gone by then. Any thread.
  [[nodiscard]] virtual std::unique_ptr<HttpTask> send(HttpRequest request, TaskQueue& queue, Handler handler) = 0;
};

// Sends and blocks the calling thread until the request has ended; with an error, when the scheduler shuts down
// meanwhile. Not for the main thread. A thread of the scheduler is made up for by another one, as in any wait.
HttpResponse sendSynchronously(HttpClient& client, TaskScheduler& tasks, HttpRequest request);

}  // namespace wayloom::platform
