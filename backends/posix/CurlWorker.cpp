#include "backends/posix/CurlWorker.hpp"

#include <algorithm>
#include <csignal>
#include <pthread.h>
#include <utility>

namespace wayloom::posix {
namespace {

// As many as a map update has under way; a server with a hundred such clients still has room.
constexpr std::size_t kConnectionsToOneServer = 16;
constexpr std::size_t kIdleHandles = 16;
// By itself libcurl keeps four times as many as there are transfers at that moment, and so closes what the next needs.
constexpr long kOpenConnections = 32;
constexpr int kLongestPoll = 3'600'000;  // ms; a wake-up ends it

// libcurl's start-up is once a process; it is never taken back, as other users of it may be there.
void initialiseLibrary() {
  static const CURLcode outcome = curl_global_init(CURL_GLOBAL_DEFAULT);
  static_cast<void>(outcome);
}

void blockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

platform::HttpResponse stoppedResponse() {
  return CurlTransfer::failure(CURLE_ABORTED_BY_CALLBACK, "the HTTP client is shut down");
}

}  // namespace

CurlWorker::CurlWorker(CurlHttpOptions options) : options_(std::move(options)) {
  initialiseLibrary();
  multi_.reset(curl_multi_init());
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, kOpenConnections);
}

void CurlWorker::start() {
  thread_ = std::thread([self = shared_from_this()] { self->run(); });
}

void CurlWorker::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    wake();
  }
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id())
    thread_.detach();
  else
    thread_.join();
}

// The caller holds the lock, which keeps the multi handle from being cleaned up meanwhile.
void CurlWorker::wake() {
  if (woken_ || stopped_) return;
  woken_ = true;
  curl_multi_wakeup(multi_.get());
}

void CurlWorker::add(CurlTransferPtr transfer) {
  {
    const std::lock_guard lock(mutex_);
    if (!stopping_) {
      added_.push_back(std::move(transfer));
      return wake();
    }
  }
  transfer->deliver(stoppedResponse());
}

void CurlWorker::remove(CurlTransferPtr transfer) {
  const std::lock_guard lock(mutex_);
  if (stopping_) return;
  removed_.push_back(std::move(transfer));
  wake();
}

void CurlWorker::run() {
  blockSignals();
  while (takeOrders()) {
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    reapFinished();
    failStill();
    curl_multi_poll(multi_.get(), nullptr, 0, pollTime(), nullptr);
  }
  stopAll();
}

bool CurlWorker::takeOrders() {
  std::vector<CurlTransferPtr> added;
  std::vector<CurlTransferPtr> removed;
  {
    const std::lock_guard lock(mutex_);
    woken_ = false;
    if (stopping_) return false;
    added.swap(added_);
    removed.swap(removed_);
  }
  for (auto& transfer : added) {
    origins_[transfer->origin()].waiting.push_back(transfer);
    beginWaiting(transfer->origin());
  }
  for (const auto& transfer : removed) {
    if (transfer->easy() != nullptr) retire(transfer);  // one that still waits is passed over when its turn comes
  }
  return true;
}

void CurlWorker::beginWaiting(const std::string& name) {
  const auto place = origins_.find(name);
  auto& origin = place->second;
  while (origin.active < kConnectionsToOneServer && !origin.waiting.empty()) {
    const auto transfer = std::move(origin.waiting.front());
    origin.waiting.pop_front();
    if (!transfer->isExpected()) continue;
    ++origin.active;
    begin(transfer);
  }
  if (origin.active == 0) origins_.erase(place);
}

void CurlWorker::begin(const CurlTransferPtr& transfer) {
  if (idle_.empty()) {
    idle_.emplace_back(curl_easy_init());
    CurlTransfer::configure(idle_.back().get(), options_);
  }
  CURL* easy = idle_.back().release();
  idle_.pop_back();
  transfer->start(easy);
  curl_multi_add_handle(multi_.get(), easy);
  active_.push_back(transfer);
}

// Takes a transfer that has ended, or is ended hereby, out of the multi handle; its place goes to the next.
void CurlWorker::retire(const CurlTransferPtr& transfer) {
  std::unique_ptr<CURL, EasyDeleter> easy(transfer->release());
  curl_multi_remove_handle(multi_.get(), easy.get());
  if (idle_.size() < kIdleHandles) idle_.push_back(std::move(easy));
  std::erase(active_, transfer);
  --origins_.at(transfer->origin()).active;
  beginWaiting(transfer->origin());
}

void CurlWorker::reapFinished() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const auto outcome = message->data.result;
    const auto place = std::find_if(active_.begin(), active_.end(),
                                    [&](const CurlTransferPtr& each) { return each->easy() == message->easy_handle; });
    const auto transfer = *place;
    auto response = transfer->finish(outcome);
    retire(transfer);
    transfer->deliver(std::move(response));
  }
}

void CurlWorker::failStill() {
  const auto now = CurlTransfer::Clock::now();
  for (;;) {
    const auto place = std::find_if(active_.begin(), active_.end(),
                                    [&](const CurlTransferPtr& each) { return each->deadline() <= now; });
    if (place == active_.end()) return;
    const auto transfer = *place;
    retire(transfer);
    transfer->deliver(CurlTransfer::failure(CURLE_OPERATION_TIMEDOUT, "no answer within the time-out"));
  }
}

int CurlWorker::pollTime() const {
  auto time = std::chrono::milliseconds(kLongestPoll);
  const auto now = CurlTransfer::Clock::now();
  for (const auto& transfer : active_)
    time = std::min(time, std::chrono::ceil<std::chrono::milliseconds>(transfer->deadline() - now));
  return std::max(static_cast<int>(time.count()), 0);
}

void CurlWorker::stopAll() {
  auto rest = std::exchange(active_, {});
  for (const auto& transfer : rest) {
    const std::unique_ptr<CURL, EasyDeleter> easy(transfer->release());
    curl_multi_remove_handle(multi_.get(), easy.get());
  }
  for (auto& [name, origin] : origins_) rest.insert(rest.end(), origin.waiting.begin(), origin.waiting.end());
  origins_.clear();
  idle_.clear();
  {
    const std::lock_guard lock(mutex_);
    rest.insert(rest.end(), added_.begin(), added_.end());
    added_.clear();
    removed_.clear();
    stopped_ = true;
    multi_.reset();
  }
  for (const auto& transfer : rest) transfer->deliver(stoppedResponse());
}

}  // namespace wayloom::posix
