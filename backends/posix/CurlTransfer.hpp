// One HTTP request on its way through libcurl.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <curl/curl.h>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/posix/CurlHttpClient.hpp"

namespace wayloom::posix {

struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

class CurlTransfer;
using CurlTransferPtr = std::shared_ptr<CurlTransfer>;

class CurlTransfer {
 public:
  using Clock = std::chrono::steady_clock;
  using Sink = std::function<void(platform::HttpResponse)>;

  CurlTransfer(platform::HttpRequest request, const CurlHttpOptions& options);

  // Why the request can't be sent at all; nothing when it can.
  const std::optional<platform::Error>& refusal() const { return refusal_; }

  // Where the response goes. Called at most once, under a lock that drop() takes: after drop() has returned, it is
  // neither running, unless on the calling thread, nor called any more.
  void setSink(Sink sink);
  void deliver(platform::HttpResponse response);
  void drop();
  bool isExpected();  // whether neither has happened

  // The rest is for the worker thread, which notes here where it keeps the transfer.
  enum class Stage { added, waiting, active, over };
  Stage stage = Stage::added;
  std::list<CurlTransferPtr>::iterator place = {};

  const std::string& origin() const { return origin_; }  // scheme, host and port; a redirect may change it
  Clock::time_point end() const { return end_; }         // of the whole, from the request's making on
  Clock::time_point deadline() const { return std::min(lastProgress_ + timeout_, end_); }  // while it is active

  // Sets all options of a fresh or reset handle; false when there is no memory for that.
  bool start(CURL* easy, const CurlHttpOptions& options);
  CURL* release() { return std::exchange(easy_, nullptr); }
  // Where a response that came without an error leads to, if anywhere; and making that the transfer's own address.
  std::optional<std::string> redirection() const;
  std::optional<platform::Error> redirect(std::string url);
  platform::HttpResponse finish(CURLcode outcome);

  static platform::HttpResponse failure(CURLcode code, std::string description);

 private:
  static std::size_t receiveHeader(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t receiveBody(char* bytes, std::size_t size, std::size_t count, void* self);
  static int noteProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent);

  std::optional<platform::Error> findOrigin();
  std::optional<platform::Error> buildHeaders(const platform::HttpHeaders& given);
  bool takeHeader(std::string_view line);
  bool takeBody(std::string_view bytes);
  bool setMethod();

  platform::HttpRequest request_;
  const std::size_t maximumBody_;
  const Clock::duration timeout_;
  std::unique_ptr<curl_slist, SlistDeleter> headers_;
  std::string origin_;
  std::optional<platform::Error> refusal_;
  int redirects_ = 0;

  // Recursive: a queue that shuts down destroys the delivering task, and with it perhaps the owner, inside the sink.
  std::recursive_mutex mutex_;
  Sink sink_;

  CURL* easy_ = nullptr;  // null while none is at work
  platform::HttpResponse response_;
  std::size_t headerBytes_ = 0;
  std::string overflow_;  // what was too large
  curl_off_t progress_ = 0;
  const Clock::time_point end_;
  Clock::time_point lastProgress_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
};

}  // namespace wayloom::posix
