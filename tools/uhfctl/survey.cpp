#include "survey.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "cli/output_file.h"
#include "commands.h"
#include "failure.h"
#include "line/power_choice.h"
#include "tags.h"
#include "terminal.h"

namespace uhfctl {

namespace {

using refhost::power_text;

std::string number(double value, int decimals) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string local_time() {
  char text[32];
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", localtime_r(&now, &local));
  return text;
}

// Sets the power back to what it was, also when the survey ends early. A door that lends its reader does it by itself.
class PowerRestorer {
 public:
  PowerRestorer(const Port& port, unsigned short power) : port_(port), power_(power) {}
  ~PowerRestorer() {
    if (port_.loan() != nullptr) {
      return;
    }
    try {
      if (talking(port_, [power = power_](const auto& driver) { return driver.setTransmitPower(power); })) {
        note("the power is " + power_text(power_) + " again");
        return;
      }
    } catch (const Failure&) {  // told below
    }
    note("the power could not be set back: `uhfctl power set " + std::to_string(power_) + "` does it");
  }
  PowerRestorer(const PowerRestorer&) = delete;
  PowerRestorer& operator=(const PowerRestorer&) = delete;

 private:
  const Port& port_;
  unsigned short power_;
};

SurveyStep measure(const Port& port, int power, double time, const std::string& place) {
  const auto wanted = static_cast<unsigned short>(power);
  if (!talking(port, [wanted](const auto& driver) { return driver.setTransmitPower(wanted); })) {
    throw Failure(kNoAnswer,
                  "the reader at " + port.path() + " did not answer in time to the power " + power_text(power));
  }
  if (const auto has = port.power(); has != wanted) {
    throw Failure(kFailed, "the reader was told the power " + power_text(power) + " and has " + power_text(has) +
                               ": is that within what it can do?");
  }
  SurveyStep step{.power = power, .seconds = 0, .polls = 0, .tags = Tags(), .faults = {}};
  const auto begin = Clock::now();
  while (!interrupted() && Clock::now() - begin < std::chrono::duration<double>(time)) {
    const auto poll = port.poll_living();
    step.tags.add(poll, Clock::now());
    step.faults.add(poll.fault);
    ++step.polls;
    progress(place + power_text(power) + ", " + std::to_string(step.tags.all().size()) + " tags, " +
             std::to_string(step.tags.readings()) + " readings");
  }
  step.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  return step;
}

void write(const std::filesystem::path& file, const std::string& text) {
  achost::OutputFile out(file, achost::OutputFile::Form::whole);
  out.write(text);
  out.close();
}

std::string reading_of(const SurveyStep& step, const std::string& epc) {
  const auto rssi = step.rssi_of(epc);
  return rssi.has_value() ? number(step.share_of(epc) * 100, 0) + "%, RSSI " + number(*rssi, 0) : "-";
}

std::string as_table(const Survey& survey) {
  std::vector<std::vector<std::string>> rows{{"power"}};
  const auto epcs = survey.epcs();
  rows.front().insert(rows.front().end(), epcs.begin(), epcs.end());
  for (const auto& step : survey.steps) {
    rows.push_back({power_text(step.power)});
    for (const auto& epc : epcs) {
      rows.back().push_back(reading_of(step, epc));
    }
  }
  return table(rows);
}

// A line for each tag below its power, where the table is too wide.
std::string as_list(const Survey& survey) {
  std::string text;
  for (const auto& step : survey.steps) {
    text += power_text(step.power) + (step.tags.all().empty() ? "  no tag\n" : "\n");
    for (const auto& [epc, tag] : step.tags.all()) {
      text += "  " + epc + "\n    " + reading_of(step, epc) + "\n";
    }
  }
  return text;
}

std::string figures_of(const Survey& survey) {
  const auto table = as_table(survey);
  return is_terminal() && table.find('\n') > terminal_size().columns ? as_list(survey) : table;
}

// The report, and its figures beside it.
struct Files {
  explicit Files(const std::string& out) : page(out) {}

  std::filesystem::path csv() const { return beside(".csv"); }
  std::filesystem::path json() const { return beside(".json"); }
  std::vector<std::filesystem::path> all() const { return {page, csv(), json()}; }

  std::filesystem::path page;

