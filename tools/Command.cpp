#include "tools/Command.hpp"

#include <cstdio>
#include <fmt/format.h>

namespace wayloom::tools {

void complain(std::string_view text) { fmt::print(stderr, "wayloom: {}\n", text); }

}  // namespace wayloom::tools
