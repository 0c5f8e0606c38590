// Every test program runs under the locale that WAYLOOM_TEST_LOCALE names, as in a host that calls setlocale: numbers
// in files, scripts and requests have a decimal point all the same. scripts/test-locale sets it.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <stdexcept>
#include <string_view>

namespace {

const bool isSet = [] {
  const char* name = std::getenv("WAYLOOM_TEST_LOCALE");
  if (name == nullptr) return false;
  try {
    // Of C, too; messages of the system stay in English.
    std::locale::global(std::locale(std::locale(name), std::locale::classic(), std::locale::messages));
  } catch (const std::runtime_error&) {
    std::fprintf(stderr, "There is no locale %s\n", name);
    std::abort();
  }
  if (std::string_view(std::localeconv()->decimal_point) == ",") return true;
  std::fprintf(stderr, "The locale %s has no decimal comma\n", name);
  std::abort();
}();

}  // namespace
