#pragma once

#include <string>

#include "wayloom/platform/Error.hpp"

namespace wayloom {

// An error as log lines show it.
inline std::string textOf(const platform::Error& error) {
  return error.description + " (" + error.domain + " " + std::to_string(error.code) + ")";
}

}  // namespace wayloom
