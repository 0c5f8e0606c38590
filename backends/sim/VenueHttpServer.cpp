#include "wayloom/sim/VenueHttpServer.hpp"

#include <utility>

#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Url.hpp"

#include "backends/sim/VenueFiles.hpp"
#include "platform/HttpDate.hpp"

namespace wayloom::sim {
namespace {

using platform::HttpRequest;
using platform::HttpResponse;
using platform::Task;

// The numbers of libcurl, as the client over a real network has them.
constexpr int kMalformedUrl = 3;
constexpr int kNoRoute = 6;

HttpResponse failure(int code, const char* description) {
  HttpResponse response;
  response.error = platform::Error{"HTTP", code, description};
  return response;
}

HttpResponse emptyAnswer(int status) {
  HttpResponse response;
  response.status = status;
  response.headers = {{"Content-Length", "0"}};
  return response;
}

bool isAbsolute(const std::string& url) {
  return platform::isWellFormedUrl(url) && (url.starts_with("http://") || url.starts_with("https://"));
}

// A request on its way. The timer, when there is one, ends with it; a task that is queued already finds the scope gone.
class PendingRequest : public platform::HttpTask {
 public:
  PendingRequest(platform::TaskScheduler& tasks, platform::TaskQueue& queue, platform::Duration latency, Task answer) {
    auto task = scope_.bind(std::move(answer));
    if (latency > platform::Duration::zero())
      timer_ = tasks.startTimer(queue, latency, std::nullopt, std::move(task));
    else
      queue.async(std::move(task));
  }

 private:
  std::unique_ptr<platform::Timer> timer_;
  platform::TaskScope scope_;
};

}  // namespace

VenueHttpServer::VenueHttpServer(std::shared_ptr<platform::TaskScheduler> tasks,
                                 std::shared_ptr<const platform::FileManager> files, std::string venueFolder,
                                 const platform::PropertyListReader& propertyLists)
    : tasks_(std::move(tasks)),
      files_(std::move(files)),
      venue_(std::make_unique<VenueFiles>(std::move(venueFolder), propertyLists)) {}

VenueHttpServer::~VenueHttpServer() = default;

std::unique_ptr<platform::HttpTask> VenueHttpServer::send(HttpRequest request, platform::TaskQueue& queue,
                                                          Handler handler) {
  observe(request);
  return std::make_unique<PendingRequest>(
      *tasks_, queue, latency_,
      [this, request = std::move(request), handler = std::move(handler)] { handler(answer(request)); });
}

// The observer may replace itself, so a copy is called.
void VenueHttpServer::observe(const HttpRequest& request) const {
  if (const auto observer = observer_) observer(request);
}

HttpResponse VenueHttpServer::answer(const HttpRequest& request) const {
  if (!isAbsolute(request.url)) return failure(kMalformedUrl, "The URL is malformed");
  if (!networkUp_) return failure(kNoRoute, "The network is down");
  if (request.method == "POST") return emptyAnswer(200);
  const auto path = venue_->fileFor(request.url);
  auto content = path.empty() ? std::nullopt : files_->readFile(path);
  if (!content) return emptyAnswer(404);
  if (content->size() > request.maximumBody) return failure(platform::kHttpAnswerTooLarge, "The response is too large");
  HttpResponse response;
  response.status = 200;
  response.headers = {{"Content-Length", std::to_string(content->size())}};
  if (const auto modified = files_->modificationDate(path))
    response.headers.emplace_back("Last-Modified", platform::httpDate(*modified));
  if (request.method != "HEAD") response.body = std::move(*content);
  return response;
}

}  // namespace wayloom::sim
