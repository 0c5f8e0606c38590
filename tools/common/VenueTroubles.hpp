#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace wayloom::tools {

// What a command may need of a venue folder.
enum class VenuePart {
  addresses,        // bundle/Wayloom.plist; a Geofold.plist beside it must not be broken either
  serverAddresses,  // one of the two will do
  usage,            // bundle/Info.plist, which says what locations are for
  builtInMaps,      // bundle/map_config.json; it may know no map, the server does then
  kit               // server/kit.json
};

// Why parts of the venue are missing or can't be used, a text each that begins with the file.
std::vector<std::string> troublesOf(const std::string& venue, std::initializer_list<VenuePart> parts);

// The same on standard error. Whether there were any.
bool tellTroubles(const std::string& venue, std::initializer_list<VenuePart> parts);

// Whether the map is in a document that an application with this bundle and Documents folder (may be empty) may come to
// have.
bool knowsMap(const std::string& venue, const std::string& documents, const std::string& mapId);

// Why a file that is there is no property list of use; nothing when it is one.
std::optional<std::string> propertyListTrouble(const std::string& path);

}  // namespace wayloom::tools
