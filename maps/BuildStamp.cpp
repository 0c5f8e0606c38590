// Nothing else belongs here: the build compiles this file again whenever anything of the library, of the map page or of
// the packages that it uses has changed.
#include "maps/BuildStamp.hpp"

namespace wayloom {

std::string libraryBuildStamp() { return __DATE__ " " __TIME__; }

}  // namespace wayloom
