// The thread that carries the requests of one CurlHttpClient.
#pragma once

#include <curl/curl.h>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "backends/posix/CurlTransfer.hpp"

namespace wayloom::posix {

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

class CurlWorker : public std::enable_shared_from_this<CurlWorker> {
 public:
  // Throws std::system_error when the system gives no descriptors.
  explicit CurlWorker(CurlHttpOptions options);

  const CurlHttpOptions& options() const { return options_; }

  void start();  // starts the thread, which keeps the worker alive
  // Ends the thread and closes every connection; transfers that have not ended get an error as their response. Waits,
  // except when the thread itself calls it.
  void stop();

  // Any thread. After stop() a transfer that is added gets an error as its response.
  void add(CurlTransferPtr transfer);
  void remove(CurlTransferPtr transfer);  // whose response nobody waits for any more

 private:
  using Transfers = std::list<CurlTransferPtr>;
  // A server: how many of its requests are under way, and those that wait for one of them to end.
  struct Origin {
    std::size_t active = 0;
    Transfers waiting;
  };

  void run();
  bool takeOrders();
  void wake();
  void enqueue(const CurlTransferPtr& transfer);
  void beginWaiting(const std::string& origin);
  // Null, or why it can't begin.
  const char* begin(CurlTransfer& transfer);
  void retire(const CurlTransferPtr& transfer);
  void reapFinished();
  void failLate();
  int pollTime() const;
  void stopAll();

  const CurlHttpOptions options_;
  std::thread thread_;

  std::mutex mutex_;
  std::vector<CurlTransferPtr> added_;
  std::vector<CurlTransferPtr> removed_;
  bool stopping_ = false;
  bool stopped_ = false;
  bool woken_ = false;  // a wake-up is under way

  // Of the worker thread. The easy handles go before the multi handle; the idle ones hold no options.
  std::unique_ptr<CURLM, MultiDeleter> multi_;
  std::vector<std::unique_ptr<CURL, EasyDeleter>> idle_;
  Transfers active_;
  std::set<std::pair<CurlTransfer::Clock::time_point, CurlTransfer*>> waitingEnds_;
  std::map<std::string, Origin> origins_;
};

}  // namespace wayloom::posix
