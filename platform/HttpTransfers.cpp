#include "platform/HttpTransfers.hpp"

#include <iterator>
#include <utility>

namespace wayloom::platform {

void HttpTransfers::send(HttpRequest request, HttpClient::Handler handler) {
  const TaskScope::Guard guard(scope_);  // a handler may end this object before send() has returned
  if (!guard) return;
  std::list<Transfer> gone;  // outlives the lock: a handler may still be on its way out
  const std::lock_guard lock(mutex_);
  for (auto each = transfers_.begin(); each != transfers_.end();) {
    const auto next = std::next(each);
    if (*each->ended) gone.splice(gone.end(), transfers_, each);
    each = next;
  }
  auto& transfer = transfers_.emplace_back();
  auto answered = scope_.bind([handler = std::move(handler), ended = transfer.ended](HttpResponse response) {
    const auto mark = ended;  // the handler may destroy all of this
    handler(std::move(response));
    *mark = true;
  });
  transfer.task = http_.send(std::move(request), *queue_, std::move(answered));
}

}  // namespace wayloom::platform
