#pragma once

#include <string>

namespace wayloom::posix {

// The folder of the library's own resources: the map page, its scripts, the locate icon. The first that there is of
//
//   1. the path given, when it is not empty;
//   2. the environment variable WAYLOOM_RESOURCES, when it is not empty;
//   3. share/wayloom/resources in the directory of the running program, or in the one above: so the programs of a build
//      folder find those of the build, and installed ones those installed with them, wherever they have been moved;
//   4. share/wayloom/resources below the prefix that the library was configured for.
//
// The first two are taken as they are, there or not. Empty when there is none. Relative ones count from the working
// directory. Any thread, while nobody changes the environment.
std::string libraryResources(const std::string& given = {});

}  // namespace wayloom::posix
