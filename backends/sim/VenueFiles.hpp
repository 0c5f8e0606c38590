#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/PropertyListReader.hpp"

namespace wayloom::sim {

// Where the files are that a venue's servers answer with, whichever server it is: the one in memory or a real one. Any
// thread, once made.
class VenueFiles {
 public:
  // The kit URLs are those of bundle/Geofold.plist and bundle/Wayloom.plist. With an empty folder there is no file.
  VenueFiles(std::string venueFolder, const platform::PropertyListReader& propertyLists);

  const std::vector<std::string>& kitUrls() const { return kitUrls_; }
  std::string kitFile() const { return venueFolder_ + "/server/kit.json"; }

  // For a URL below /maps/ the file of that path below server/maps/, there or not. Empty for any other URL, and for one
  // with a "." or ".." component or a zero byte, however it is escaped.
  std::string mapFileFor(std::string_view url) const;

  // The file that a GET of the URL gets: the kit's for a kit URL, else that of mapFileFor.
  std::string fileFor(std::string_view url) const;

 private:
  std::string venueFolder_;
  std::vector<std::string> kitUrls_;
};

}  // namespace wayloom::sim
