// Whether a command can do its work on the folders that it was given. Said before it begins: a run on half a venue
// looks like one in which nothing is heard.
#pragma once

#include <string>

namespace wayloom::tools {

// What is missing or broken of a venue's property lists, with the file's name; empty when nothing is.
std::string propertyListFault(const std::string& venue);

// Why nothing can be kept in a folder, which is made when it is missing; empty when nothing is in the way.
std::string documentsFault(const std::string& folder);

}  // namespace wayloom::tools