 private:
  std::filesystem::path beside(const char* extension) const {
    return std::filesystem::path(page).replace_extension(extension);
  }
};

// A yes to a question, where somebody can be asked.
bool is_agreed(const std::string& question) {
  std::fputs(("uhfctl: " + question + " [y/N] ").c_str(), stderr);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

// Throws Failure when the files of an earlier survey are there, and are not to go.
void ask_before_overwriting(const Files& files, bool overwrite) {
  std::string there;
  for (const auto& file : files.all()) {
    if (std::filesystem::is_regular_file(file)) {
      there += (there.empty() ? "" : ", ") + file.string();
    }
  }
  if (there.empty() || overwrite) {
    return;
  }
  if (isatty(STDIN_FILENO) != 0 && notes_are_seen()) {
    if (is_agreed("overwrite " + there + "?")) {
      return;
    }
    throw Failure(kFailed, "nothing is overwritten: give another --out");
  }
  throw Failure(kFailed, "there already: " + there + "; give another --out, or --overwrite");
}

// Made before the survey, so that its minutes are not lost for a name that cannot be written.
void check_writable(const std::filesystem::path& file) {
  const auto parent = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
  const bool is_special = std::filesystem::exists(file) && !std::filesystem::is_regular_file(file);
  if (access((is_special ? file : parent).c_str(), W_OK) != 0) {
    throw Failure(kFailed, file.string() + " cannot be written: give another --out");
  }
}

}  // namespace

double SurveyStep::rate_of(const std::string& epc) const {
  const auto tag = tags.all().find(epc);
  return tag == tags.all().end() || seconds <= 0 ? 0 : tag->second.times / seconds;
}

double SurveyStep::share_of(const std::string& epc) const {
  const auto tag = tags.all().find(epc);
  return tag == tags.all().end() || polls == 0 ? 0 : static_cast<double>(tag->second.polls_read) / polls;
}

std::optional<double> SurveyStep::rssi_of(const std::string& epc) const {
  const auto tag = tags.all().find(epc);
  return tag == tags.all().end() ? std::nullopt : std::optional(tag->second.rssi_sum / tag->second.times);
}

std::vector<std::string> Survey::epcs() const {
  std::map<std::string, int> times;
  for (const auto& step : steps) {
    for (const auto& [epc, tag] : step.tags.all()) {
      times[epc] += tag.times;
    }
  }
  std::vector<std::string> result;
  for (const auto& [epc, count] : times) {
    result.push_back(epc);
  }
  std::ranges::stable_sort(result, std::greater(), [&times](const std::string& epc) { return times[epc]; });
  return result;
}

std::optional<int> recommended_power(const Survey& survey, const std::string& epc) {
  line::Place place;
  for (const auto& step : survey.steps) {
    place.push_back({.power = step.power, .share = step.share_of(epc)});
  }
  return line::enough_power(place);
}

bool least_was_enough(const Survey& survey, std::optional<int> recommended) {
  return recommended.has_value() && *recommended > 0 && survey.steps.size() > 1 &&
         *recommended == survey.steps.front().power;
}

PollFaults Survey::faults() const {
  PollFaults all;
  for (const auto& step : steps) {
    all += step.faults;
  }
  return all;
}

std::vector<int> parse_powers(const std::string& text) {
  std::vector<int> numbers;
  std::istringstream parts(text);
  for (std::string part; std::getline(parts, part, ':');) {
    numbers.push_back(power_from(part));
  }
  if (numbers.size() != 3 || text.ends_with(':') || numbers[0] > numbers[1] || numbers[2] == 0) {
    throw Failure(kUsage, "\"" + text + "\" is no range of powers: give FROM:TO:STEP, such as 15dBm:30dBm:2.5dBm");
  }
  std::vector<int> powers;
  for (int power = numbers[0]; power <= numbers[1]; power += numbers[2]) {
    powers.push_back(power);
  }
  return powers;
}

std::string csv_of(const Survey& survey) {
  std::string text =
      "power,epc,readings,readings_per_second,readings_per_poll,rssi_mean,rssi_least,rssi_most,seconds\n";
  for (const auto& step : survey.steps) {
    for (const auto& [epc, tag] : step.tags.all()) {
      text += std::to_string(step.power) + "," + epc + "," + std::to_string(tag.times) + "," +
              number(step.rate_of(epc), 2) + "," + number(step.share_of(epc), 3) + "," + number(*step.rssi_of(epc), 1) +
              "," + std::to_string(tag.least_rssi) + "," + std::to_string(tag.most_rssi) + "," +
              number(step.seconds, 2) + "\n";
    }
  }
  return text;
}

nlohmann::ordered_json json_of(const Survey& survey, const std::string& epc) {
  nlohmann::ordered_json object{{"port", survey.port}, {"time", survey.time}, {"tag", epc}};
  object["planned_steps"] = survey.planned;
  object["cut_short"] = survey.cut_short();
  object["polls"] = survey.faults().as_object();
  const auto power = recommended_power(survey, epc);
  object["least_was_enough"] = least_was_enough(survey, power);
  object["transmit_power"] = power.has_value() ? nlohmann::ordered_json(*power) : nlohmann::ordered_json();
  object["steps"] = nlohmann::ordered_json::array();
  for (const auto& step : survey.steps) {
    nlohmann::ordered_json tags = nlohmann::ordered_json::array();
    for (const auto& [name, tag] : step.tags.all()) {
      tags.push_back({{"epc", name},
                      {"readings", tag.times},
                      {"readings_per_second", step.rate_of(name)},
                      {"readings_per_poll", step.share_of(name)},
                      {"rssi_mean", *step.rssi_of(name)},
                      {"rssi_least", tag.least_rssi},
                      {"rssi_most", tag.most_rssi}});
    }
    object["steps"].push_back({{"power", step.power},
                               {"seconds", step.seconds},
                               {"polls", step.polls},
                               {"bad_polls", step.faults.bad()},
                               {"tags", std::move(tags)}});
  }
  return object;
}

namespace {

void write_all(const Files& files, const Survey& survey, const std::string& epc) {
  write(files.page, report_of(survey, epc));
  write(files.csv(), csv_of(survey));
  write(files.json(), json_of(survey, epc).dump(2) + "\n");
}

std::string recommendation_of(const Survey& survey, const std::string& epc) {
  const auto power = recommended_power(survey, epc);
  if (!power.has_value()) {
    return "No recommendation: " + (epc.empty() ? std::string("no tag was read") : epc + " was not read") + "\n";
  }
  return "Recommended for " + epc + ": " + coloured(Colour::bold, "transmit_power " + std::to_string(*power)) + ", " +
         power_text(*power) + "\n(`achost config set transmit_power " + std::to_string(*power) + "`)\n" +
         (least_was_enough(survey, power) ? "The least power that was surveyed was enough: survey lesser ones, too.\n"
                                          : "");
}

// What the figures are to be taken with care for.
void note_doubts(const Survey& survey) {
  if (survey.cut_short()) {
    note((interrupted() ? "interrupted" : "cut short") + std::string(" after ") + std::to_string(survey.steps.size()) +
         " of " + std::to_string(survey.planned) + " steps: what is recommended is of these alone");
  }
  if (const auto faults = survey.faults(); faults.noisy()) {
    note("noisy line: " + faults.text() + ": " + advice_on(faults.commonest()).way_out);
  }
}

// One step after the other; a failure ends it, and what was found until then is kept.
std::exception_ptr step_through(const Port& port, const std::vector<int>& powers, double seconds, Survey& survey) {
  try {
    const PowerRestorer restorer(port, port.power_or_nobody());
    for (std::size_t i = 0; i < powers.size() && !interrupted(); ++i) {
      auto step = measure(port, powers[i], seconds,
                          "step " + std::to_string(i + 1) + " of " + std::to_string(powers.size()) + ", ");
      if (step.polls > 0) {
        survey.steps.push_back(std::move(step));
      }
    }
    progress("");
    return nullptr;
  } catch (const Failure&) {
    progress("");
    return std::current_exception();
  }
}

}  // namespace

void survey(const Common& common, const SurveyOptions& options) {
  const auto powers = parse_powers(options.power);
  hold_power_to(options.law, powers.back());
  const Files files(options.out);
  for (const auto& file : files.all()) {
    check_writable(file);
  }
  const Port port(common);
  ask_before_overwriting(files, options.overwrite);
  catch_interrupts();
  Survey result{.port = common.port, .time = local_time(), .steps = {}, .planned = powers.size()};
  const auto failure = step_through(port, powers, options.seconds, result);
  if (failure != nullptr && result.steps.empty()) {
    std::rethrow_exception(failure);
  }
  const auto epcs = result.epcs();
  const auto epc = !options.tag.empty() ? upper(options.tag) : epcs.empty() ? "" : epcs.front();
  write_all(files, result, epc);
  if (common.json) {
    print(json_of(result, epc));
  } else {
    print(figures_of(result) + "\n" + recommendation_of(result, epc) + "Report: " + files.page.string() +
          "; figures: " + files.csv().string() + ", " + files.json().string() + "\n");
  }
  note_doubts(result);
  if (failure != nullptr) {
    std::rethrow_exception(failure);
  }
}

}  // namespace uhfctl
