#include "tools/evaluate/EvaluationReport.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>

#include "backends/posix/Base64.hpp"

namespace wayloom::tools {
namespace {

// Truth points farther apart than this belong to different stretches of the path, seconds.
constexpr double kPathGap = 15.0;

constexpr const char* kStyle = R"(
:root{--ground:#fff;--ink:#1c2733;--muted:#5b6876;--line:#d5dbe1;--truth:#0b7d4b;--reported:#c2410c;--link:#c2410c55}
@media(prefers-color-scheme:dark){:root{--ground:#14191f;--ink:#e6ebf0;--muted:#9aa7b4;--line:#323c47}}
body{margin:0 auto;max-width:72rem;padding:2rem 1.5rem;background:var(--ground);color:var(--ink);
font:16px/1.5 system-ui,sans-serif}
h1{font-size:1.6rem;margin:0 0 .25rem}h2{font-size:1.2rem;margin:2.5rem 0 .5rem}
p{color:var(--muted);max-width:45rem;margin:.25rem 0 1rem}
.table{overflow-x:auto}table{border-collapse:collapse;font-variant-numeric:tabular-nums}
th,td{text-align:right;padding:.3rem .8rem;border-bottom:1px solid var(--line);white-space:nowrap}
th:first-child,td:first-child{text-align:left}tfoot td{font-weight:600}
.plans{display:grid;grid-template-columns:repeat(auto-fit,minmax(30rem,1fr));gap:1rem}
figure{margin:0}figcaption{color:var(--muted);font-size:.9rem}
svg{display:block;width:100%;height:auto}.plan{background:#fff;border:1px solid var(--line);border-radius:6px}
.truth{fill:none;stroke:var(--truth);stroke-width:2.5;vector-effect:non-scaling-stroke;stroke-linejoin:round;stroke-linecap:round}
.reported{fill:var(--reported);fill-opacity:.75}.error{stroke:var(--link);stroke-width:1;vector-effect:non-scaling-stroke}
.beacon{fill:#fff;stroke:#1c2733;stroke-width:1.2;vector-effect:non-scaling-stroke}
.grid{stroke:var(--line);stroke-dasharray:2 4}
text{fill:var(--muted);font:11px system-ui,sans-serif}.curve{fill:none;stroke:var(--reported);stroke-width:2.5}
.curve.one{stroke-width:1;stroke-opacity:.4}
.key i{display:inline-block;width:.8rem;height:.8rem;border-radius:50%;margin:0 .3rem 0 1rem;vertical-align:-.05rem}
)";

template <class... Args>
void append(std::string& out, fmt::format_string<Args...> format, Args&&... args) {
  fmt::format_to(std::back_inserter(out), format, std::forward<Args>(args)...);
}

std::string escaped(const std::string& text) {
  std::string out;
  for (const char character : text) {
    switch (character) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += character;
    }
  }
  return out;
}

// Neighbouring indices get hues far apart: steps of the golden angle.
std::string beaconColour(int index) { return fmt::format("hsl({:.0f} 60% 48%)", std::fmod(index * 137.508, 360.0)); }

// The plan images once for the whole document; each drawing refers to them.
void appendPlanImages(std::string& out, const std::vector<ReportPlan>& plans) {
  out += "<svg width='0' height='0' style='position:absolute' aria-hidden='true'><defs>\n";
  for (std::size_t i = 0; i < plans.size(); ++i) {
    if (plans[i].imageType.empty()) continue;
    append(out,
           "<image id='plan{}' width='{:.2f}' height='{:.2f}' preserveAspectRatio='none' "
           "href='data:{};base64,{}'/>\n",
           i, plans[i].width, plans[i].height, plans[i].imageType, posix::base64(plans[i].imageBytes));
  }
  out += "</defs></svg>\n";
}

void appendFiguresRow(std::string& out, const std::string& name, const Figures& f) {
  append(
      out,
      "<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>\n",
      escaped(name), f.seconds, figureText(f.fixShare(), 1, 100), figureText(f.rightMapShare(), 1, 100),
      figureText(f.hitShare(), 1, 100), figureText(f.errorQuantile(0.5), 2), figureText(f.errorQuantile(0.9), 2),
      figureText(f.switchesPerMinute(), 1), figureText(f.badSwitchesPerMinute(), 2));
}

void appendFigures(std::string& out, const ReportInput& input) {
  out +=
      "<div class='table'><table><thead><tr><th>recording</th><th>seconds</th><th>fix %</th><th>map %</th>"
      "<th>hit %</th><th>median m</th><th>p90 m</th><th>switches/min</th><th>bad/min</th></tr></thead><tbody>\n";
  for (const auto& walk : input.walks) appendFiguresRow(out, walk.name, walk.figures);
  out += "</tbody><tfoot>\n";
  if (input.walks.size() > 1) appendFiguresRow(out, "all", input.total);
  out += "</tfoot></table></div>\n";
}

void appendTruthPath(std::string& out, const std::vector<EvaluatedSecond>& seconds, const std::string& mapId) {
  std::string points;
  const EvaluatedSecond* previous = nullptr;
  const auto flush = [&] {
    if (!points.empty()) append(out, "<polyline class='truth' points='{}'/>\n", points);
    points.clear();
  };
  for (const auto& second : seconds) {
    if (previous != nullptr && (second.t - previous->t > kPathGap || second.truth.mapId != previous->truth.mapId))
      flush();
    if (second.truth.mapId == mapId) append(points, "{:.1f},{:.1f} ", second.truth.x, second.truth.y);
    previous = &second;
  }
  flush();
}

// Dots are sized by the plan, so that a house and a park look alike.
void appendReports(std::string& out, const std::vector<EvaluatedSecond>& seconds, const ReportPlan& plan) {
  const std::string& mapId = plan.mapId;
  for (const auto& second : seconds) {
    if (!second.reported || second.reported->mapId != mapId) continue;
    if (second.truth.mapId == mapId)
      append(out, "<line class='error' x1='{:.1f}' y1='{:.1f}' x2='{:.1f}' y2='{:.1f}'/>\n", second.truth.x,
             second.truth.y, second.reported->x, second.reported->y);
    append(out, "<circle class='reported' cx='{:.1f}' cy='{:.1f}' r='{:.2f}'/>\n", second.reported->x,
           second.reported->y, plan.width * 0.009);
  }
}

void appendBeacons(std::string& out, const std::vector<MappedBeacon>& beacons, const ReportPlan& plan) {
  for (const auto& beacon : beacons)
    if (beacon.place.mapId == plan.mapId)
      append(out, "<circle class='beacon' cx='{:.1f}' cy='{:.1f}' r='{:.2f}'><title>{}</title></circle>\n",
             beacon.place.x, beacon.place.y, plan.width * 0.005, escaped(beacon.label));
}

bool touchesMap(const std::vector<EvaluatedSecond>& seconds, const std::string& mapId) {
  return std::any_of(seconds.begin(), seconds.end(), [&](const EvaluatedSecond& second) {
    return second.truth.mapId == mapId || (second.reported && second.reported->mapId == mapId);
  });
}

void appendPlan(std::string& out, const ReportInput& input, const ReportWalk& walk, std::size_t index) {
  const auto& plan = input.plans[index];
  append(out, "<figure><svg class='plan' viewBox='0 0 {:.1f} {:.1f}' role='img' aria-label='{}'>\n", plan.width,
         plan.height, escaped(plan.name));
  if (!plan.imageType.empty()) append(out, "<use href='#plan{}'/>\n", index);
  appendReports(out, walk.seconds, plan);
  appendTruthPath(out, walk.seconds, plan.mapId);
  appendBeacons(out, input.beacons, plan);
  append(out, "</svg><figcaption>{}</figcaption></figure>\n", escaped(plan.name));
}

std::string cumulativeCurve(const Figures& figures, double metresShown, double width, double height) {
  std::string points;
  constexpr int kSteps = 120;
  for (int i = 0; i <= kSteps; ++i) {
    const double metres = metresShown * i / kSteps;
    const auto below = std::upper_bound(figures.errors.begin(), figures.errors.end(), metres) - figures.errors.begin();
    append(points, "{:.1f},{:.1f} ", width * i / kSteps,
           height * (1.0 - static_cast<double>(below) / static_cast<double>(figures.errors.size())));
  }
  return points;
}

void appendErrorDistribution(std::string& out, const ReportInput& input) {
  if (input.total.errors.empty()) return;
  constexpr double kWidth = 600;
  constexpr double kHeight = 200;
  const double metresShown = std::max(5.0, std::ceil(input.total.errorQuantile(0.99).value_or(0.0) / 5.0) * 5.0);
  out +=
      "<h2>Error distribution</h2><p>Share of the seconds with a position whose error is at most so many metres.</p>";
  append(out, "<svg viewBox='-40 -10 {} {}' style='max-width:44rem' role='img' aria-label='Error distribution'>\n",
         kWidth + 60, kHeight + 40);
  for (int percent = 0; percent <= 100; percent += 25) {
    const double y = kHeight * (1 - percent / 100.0);
    append(out, "<line class='grid' x1='0' x2='{0}' y1='{1}' y2='{1}'/><text x='-36' y='{2}'>{3} %</text>\n", kWidth, y,
           y + 4, percent);
  }
  for (int tick = 0; tick <= 5; ++tick)
    append(out, "<text x='{:.1f}' y='{}' text-anchor='middle'>{:g} m</text>\n", kWidth * tick / 5, kHeight + 18,
           metresShown * tick / 5);
  if (input.walks.size() > 1)
    for (const auto& walk : input.walks)
      if (!walk.figures.errors.empty())
        append(out, "<polyline class='curve one' points='{}'/>\n",
               cumulativeCurve(walk.figures, metresShown, kWidth, kHeight));
  append(out, "<polyline class='curve' points='{}'/></svg>\n",
         cumulativeCurve(input.total, metresShown, kWidth, kHeight));
}

// One band of the time line: stretches of one beacon as bars.
template <class BeaconOf>
void appendBand(std::string& out, const ReportInput& input, const std::vector<EvaluatedSecond>& seconds, double y,
                double pixelsPerSecond, BeaconOf beaconOf) {
  const double start = seconds.front().t;
  for (std::size_t i = 0; i < seconds.size();) {
    std::size_t end = i + 1;
    while (end < seconds.size() && beaconOf(seconds[end]) == beaconOf(seconds[i]) &&
           seconds[end].t - seconds[end - 1].t <= kPathGap)
      ++end;
    const int beacon = beaconOf(seconds[i]);
    const double from = seconds[i].t - start;
    const double to = seconds[end - 1].t - start + 1.0;
    if (beacon >= 0)
      append(
          out,
          "<rect x='{:.2f}' y='{}' width='{:.2f}' height='16' fill='{}'><title>{}, {:.0f} to {:.0f} s</title></rect>\n",
          from * pixelsPerSecond, y, std::max(0.5, (to - from) * pixelsPerSecond), beaconColour(beacon),
          escaped(input.beacons[static_cast<std::size_t>(beacon)].label), from, to);
    i = end;
  }
}

void appendTimeline(std::string& out, const ReportInput& input, const ReportWalk& walk) {
  if (walk.seconds.empty()) return;
  constexpr double kWidth = 900;
  const double length = walk.seconds.back().t - walk.seconds.front().t + 1.0;
  const double scale = kWidth / length;
  append(out, "<figure><svg viewBox='-64 0 {} 62' role='img' aria-label='Time line of elections'>\n", kWidth + 70);
  out += "<text x='-62' y='13'>nearest</text><text x='-62' y='35'>elected</text>\n";
  appendBand(out, input, walk.seconds, 1, scale, [](const EvaluatedSecond& s) { return s.nearestBeacon; });
  appendBand(out, input, walk.seconds, 23, scale, [](const EvaluatedSecond& s) { return s.reportedBeacon; });
  for (int tick = 0; tick <= 6; ++tick)
    append(out, "<text x='{:.1f}' y='56' text-anchor='middle'>{:.0f} s</text>\n", kWidth * tick / 6, length * tick / 6);
  out += "</svg><figcaption>Time line of elections: one colour a beacon; hover for its name</figcaption></figure>\n";
}

void appendWalk(std::string& out, const ReportInput& input, const ReportWalk& walk) {
  append(out, "<h2>{}</h2>\n", escaped(walk.name));
  appendTimeline(out, input, walk);
  out += "<div class='plans'>\n";
  for (std::size_t i = 0; i < input.plans.size(); ++i)
    if (touchesMap(walk.seconds, input.plans[i].mapId)) appendPlan(out, input, walk, i);
  out += "</div>\n";
}

}  // namespace

std::string figureText(std::optional<double> figure, int decimals, double factor) {
  return figure ? fmt::format("{:.{}f}", *figure * factor, decimals) : "-";
}

std::string renderEvaluationReport(const ReportInput& input) {
  std::string out = "<!doctype html>\n<html lang='en'><head><meta charset='utf-8'>";
  append(out, "<meta name='viewport' content='width=device-width'><title>Positions in {}</title><style>{}</style>",
         escaped(input.venueName), kStyle);
  append(out, "</head><body>\n<h1>Positions in {}</h1>\n", escaped(input.venueName));
  out +=
      "<p class='key'>Reported positions against the truth, once a second."
      "<i style='background:var(--truth)'></i>true path<i style='background:var(--reported)'></i>reported "
      "position</p>\n";
  appendPlanImages(out, input.plans);
  appendFigures(out, input);
  appendErrorDistribution(out, input);
  for (const auto& walk : input.walks) appendWalk(out, input, walk);
  out += "</body></html>\n";
  return out;
}

}  // namespace wayloom::tools
