// What a survey found.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tags.h"

namespace uhfctl {

// The readings at one power.
struct SurveyStep {
  int power = 0;       // in the module's own unit
  double seconds = 0;  // that it took
  int polls = 0;
  Tags tags;
  PollFaults faults{};

  // Readings a second of a tag.
  double rate_of(const std::string& epc) const;
  // Of the polls, those that read it, 0 to 1; other tags in the field do not lessen it as they do the rate.
  double share_of(const std::string& epc) const;
  // The mean; nothing when it was not read.
  std::optional<double> rssi_of(const std::string& epc) const;
};

struct Survey {
  std::string port;
  std::string time;  // when it began
  std::vector<SurveyStep> steps;
  std::size_t planned = 0;  // steps; fewer were made when it was cut short

  bool cut_short() const { return steps.size() < planned; }
  PollFaults faults() const;

  // Every tag that was read, in upper-case hexadecimal; the one read most often first.
  std::vector<std::string> epcs() const;
};

// By line::enough_power(); nothing when no step read the tag.
std::optional<int> recommended_power(const Survey& survey, const std::string& epc);

// Whether that is the least power that was surveyed: a lesser one may do as well.
bool least_was_enough(const Survey& survey, std::optional<int> recommended);

// FROM:TO:STEP as a list of powers, TO included when the steps meet it. Throws Failure kUsage.
std::vector<int> parse_powers(const std::string& text);

// A page that needs nothing but itself: the recommendation for the tag (may be empty), plots, and every figure.
std::string report_of(const Survey& survey, const std::string& epc);

// A line for each tag at each power, with a line of names before.
std::string csv_of(const Survey& survey);
nlohmann::ordered_json json_of(const Survey& survey, const std::string& epc);

}  // namespace uhfctl
