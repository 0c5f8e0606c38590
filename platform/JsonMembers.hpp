#pragma once

#include "wayloom/platform/Json.hpp"

namespace wayloom::platform {

// For readers that append an object's members without a look at the earlier ones, which would take quadratic time: the
// last value of each name moves to the place of the first, the others go.
void mergeDuplicates(Json::object_t& members);

}  // namespace wayloom::platform
