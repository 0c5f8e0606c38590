// The downloads of TWLMapConfigRepo.
#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/Platform.hpp"

namespace wayloom {
namespace {

using platform::Error;
using platform::HttpResponse;

platform::HttpRequest requestFor(std::string method, const std::string& url, std::size_t largest) {
  platform::HttpRequest request;
  request.method = std::move(method);
  request.url = url;
  request.maximumBody = largest;
  return request;
}

TWLMapConfigRepo::Date lastModified(const HttpResponse& response) {
  return TWLMapConfigRepo::dateFrom(response.header("Last-Modified"));
}

std::optional<std::string> bodyOf(HttpResponse& response) {
  if (response.error) return std::nullopt;
  return std::move(response.body);
}

std::unique_ptr<platform::HttpTask> download(platform::Platform& platform, const std::string& url, std::size_t largest,
                                             TWLMapConfigRepo::DownloadHandler handler) {
  return platform.http().send(requestFor("GET", url, largest), platform.tasks().mainQueue(),
                              [handler = std::move(handler)](HttpResponse response) {
                                auto body = bodyOf(response);
                                handler(lastModified(response), std::move(body), std::move(response.error));
                              });
}

// A question for the date, then perhaps the download. The question goes first, so that no download begins afterwards.
class ConditionalDownload : public platform::HttpTask {
 public:
  ConditionalDownload(platform::Platform& platform, const std::string& url, std::size_t largest,
                      TWLMapConfigRepo::Date date, TWLMapConfigRepo::DownloadHandler handler)
      : platform_(platform), url_(url), largest_(largest), date_(date), handler_(std::move(handler)) {
    question_ = platform.http().send(requestFor("HEAD", url_, largest_), platform.tasks().mainQueue(),
                                     [this](HttpResponse response) { answered(std::move(response)); });
  }

 private:
  // The handler comes last and may destroy this object.
  void answered(HttpResponse response) {
    const auto handler = handler_;
    if (response.error) return handler(std::nullopt, std::move(response.body), std::move(response.error));
    const auto modified = lastModified(response);
    if (!modified)
      return handler(std::nullopt, std::nullopt, Error{"Wayl", 0, "Server didn't include a 'Last-Modified' header."});
    if (date_ && *date_ < *modified)
      download_ = download(platform_, url_, largest_, handler);
    else
      handler(modified, std::nullopt, std::nullopt);
  }

  platform::Platform& platform_;
  const std::string url_;
  const std::size_t largest_;
  const TWLMapConfigRepo::Date date_;
  const TWLMapConfigRepo::DownloadHandler handler_;
  std::unique_ptr<platform::HttpTask> download_;
  std::unique_ptr<platform::HttpTask> question_;
};

}  // namespace

// The document has the limits of documents; anything else is an image.
std::size_t TWLMapConfigRepo::largestBody(const std::string& url) const {
  return url == updateUrl() ? platform_.documentLimits().bytes : platform::kMaximumHttpBody;
}

std::unique_ptr<platform::HttpTask> TWLMapConfigRepo::loadFromUrlCompletionHandler(const std::string& url,
                                                                                   DownloadHandler handler) {
  return download(platform_, url, largestBody(url), std::move(handler));
}

std::unique_ptr<platform::HttpTask> TWLMapConfigRepo::loadFromUrlIfNewerThanCompletionHandler(const std::string& url,
                                                                                              Date date,
                                                                                              DownloadHandler handler) {
  return std::make_unique<ConditionalDownload>(platform_, url, largestBody(url), date, std::move(handler));
}

}  // namespace wayloom
