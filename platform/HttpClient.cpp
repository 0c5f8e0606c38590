#include "wayloom/platform/HttpClient.hpp"

#include <algorithm>
#include <mutex>
#include <utility>

namespace wayloom::platform {
namespace {

char lowered(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

}  // namespace

const std::string* findHeader(const HttpHeaders& headers, std::string_view name) {
  for (const auto& [key, value] : headers)
    if (std::equal(key.begin(), key.end(), name.begin(), name.end(),
                   [](char left, char right) { return lowered(left) == lowered(right); }))
      return &value;
  return nullptr;
}

std::optional<std::string> HttpResponse::header(std::string_view name) const {
  const auto* value = findHeader(headers, name);
  return value ? std::optional(*value) : std::nullopt;
}

HttpResponse sendSynchronously(HttpClient& client, TaskScheduler& tasks, HttpRequest request) try {
  const auto lock = tasks.makeConditionLock();
  std::optional<HttpResponse> answer;
  const auto task = client.send(std::move(request), tasks.backgroundQueue(), [&](HttpResponse response) {
    const std::lock_guard held(*lock);
    answer = std::move(response);
    lock->signalAll();
  });
  std::unique_lock held(*lock);
  while (!answer) lock->wait();
  return std::move(*answer);
} catch (const AbandonedWait& end) {
  constexpr int kAborted = 42;  // of libcurl
  HttpResponse response;
  response.error = Error{"HTTP", kAborted, end.what()};
  return response;
}

}  // namespace wayloom::platform
