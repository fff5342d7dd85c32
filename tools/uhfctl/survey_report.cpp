// The report of a survey as a page of HTML with its plots drawn in it.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "refhost/radio_limits.h"
#include "survey.h"

namespace uhfctl {

namespace {

using refhost::power_text;

constexpr int kWidth = 760;
constexpr int kHeight = 300;
constexpr int kLeft = 56;
constexpr int kBottom = 40;
constexpr int kTop = 14;
constexpr int kRight = 24;

// Told apart also by who sees colours badly (Okabe and Ito).
constexpr const char* kColours[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7",
                                    "#E69F00", "#56B4E9", "#000000", "#999999"};

std::string number(double value, int decimals) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '&':
        result += "&amp;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

// The next of 1, 2, 5, 10, 20, ... that makes at most five marks.
double mark_distance(double most) {
  double distance = 1;
  for (int i = 0; most / distance > 5; ++i) {
    distance *= i % 3 == 1 ? 2.5 : 2;
  }
  return distance;
}

using Value = std::function<std::optional<double>(const SurveyStep&, const std::string&)>;

// A line for each tag over the power.
std::string plot(const Survey& survey, const std::vector<std::string>& epcs, const std::string& name,
                 const Value& value, std::optional<int> recommended) {
  double most = 1;
  for (const auto& step : survey.steps) {
    for (const auto& epc : epcs) {
      most = std::max(most, value(step, epc).value_or(0));
    }
  }
  const int first = survey.steps.front().power;
  const int last = std::max(survey.steps.back().power, first + 1);
  const double distance = mark_distance(most);
  const double top = std::ceil(most / distance) * distance;
  const auto x = [&](int power) {
    return kLeft + static_cast<double>(power - first) / (last - first) * (kWidth - kLeft - kRight);
  };
  const auto y = [&](double at) { return kHeight - kBottom - at / top * (kHeight - kBottom - kTop); };
  std::string svg = "<svg role=\"img\" aria-label=\"" + escaped(name) + " over power\" viewBox=\"0 0 " +
                    std::to_string(kWidth) + " " + std::to_string(kHeight) + "\">\n";
  for (double mark = 0; mark <= top + distance / 2; mark += distance) {
    svg += "<line class=\"grid\" x1=\"" + std::to_string(kLeft) + "\" x2=\"" + std::to_string(kWidth - kRight) +
           "\" y1=\"" + number(y(mark), 1) + "\" y2=\"" + number(y(mark), 1) + "\"/><text x=\"" +
           std::to_string(kLeft - 8) + "\" y=\"" + number(y(mark) + 4, 1) + "\" text-anchor=\"end\">" +
           number(mark, 0) + "</text>\n";
  }
  const std::size_t every = survey.steps.size() / 9 + 1;
  for (std::size_t i = 0; i < survey.steps.size(); i += every) {
    const int power = survey.steps[i].power;
    svg += "<text x=\"" + number(x(power), 1) + "\" y=\"" + std::to_string(kHeight - kBottom + 18) +
           "\" text-anchor=\"middle\">" + number(power / 100.0, power % 100 == 0 ? 0 : 1) + "</text>\n";
  }
  svg += "<text x=\"" + std::to_string((kLeft + kWidth - kRight) / 2) + "\" y=\"" + std::to_string(kHeight - 4) +
         "\" text-anchor=\"middle\">power, dBm</text>\n";
  if (recommended.has_value()) {
    svg += "<line class=\"chosen\" x1=\"" + number(x(*recommended), 1) + "\" x2=\"" + number(x(*recommended), 1) +
           "\" y1=\"" + std::to_string(kTop) + "\" y2=\"" + std::to_string(kHeight - kBottom) + "\"/>\n";
  }
  for (std::size_t i = 0; i < epcs.size(); ++i) {
    const std::string colour = kColours[i % std::size(kColours)];
    std::string points;
    std::string dots;
    for (const auto& step : survey.steps) {
      if (const auto at = value(step, epcs[i])) {
        const auto place = number(x(step.power), 1) + "," + number(y(*at), 1);
        points += (points.empty() ? "" : " ") + place;
        dots += "<circle cx=\"" + number(x(step.power), 1) + "\" cy=\"" + number(y(*at), 1) + "\" r=\"3.5\" fill=\"" +
                colour + "\"><title>" + epcs[i] + " at " + power_text(step.power) + ": " + number(*at, 1) +
                "</title></circle>";
      }
    }
    svg += "<polyline points=\"" + points + "\" fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"2\"/>" + dots +
           "\n";
  }
  return svg + "</svg>\n";
}

std::string legend(const std::vector<std::string>& epcs) {
  std::string html = "<p class=\"legend\">";
  for (std::size_t i = 0; i < epcs.size(); ++i) {
    html += "<span><i style=\"background:" + std::string(kColours[i % std::size(kColours)]) + "\"></i>" + epcs[i] +
            "</span> ";
  }
  return html + "</p>\n";
}

std::string figures(const Survey& survey, const std::vector<std::string>& epcs, std::optional<int> recommended) {
  std::string html = "<table><thead><tr><th>power</th>";
  for (const auto& epc : epcs) {
    html += "<th>" + epc + "</th>";
  }
  html += "</tr></thead><tbody>\n";
  for (const auto& step : survey.steps) {
    html += step.power == recommended ? "<tr class=\"chosen\">" : "<tr>";
    html += "<td>" + power_text(step.power) + "</td>";
    for (const auto& epc : epcs) {
      const auto rssi = step.rssi_of(epc);
      html += rssi.has_value()
                  ? "<td>" + number(step.share_of(epc) * 100, 0) + "&nbsp;%, RSSI " + number(*rssi, 0) + "</td>"
                  : "<td class=\"none\">not read</td>";
    }
    html += "</tr>\n";
  }
  return html + "</tbody></table>\n";
}

std::string answer_of(const Survey& survey, const std::string& epc, std::optional<int> recommended) {
  if (!recommended.has_value()) {
    return "<p class=\"answer no\">No recommendation: " +
           (epc.empty() ? std::string("no tag was read") : escaped(epc) + " was not read") +
           ". Hold the tag where it is to be read, and survey higher powers.</p>\n";
  }
  const auto power = std::to_string(*recommended);
  return "<p class=\"answer\">For " + escaped(epc) + ": <b>transmit_power " + power + "</b> (" +
         power_text(*recommended) +
         "), the least at which at least nine tenths as many polls read it as at its best.<br><code>achost config set "
         "uhf transmit_power " +
         power + "</code>" +
         (least_was_enough(survey, recommended) ? "<br>It is the least that was surveyed: survey lesser ones, too."
                                                : "") +
         "</p>\n";
}

// What the figures are to be taken with care for.
std::string doubts_of(const Survey& survey) {
  std::string html;
  if (survey.cut_short()) {
    html += "<p class=\"answer no\">Cut short after " + std::to_string(survey.steps.size()) + " of " +
            std::to_string(survey.planned) + " steps: what is recommended is of these alone.</p>\n";
  }
  if (const auto faults = survey.faults(); faults.noisy()) {
    html += "<p class=\"answer no\">Noisy line: " + faults.text() + "; " + advice_on(faults.commonest()).way_out +
            ".</p>\n";
  }
  return html;
}

constexpr const char* kStyle = R"(<style>
body{font:16px/1.5 system-ui,sans-serif;color:#1f2933;max-width:820px;margin:2rem auto;padding:0 1rem}
h1{font-size:1.5rem;margin-bottom:.2rem}h2{font-size:1.1rem;margin:2rem 0 .3rem}
.under{color:#52606d;margin-top:0}.answer{background:#e8f3ec;border-left:4px solid #009E73;padding:.7rem 1rem}
.answer.no{background:#fbeeea;border-color:#D55E00}code{background:#f0f2f5;padding:.1em .3em}
svg{width:100%;height:auto;font:12px system-ui,sans-serif;fill:#52606d}.grid{stroke:#e4e7eb}
line.chosen{stroke:#009E73;stroke-dasharray:5 4}
.legend span{margin-right:1.2rem;white-space:nowrap}.legend i{display:inline-block;width:.9em;height:.9em;margin-right:.4em}
table{border-collapse:collapse;font-variant-numeric:tabular-nums}th,td{padding:.25rem .8rem;text-align:right;border-bottom:1px solid #e4e7eb}
tr.chosen td{background:#e8f3ec}.none{color:#9aa5b1}.wide{overflow-x:auto}
</style>
)";

}  // namespace

std::string report_of(const Survey& survey, const std::string& epc) {
  const auto epcs = survey.epcs();
  const auto recommended = recommended_power(survey, epc);
  std::string html =
      "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width\">\n<title>Survey of " +
      escaped(survey.port) + "</title>\n" + kStyle + "</head><body>\n<h1>Survey of the reader at " +
      escaped(survey.port) + "</h1>\n<p class=\"under\">" + survey.time + ", " + std::to_string(survey.steps.size()) +
      " steps of power, " + std::to_string(epcs.size()) + (epcs.size() == 1 ? " tag" : " tags") + "</p>\n";
  html += answer_of(survey, epc, recommended) + doubts_of(survey);
  if (!epcs.empty()) {
    html += "<h2>Share of the polls that read it, in percent</h2>\n" +
            plot(
                survey, epcs, "share of polls",
                [](const SurveyStep& step, const std::string& tag) { return std::optional(step.share_of(tag) * 100); },
                recommended) +
            legend(epcs) + "<h2>Received signal strength (RSSI, as the reader gives it)</h2>\n" +
            plot(
                survey, epcs, "RSSI", [](const SurveyStep& step, const std::string& tag) { return step.rssi_of(tag); },
                recommended) +
            legend(epcs) + "<h2>Figures</h2>\n<div class=\"wide\">" + figures(survey, epcs, recommended) + "</div>\n";
  }
  return html + "</body></html>\n";
}

}  // namespace uhfctl
