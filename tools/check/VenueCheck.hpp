#pragma once

#include <string>
#include <vector>

#include "tools/check/CheckedDocument.hpp"

namespace wayloom::tools {

// Judges a venue folder before it goes live: property lists, kit, both map configurations, images. Nothing is written,
// nobody asked over a network. The findings are in the order of the files, and in each by place; their files' paths
// begin with the folder's, as it is given.
std::vector<Finding> checkVenue(const std::string& folder);

}  // namespace wayloom::tools
