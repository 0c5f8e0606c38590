#pragma once

#include <cstddef>
#include <string>

#include "wayloom/maps/MapUpdateStep.hpp"
#include "wayloom/platform/Json.hpp"

#include "tools/common/Progress.hpp"

namespace wayloom::tools {

// Follows an update of the maps on standard error: on a terminal one line that changes, and one that stays for each
// failure; elsewhere a line for each step.
class UpdateDisplay {
 public:
  void show(const MapUpdateStep& step);
  // Something else that went wrong.
  void fail(const std::string& what);
  void clear() { progress_.clear(); }

  bool hasFailed() const { return failed_ > 0; }
  // What has been done, as a line and as an object.
  std::string summary() const;
  platform::Json json() const;

 private:
  void showDocument(const MapUpdateStep& step);
  void showMap(const MapUpdateStep& step);
  void tell(const std::string& text);

  Progress progress_;
  std::string document_ = "not asked for";
  std::size_t maps_ = 0;
  std::size_t fetched_ = 0;
  std::size_t unchanged_ = 0;
  std::size_t failed_ = 0;  // maps and other things
  std::size_t bytes_ = 0;
};

}  // namespace wayloom::tools
