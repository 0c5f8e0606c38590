#include "backends/posix/CurlWorker.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <pthread.h>
#include <system_error>
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
  errno = 0;
  multi_.reset(curl_multi_init());
  // Without a way to wake the thread no request would ever begin.
  if (!multi_ || curl_multi_wakeup(multi_.get()) != CURLM_OK)
    throw std::system_error(errno != 0 ? errno : ENOMEM, std::generic_category(), "HTTP client");
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
  constexpr auto kPause = std::chrono::milliseconds(20);
  blockSignals();
  while (takeOrders()) {
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    reapFinished();
    failLate();
    const auto outcome = curl_multi_poll(multi_.get(), nullptr, 0, pollTime(), nullptr);
    if (outcome != CURLM_OK) std::this_thread::sleep_for(kPause);  // no memory now
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
  for (const auto& transfer : added) enqueue(transfer);
  for (const auto& transfer : removed) retire(transfer);
  return true;
}

void CurlWorker::enqueue(const CurlTransferPtr& transfer) {
  auto& waiting = origins_[transfer->origin()].waiting;
  transfer->place = waiting.insert(waiting.end(), transfer);
  transfer->stage = CurlTransfer::Stage::waiting;
  waitingEnds_.emplace(transfer->end(), transfer.get());
  beginWaiting(transfer->origin());
}

void CurlWorker::beginWaiting(const std::string& name) {
  const auto found = origins_.find(name);
  auto& origin = found->second;
  while (origin.active < kConnectionsToOneServer && !origin.waiting.empty()) {
    const auto transfer = origin.waiting.front();
    active_.splice(active_.end(), origin.waiting, transfer->place);
    waitingEnds_.erase({transfer->end(), transfer.get()});
    transfer->stage = CurlTransfer::Stage::active;
    ++origin.active;
    if (const char* failure = begin(*transfer)) {
      active_.erase(transfer->place);
      transfer->stage = CurlTransfer::Stage::over;
      --origin.active;
      transfer->deliver(CurlTransfer::failure(CURLE_OUT_OF_MEMORY, failure));
    }
  }
  if (origin.active == 0) origins_.erase(found);
}

const char* CurlWorker::begin(CurlTransfer& transfer) {
  if (idle_.empty()) {
    std::unique_ptr<CURL, EasyDeleter> fresh(curl_easy_init());
    if (!fresh) return "not enough memory for a request";
    idle_.push_back(std::move(fresh));
  }
  auto easy = std::move(idle_.back());
  idle_.pop_back();
  const bool isSet = transfer.start(easy.get(), options_);
  if (isSet && curl_multi_add_handle(multi_.get(), easy.get()) == CURLM_OK) {
    static_cast<void>(easy.release());  // the transfer has it
    return nullptr;
  }
  transfer.release();
  return "not enough memory for a request";
}

// Takes a transfer out of wherever it is; a place that it had at its server goes to the next.
void CurlWorker::retire(const CurlTransferPtr& transfer) {
  const auto stage = std::exchange(transfer->stage, CurlTransfer::Stage::over);
  if (stage == CurlTransfer::Stage::waiting) {
    waitingEnds_.erase({transfer->end(), transfer.get()});
    origins_.at(transfer->origin()).waiting.erase(transfer->place);
  }
  if (stage != CurlTransfer::Stage::active) return;
  std::unique_ptr<CURL, EasyDeleter> easy(transfer->release());
  curl_multi_remove_handle(multi_.get(), easy.get());
  curl_easy_reset(easy.get());  // its options point into the transfer
  if (idle_.size() < kIdleHandles) idle_.push_back(std::move(easy));
  active_.erase(transfer->place);
  --origins_.at(transfer->origin()).active;
  beginWaiting(transfer->origin());
}

void CurlWorker::reapFinished() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const auto outcome = message->data.result;
    CurlTransfer* done = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &done);
    const auto transfer = *done->place;
    auto target = outcome == CURLE_OK ? transfer->redirection() : std::nullopt;
    auto response = transfer->finish(outcome);
    retire(transfer);
    if (target) {
      response.error = transfer->redirect(std::move(*target));
      if (!response.error) {
        enqueue(transfer);
        continue;
      }
      response = {0, {}, {}, std::move(response.error)};
    }
    transfer->deliver(std::move(response));
  }
}

void CurlWorker::failLate() {
  const auto now = CurlTransfer::Clock::now();
  std::vector<CurlTransferPtr> late;
  for (const auto& transfer : active_)
    if (transfer->deadline() <= now) late.push_back(transfer);
  for (const auto& [end, transfer] : waitingEnds_) {
    if (end > now) break;
    late.push_back(*transfer->place);
  }
  for (const auto& transfer : late) {
    retire(transfer);
    transfer->deliver(CurlTransfer::failure(CURLE_OPERATION_TIMEDOUT, "no answer within the time-out"));
  }
}

int CurlWorker::pollTime() const {
  auto time = std::chrono::milliseconds(kLongestPoll);
  const auto now = CurlTransfer::Clock::now();
  const auto consider = [&](CurlTransfer::Clock::time_point end) {
    time = std::min(time, std::chrono::ceil<std::chrono::milliseconds>(end - now));
  };
  for (const auto& transfer : active_) consider(transfer->deadline());
  if (!waitingEnds_.empty()) consider(waitingEnds_.begin()->first);
  return std::max(static_cast<int>(time.count()), 0);
}

void CurlWorker::stopAll() {
  Transfers rest;
  rest.swap(active_);
  for (const auto& transfer : rest) {
    const std::unique_ptr<CURL, EasyDeleter> easy(transfer->release());
    curl_multi_remove_handle(multi_.get(), easy.get());
  }
  for (auto& [name, origin] : origins_) rest.splice(rest.end(), origin.waiting);
  origins_.clear();
  waitingEnds_.clear();
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
