#pragma once

#include <string>

#include "tools/common/VenueEndpoints.hpp"

namespace wayloom::tools {

// Copies the venue's bundle to a folder, which is made when it is missing, and points the copy's Geofold.plist and
// Wayloom.plist at a server at `base`. Files of the same names in the folder are replaced, others stay. An error text,
// or an empty one; the folder may be half written then.
std::string writeBundle(const VenueEndpoints& endpoints, const std::string& base, const std::string& folder);

}  // namespace wayloom::tools
