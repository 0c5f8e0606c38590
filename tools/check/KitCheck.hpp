#pragma once

#include "wayloom/maps/MapCatalogue.hpp"

#include "tools/check/CheckedDocument.hpp"

namespace wayloom::tools {

// Judges the kit server's answer: whether each entry says something that a beacon can match, whether no two say the
// same, and whether each beacon has a place on its map. Without maps (null) the latter is left out.
void checkKit(CheckedDocument& kit, const MapCatalogue* maps);

}  // namespace wayloom::tools
