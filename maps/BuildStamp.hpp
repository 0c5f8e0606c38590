#pragma once

#include <string>

namespace wayloom {

// When this library was built, as the compiler records it: "Jan 30 2015 16:09:32". Builds that are to be the same byte
// for byte set SOURCE_DATE_EPOCH, which compilers record instead.
std::string libraryBuildStamp();

}  // namespace wayloom
