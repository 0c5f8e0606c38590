#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "wayloom/maps/MapCatalogue.hpp"

#include "tools/check/CheckedDocument.hpp"

namespace wayloom::tools {

// The maps of a map configuration document, also of one with faults; empty when it is no object.
std::unique_ptr<MapCatalogue> catalogueOf(const platform::Json& document);

// Judges the maps' geometry, and what is to become file names and addresses. `documentUrl` is where the document is on
// the server.
void checkMaps(CheckedDocument& document, std::string_view documentUrl);

// Whether each map's image is below the venue's server/ folder, at the address that it is asked for at.
void checkServedImages(CheckedDocument& document, std::string_view documentUrl, const std::string& venue);
// Whether each map's image is in the bundle folder.
void checkBuiltInImages(CheckedDocument& document, const std::string& bundle);

// Which maps only one of them has.
void compareMaps(CheckedDocument& builtIn, CheckedDocument& served);

}  // namespace wayloom::tools
