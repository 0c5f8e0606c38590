// What a map page says when it goes to a "quembly:" address.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "wayloom/platform/Url.hpp"

#include "view/PageText.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace wayloom;
  const std::string_view url(reinterpret_cast<const char*>(bytes), size);
  const auto text = platform::withoutPercentEscapes(url);
  if (text && text->size() > url.size()) std::abort();
  const auto point = tappedPoint(text ? *text : url);
  if (point && (!std::isfinite(point->x) || !std::isfinite(point->y))) std::abort();
  // A path becomes a URL that leads back to it.
  if (text && platform::withoutPercentEscapes(platform::fileUrlForPath(*text)) != "file://" + *text) std::abort();
  return 0;
}
