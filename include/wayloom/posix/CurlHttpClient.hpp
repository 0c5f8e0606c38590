#pragma once

#include <memory>
#include <string>

#include "wayloom/platform/HttpClient.hpp"

namespace wayloom::posix {

class CurlWorker;

struct CurlHttpOptions {
  std::size_t maximumBody = platform::kMaximumHttpBody;  // bytes, after decompression
  // PEM file of the certificate authorities to trust in place of the system's. Certificates are always checked.
  std::string certificateAuthorities = {};
};

// HTTP over the network, by libcurl. One worker thread carries all requests; up to sixteen at a time go to one server,
// the others wait for their turn: their time-out then begins with the turn, ten times of it with send().
//
//  - Only http and https. GET and HEAD follow up to ten redirects, never from https to http, and leave the request's
//    headers behind when one leads to another scheme, host or port; a POST follows none and returns the redirect as its
//    response.
//  - Headers are sent as given, and besides them only Host, Accept, Accept-Encoding, User-Agent and Content-Length,
//    where the request has none of its own. A header with a line end or of a malformed name fails the request.
//  - A request whose connection stands still for its time-out fails, and so does one that takes ten times as long as a
//    whole, waiting and redirects included. What is cancelled while it waits is gone at once.
//  - Bodies arrive decompressed; one that is cut off is an error.
//
// Errors have the code of libcurl's CURLcode. Destroying the client ends every request of it with an error and waits
// for no server. HttpTasks may outlive the client, and the queue that was given to send().
class CurlHttpClient : public platform::HttpClient {
 public:
  // Throws std::system_error when the system gives no descriptors or no thread.
  explicit CurlHttpClient(CurlHttpOptions options = {});
  ~CurlHttpClient() override;

  [[nodiscard]] std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                                         Handler handler) override;

 private:
  std::shared_ptr<CurlWorker> worker_;
};

}  // namespace wayloom::posix
