#include "wayloom/posix/CurlHttpClient.hpp"

#include <utility>

#include "wayloom/platform/TaskScope.hpp"

#include "backends/posix/CurlTransfer.hpp"
#include "backends/posix/CurlWorker.hpp"

namespace wayloom::posix {
namespace {

using platform::HttpRequest;
using platform::HttpResponse;

// Owns one request's right to be answered. While the sink runs, drop() waits, so that the scope is there for it.
class CurlTask : public platform::HttpTask {
 public:
  CurlTask(std::shared_ptr<CurlWorker> worker, CurlTransferPtr transfer, platform::TaskQueue& queue,
           platform::HttpClient::Handler handler)
      : worker_(std::move(worker)), transfer_(std::move(transfer)) {
    transfer_->setSink([this, post = queue.poster(), handler = std::move(handler)](HttpResponse response) mutable {
      post(scope_.bind(
          [handler = std::move(handler), response = std::move(response)]() mutable { handler(std::move(response)); }));
    });
  }
  ~CurlTask() override {
    if (!transfer_->isExpected()) return;
    transfer_->drop();
    worker_->remove(std::move(transfer_));
  }

 private:
  const std::shared_ptr<CurlWorker> worker_;
  CurlTransferPtr transfer_;
  platform::TaskScope scope_;
};

}  // namespace

CurlHttpClient::CurlHttpClient(CurlHttpOptions options) : worker_(std::make_shared<CurlWorker>(std::move(options))) {
  worker_->start();
}

CurlHttpClient::~CurlHttpClient() { worker_->stop(); }

std::unique_ptr<platform::HttpTask> CurlHttpClient::send(HttpRequest request, platform::TaskQueue& queue,
                                                         Handler handler) {
  auto transfer = std::make_shared<CurlTransfer>(std::move(request), worker_->options());
  auto task = std::make_unique<CurlTask>(worker_, transfer, queue, std::move(handler));
  if (transfer->refusal())
    transfer->deliver({0, {}, {}, transfer->refusal()});
  else
    worker_->add(std::move(transfer));
  return task;
}

}  // namespace wayloom::posix
