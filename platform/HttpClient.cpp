#include "wayloom/platform/HttpClient.hpp"

#include <algorithm>

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

}  // namespace wayloom::platform
