// Fault rules as they come in over HTTP: read, printed, read again, applied.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/serve/FaultRules.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using wayloom::tools::FaultRules;
  FaultRules rules(1);
  if (!rules.replace({reinterpret_cast<const char*>(bytes), size}).empty()) {
    if (!rules.text().empty()) std::abort();
    return 0;
  }
  const auto text = rules.text();
  FaultRules again(1);
  if (!again.replace(text).empty() || again.text() != text) std::abort();
  for (const char* target : {"kit", "maps", "analytics", "status"}) {
    const auto fault = rules.draw(target, "/maps/plans/a.svg");
    if (fault.text != again.draw(target, "/maps/plans/a.svg").text) std::abort();
    if (fault.slow < wayloom::platform::Duration::zero() || fault.rate == 0U) std::abort();
  }
  return 0;
}
