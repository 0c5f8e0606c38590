#pragma once

#include <string>

namespace wayloom {

// When this library was built, as the compiler records it: "Jan 30 2015 16:09:32".
std::string libraryBuildStamp();

}  // namespace wayloom
