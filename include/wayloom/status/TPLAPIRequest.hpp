#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Error.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom {

namespace platform {
class AnswerCache;
class HttpTransfers;
class Platform;
}  // namespace platform

// Requests to a status server, with its token and this device's identifier in their headers. An absent URL fails like a
// malformed one; the HTTP status is never looked at.
//
// Any thread. Destruction, which a handler may cause too, cancels what is under way: no handler follows, and one that
// runs on another thread is waited for.
class TPLAPIRequest {
 public:
  // An error or none; a document or none, both when a request failed and an earlier answer stands in.
  using Handler = std::function<void(std::optional<platform::Error> error, std::optional<platform::Json> document)>;
  using Url = std::optional<std::string>;

  TPLAPIRequest(platform::Platform& platform, std::optional<std::string> token);
  ~TPLAPIRequest();
  TPLAPIRequest(const TPLAPIRequest&) = delete;
  TPLAPIRequest& operator=(const TPLAPIRequest&) = delete;

  platform::HttpRequest newApiRequest(const Url& url) const;
  platform::HttpRequest newPostRequest(const Url& url) const;

  // Blocks until the server has answered, whatever it says; an error when it has not. Not for the main thread.
  std::optional<platform::Error> postSyncBody(const Url& url, std::string json);
  // The same without blocking: the handler runs on the queue, unless the returned task has been destroyed before.
  using PostHandler = std::function<void(std::optional<platform::Error> error)>;
  [[nodiscard]] std::unique_ptr<platform::HttpTask> startPost(const Url& url, std::string json,
                                                              platform::TaskQueue& queue, PostHandler handler);

  // Send the request twice, the first time without heeding the answer. The handler runs once, on a serial queue of this
  // object's own, with the second answer, which is kept in a file of the Documents directory and stands in when a later
  // request to the URL fails.
  void getHandler(const Url& url, Handler handler);
  void postBodyHandler(const Url& url, std::string json, Handler handler);

  // An array or object; nothing for anything else.
  std::optional<platform::Json> parseResponse(const std::optional<std::string>& bytes) const;
  // Nothing when the URL's path can't name a file.
  std::optional<std::string> fileNameFrom(const Url& url) const;
  void writeToDiskFromURL(std::string_view bytes, const Url& url);
  std::optional<std::string> readFromDisk(const Url& url) const;

  // What is done with an answer: it is kept, or an earlier one read, then the handler is called.
  void processResponseDataErrorUrlHandler(const std::string& bytes, std::optional<platform::Error> error,
                                          const Url& url, const Handler& handler);

  const std::optional<std::string>& apiToken() const { return apiToken_; }

 private:
  void sendTwice(const platform::HttpRequest& request, const Url& url, Handler handler);

  platform::Platform& platform_;
  const std::optional<std::string> apiToken_;
  std::unique_ptr<platform::AnswerCache> cache_;
  std::unique_ptr<platform::HttpTransfers> transfers_;
};

}  // namespace wayloom
