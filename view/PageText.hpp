// The texts that go to the map page and come from it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/maps/Geometry.hpp"
#include "wayloom/platform/Json.hpp"

namespace wayloom {

// "key=value&key=value" in the dictionary's order; nothing is escaped, so that the page must look for names.
std::string toUrlParams(const platform::Json& dictionary);

// "x,y" as a point, each a single-precision number; what follows a second comma is ignored. Nothing when one of the
// two is missing, is no number, or is beyond the range.
std::optional<Point> pointValue(std::string_view text);

// The tapped point in a page's message: the two numbers after the last ":", without quotes. Standard pixels.
std::optional<Point> tappedPoint(std::string_view message);

// The page's script that draws over these points, standard pixels.
std::string highlightScript(const std::vector<Point>& points);

}  // namespace wayloom
