#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Error.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/Json.hpp"

namespace wayloom {

namespace platform {
class AnswerCache;
class HttpTransfers;
class Platform;
}  // namespace platform

// The region engine's client for its JSON servers. The last good answer to each URL is kept in a file of the
// Documents directory, named after the URL's path, and stands in when a request fails; of URLs that share a file, the
// last one that was answered has it. An absent URL fails like a malformed one.
//
// Any thread. Handlers run one at a time, on a serial queue of this object's own. Destruction, which a handler may
// cause too, cancels what is under way: no handler follows, and one that runs on another thread is waited for.
class TGFAPIRequest {
 public:
  // An error or none; a document or none, both when a request failed and an earlier answer stands in.
  using Handler = std::function<void(std::optional<platform::Error> error, std::optional<platform::Json> document)>;
  using Url = std::optional<std::string>;
  using Bytes = std::optional<std::string>;

  TGFAPIRequest(platform::Platform& platform, std::optional<std::string> token);
  ~TGFAPIRequest();
  TGFAPIRequest(const TGFAPIRequest&) = delete;
  TGFAPIRequest& operator=(const TGFAPIRequest&) = delete;

  // The token of the requests that follow.
  void setApiToken(std::optional<std::string> token);

  // Starts a GET and returns. The handler runs once, with what the server answered: the HTTP status is not looked at.
  void getHandler(const Url& url, Handler handler);

  // Posts and blocks until the answer is there; nothing when the transfer failed. An answer that is too large to be
  // taken is an empty one. Not for the main thread.
  Bytes postBody(const Url& url, std::string body);
  // The same without blocking; the handler runs once.
  using PostHandler = std::function<void(Bytes answer)>;
  void postBodyHandler(const Url& url, std::string body, PostHandler handler);

  // An array or object; nothing, with a log line, for anything else, and nothing for no bytes.
  std::optional<platform::Json> parseResponse(std::optional<std::string_view> bytes);

  // The name and the path of the URL's cache file; nothing, with a log line, when the URL's path can't name one.
  std::optional<std::string> fileNameFrom(const Url& url);
  std::optional<std::string> pathToFileForURL(const Url& url);
  void writeToDiskFromURL(std::string_view bytes, const Url& url);  // a failure is logged
  Bytes readFromDisk(const Url& url);                               // nothing when the file is another URL's

 private:
  platform::HttpRequest makeRequest(std::string method, const Url& url) const;
  platform::HttpRequest makePost(const Url& url, std::string body) const;
  void processResponseDataErrorUrlHandler(const std::string& bytes, std::optional<platform::Error> error,
                                          const Url& url, const Handler& handler);

  platform::Platform& platform_;
  mutable std::mutex mutex_;
  std::optional<std::string> apiToken_;  // under the mutex
  std::unique_ptr<platform::AnswerCache> cache_;
  std::unique_ptr<platform::HttpTransfers> transfers_;
};

}  // namespace wayloom
