#include "wayloom/posix/CurlHttpClient.hpp"

#include <condition_variable>
#include <mutex>
#include <optional>
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
    transfer_->setSink([this, &queue, handler = std::move(handler)](HttpResponse response) mutable {
      queue.async(scope_.bind(
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

// A place that one thread waits at for a response.
class ResponseSlot {
 public:
  void put(HttpResponse response) {
    const std::lock_guard lock(mutex_);
    response_ = std::move(response);
    arrived_.notify_one();
  }
  HttpResponse take() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return response_.has_value(); });
    return std::move(*response_);
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::optional<HttpResponse> response_;
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

HttpResponse CurlHttpClient::sendSynchronously(HttpRequest request) {
  auto transfer = std::make_shared<CurlTransfer>(std::move(request), worker_->options());
  if (transfer->refusal()) return {0, {}, {}, transfer->refusal()};
  ResponseSlot slot;
  transfer->setSink([&slot](HttpResponse response) { slot.put(std::move(response)); });
  worker_->add(transfer);
  auto response = slot.take();
  transfer->drop();  // the worker may still be inside put()
  return response;
}

}  // namespace wayloom::posix
