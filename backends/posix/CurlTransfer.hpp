// One HTTP request on its way through libcurl.
#pragma once

#include <array>
#include <chrono>
#include <curl/curl.h>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/posix/CurlHttpClient.hpp"

namespace wayloom::posix {

struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

class CurlTransfer {
 public:
  using Clock = std::chrono::steady_clock;
  using Sink = std::function<void(platform::HttpResponse)>;

  CurlTransfer(platform::HttpRequest request, const CurlHttpOptions& options);

  // Why the request can't be sent at all; nothing when it can.
  const std::optional<platform::Error>& refusal() const { return refusal_; }
  const std::string& origin() const { return origin_; }  // scheme, host and port

  // Where the response goes. Called at most once, under a lock that drop() takes: after drop() has returned, it is
  // neither running, unless on the calling thread, nor called any more.
  void setSink(Sink sink);
  void deliver(platform::HttpResponse response);
  void drop();
  bool isExpected();  // whether neither has happened

  // The rest is for the worker thread. start() sets all that differs between requests.
  void start(CURL* easy);
  platform::HttpResponse finish(CURLcode outcome);
  CURL* easy() const { return easy_; }  // null while none is at work
  CURL* release() { return std::exchange(easy_, nullptr); }
  Clock::time_point deadline() const { return lastProgress_ + timeout_; }

  static platform::HttpResponse failure(CURLcode code, std::string description);
  // What is the same for all requests; once for each easy handle.
  static void configure(CURL* easy, const CurlHttpOptions& options);

 private:
  static std::size_t receiveHeader(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t receiveBody(char* bytes, std::size_t size, std::size_t count, void* self);
  static int noteProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent);

  std::optional<platform::Error> findOrigin();
  std::optional<platform::Error> buildHeaders();
  bool takeHeader(std::string_view line);
  bool takeBody(std::string_view bytes);
  void setMethod();

  const platform::HttpRequest request_;
  const std::size_t maximumBody_;
  const Clock::duration timeout_;
  std::unique_ptr<curl_slist, SlistDeleter> headers_;
  std::string origin_;
  std::optional<platform::Error> refusal_;

  // Recursive: a queue that shuts down destroys the delivering task, and with it perhaps the owner, inside the sink.
  std::recursive_mutex mutex_;
  Sink sink_;

  CURL* easy_ = nullptr;
  platform::HttpResponse response_;
  std::size_t headerBytes_ = 0;
  std::string overflow_;  // what was too large
  curl_off_t progress_ = 0;
  Clock::time_point lastProgress_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
};

using CurlTransferPtr = std::shared_ptr<CurlTransfer>;

}  // namespace wayloom::posix
