#include <cmath>
#include <gtest/gtest.h>

#include "tools/evaluate/Evaluation.hpp"
#include "tools/evaluate/EvaluationReport.hpp"

namespace wayloom::tools {
namespace {

double metres(const PlanPoint& a, const PlanPoint& b) { return std::hypot(a.x - b.x, a.y - b.y) / 5.0; }

const std::vector<MappedBeacon> kBeacons = {
    {"west", {"m", 0.0, 0.0}}, {"east", {"m", 50.0, 0.0}}, {"upstairs", {"n", 0.0, 0.0}}};

TEST(Evaluation, TakesTheLatestReportOfEachSecondWithTruth) {
  Walk walk;
  for (const double t : {10.0, 11.0, 11.4, 12.0, 13.0, 14.0}) walk.truth.push_back({t, {"m", 5.0 * (t - 10.0), 0.0}});
  walk.reported = {{10.5, PlanPoint{"m", 0.0, 0.0}, 2.0},    // west, which is right at 11
                   {12.0, PlanPoint{"m", 50.0, 0.0}, 2.0},   // east at 12: farther from the truth at 10 px: bad
                   {12.9, PlanPoint{"n", 0.0, 0.0}, 2.0},    // upstairs at 13: 3 m away on the ground, not bad
                   {13.5, std::nullopt, 0.0},                // no position at 14
                   {16.0, PlanPoint{"m", 50.0, 0.0}, 2.0}};  // a change while the truth is unknown
  walk.truth.push_back({20.0, {"m", 0.0, 0.0}});
  const auto seconds = evaluateWalk(walk, kBeacons, metres);
  ASSERT_EQ(seconds.size(), 6U) << "the second truth point within second 11 is left out";
  EXPECT_FALSE(seconds[0].reported);
  EXPECT_EQ(seconds[1].reportedBeacon, 0);
  EXPECT_EQ(seconds[3].nearestBeacon, 0);
  const Figures figures = figuresOf(seconds, kBeacons, metres);
  EXPECT_EQ(figures.fixes, 4);
  EXPECT_DOUBLE_EQ(figures.fixShare().value_or(-1.0), 4.0 / 6.0);
  EXPECT_DOUBLE_EQ(figures.hitShare().value_or(-1.0), 0.25);
  EXPECT_DOUBLE_EQ(figures.rightMapShare().value_or(-1.0), 0.75);
  EXPECT_EQ(figures.switches, 2);
  EXPECT_EQ(figures.badSwitches, 1);
  EXPECT_DOUBLE_EQ(figures.badSwitchesPerMinute().value_or(-1.0), 10.0);
  EXPECT_DOUBLE_EQ(figures.errorQuantile(0.5).value_or(-1.0), 8.0);
}

TEST(Evaluation, SumsWalksAndSurvivesEmptyOnes) {
  Figures total;
  total.add(Figures{});
  for (const auto& figure : {total.errorQuantile(0.5), total.hitShare(), total.fixShare(), total.switchesPerMinute()})
    EXPECT_EQ(figureText(figure, 2), "-") << "there is nothing to take it from";
  Figures a;
  a.seconds = a.fixes = 2;
  a.errors = {1.0, 4.0};
  Figures b;
  b.seconds = 2;
  b.fixes = b.hits = 1;
  b.errors = {2.0};
  total.add(a);
  total.add(b);
  EXPECT_EQ(total.errors, (std::vector<double>{1.0, 2.0, 4.0}));
  EXPECT_DOUBLE_EQ(total.fixShare().value_or(-1.0), 0.75);
  EXPECT_DOUBLE_EQ(total.hitShare().value_or(-1.0), 1.0 / 3.0);
}

TEST(EvaluationReport, TreatsEveryTextAsData) {
  ReportInput input;
  input.venueName = "<script>alert(1)</script>";
  input.plans = {{.mapId = "m",
                  .name = "\"><script>",
                  .imageType = "image/svg+xml",
                  .imageBytes = "<svg onload='x'/>",
                  .width = 100,
                  .height = 80}};
  input.beacons = {{"'><img src=x>", {"m", 0.0, 0.0}}};
  ReportWalk walk{.name = "a&b<i>", .seconds = {}, .figures = {}};
  walk.seconds = {{.t = 1.0,
                   .truth = {"m", 1.0, 1.0},
                   .reported = PlanPoint{"m", 0.0, 0.0},
                   .nearestBeacon = 0,
                   .reportedBeacon = 0,
                   .errorMeters = 0.3}};
  walk.figures = figuresOf(walk.seconds, input.beacons, metres);
  input.walks = {walk};
  input.total = walk.figures;
  const std::string html = renderEvaluationReport(input);
  for (const char* markup : {"<script", "<img", "<i>", "onload"})
    EXPECT_EQ(html.find(markup), std::string::npos) << markup;
  EXPECT_NE(html.find("data:image/svg+xml;base64,PHN2ZyBvbmxvYWQ9J3gnLz4="), std::string::npos);
  EXPECT_NE(html.find("100.0"), std::string::npos) << "the hit share";
}

}  // namespace
}  // namespace wayloom::tools
