// The JSON value type of every document: kits, map configurations, property lists, recordings.
//
// Members keep the order of the document, null differs from a missing member, and doubles are exact both ways.
#pragma once

#include <nlohmann/json.hpp>

namespace wayloom::platform {

using Json = nlohmann::ordered_json;

}  // namespace wayloom::platform
