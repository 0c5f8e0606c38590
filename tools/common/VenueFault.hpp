#pragma once

#include <string>

namespace wayloom::tools {

// What is missing or broken of a venue's property lists, with the file's name; empty when nothing is. Said before a run
// begins: one on half a venue looks like one in which nothing is heard.
std::string propertyListFault(const std::string& venue);

}  // namespace wayloom::tools
