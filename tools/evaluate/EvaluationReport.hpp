// Draws evaluated walks: one self-contained HTML file without scripts, for light and dark screens and for print.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/evaluate/Evaluation.hpp"

namespace wayloom::tools {

// A floor plan to draw on.
struct ReportPlan {
  std::string mapId;
  std::string name;
  std::string imageType;   // "image/svg+xml", "image/png", ...; empty: no image, a blank sheet is drawn
  std::string imageBytes;  // embedded as data; never interpreted as markup
  double width = 0.0;      // standard pixels
  double height = 0.0;
};

struct ReportWalk {
  std::string name;
  std::vector<EvaluatedSecond> seconds;
  Figures figures;
};

struct ReportInput {
  std::string venueName;
  std::vector<ReportPlan> plans;
  std::vector<MappedBeacon> beacons;
  std::vector<ReportWalk> walks;
  Figures total;
};

// A figure as it is printed, times `factor`; "-" when there is none.
std::string figureText(std::optional<double> figure, int decimals, double factor = 1.0);

std::string renderEvaluationReport(const ReportInput& input);

}  // namespace wayloom::tools
