#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/status/TPLAPIRequest.hpp"
#include "wayloom/status/TPLBeaconSession.hpp"

namespace wayloom {

// Makes one document of beacon sessions, and posts it to the status server. One thread at a time; destruction cancels
// what asyncSendEventsHandler() began.
class TPLStatusUploader {
 public:
  using Sessions = std::vector<TPLBeaconSession>;

  // A URL that is malformed counts as none.
  TPLStatusUploader(platform::Platform& platform, std::optional<std::string> url, std::optional<std::string> token);

  const std::optional<std::string>& url() const { return url_; }
  TPLAPIRequest& api() { return api_; }
  bool haveURL() const;  // says so in the log when there is none

  // Blocks until the server has answered; an error when it has not. Without a URL or sessions there is nothing to send,
  // which is no error. Not for the main thread.
  std::optional<platform::Error> sendEvents(const Sessions& sessions);
  // The same without blocking, see TPLAPIRequest::startPost(). Null, and no call, when there is nothing to send.
  [[nodiscard]] std::unique_ptr<platform::HttpTask> startSending(const Sessions& sessions, platform::TaskQueue& queue,
                                                                 TPLAPIRequest::PostHandler handler);
  // Sends twice, see TPLAPIRequest::postBodyHandler(). When there is nothing to send, the handler is called at once
  // with neither error nor document.
  void asyncSendEventsHandler(const Sessions& sessions, TPLAPIRequest::Handler handler);

  std::string jsonForEvents(const Sessions& sessions) const;
  platform::Json buildBodyWithEvents(const Sessions& sessions) const;
  platform::Json buildSessionEvents(const Sessions& sessions) const;

 private:
  bool hasNothingFor(const Sessions& sessions) const { return !haveURL() || sessions.empty(); }

  platform::Platform& platform_;
  const std::optional<std::string> url_;
  TPLAPIRequest api_;
};

}  // namespace wayloom
