#include "survey.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <exception>
#include <filesystem>
#include <sstream>

#include "cli/output_file.h"
#include "commands.h"
#include "failure.h"
#include "terminal.h"

namespace uhfctl {

namespace {

using refhost::power_text;

constexpr double kGoodEnough = 0.9;  // of the best share

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

// Sets the power back to what it was, also when the survey ends early.
class PowerRestorer {
 public:
  PowerRestorer(const Port& port, unsigned short power) : port_(port), power_(power) {}
  ~PowerRestorer() {
    try {
      if (port_.driver().setTransmitPower(power_)) {
        note("the power is " + power_text(power_) + " again");
        return;
      }
    } catch (const ac::ac_exception&) {  // told below
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
  if (!talking(port, [&] { return port.driver().setTransmitPower(wanted); })) {
    throw Failure(kNoAnswer,
                  "the reader at " + port.path() + " did not answer in time to the power " + power_text(power));
  }
  if (const auto has = port.power(); has != wanted) {
    throw Failure(kFailed, "the reader was told the power " + power_text(power) + " and has " + power_text(has) +
                               ": is that within what it can do?");
  }
  SurveyStep step{.power = power, .seconds = 0, .polls = 0, .tags = Tags()};
  const auto begin = Clock::now();
  while (!interrupted() && Clock::now() - begin < std::chrono::duration<double>(time)) {
    const auto poll = port.poll();
    if (!poll.answered) {
      port.power();
    }
    step.tags.add(poll, Clock::now());
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

std::string as_table(const Survey& survey) {
  std::vector<std::vector<std::string>> rows{{"power"}};
  const auto epcs = survey.epcs();
  for (const auto& epc : epcs) {
    rows.front().push_back(epc);
  }
  for (const auto& step : survey.steps) {
    rows.push_back({power_text(step.power)});
    for (const auto& epc : epcs) {
      const auto rssi = step.rssi_of(epc);
      rows.back().push_back(rssi.has_value() ? number(step.rate_of(epc), 1) + "/s, RSSI " + number(*rssi, 0) : "-");
    }
  }
  return table(rows);
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
  return tag == tags.all().end() || polls == 0 ? 0 : static_cast<double>(tag->second.times) / polls;
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
  double best = 0;
  for (const auto& step : survey.steps) {
    best = std::max(best, step.share_of(epc));
  }
  std::optional<int> least;
  for (const auto& step : survey.steps) {
    if (best > 0 && step.share_of(epc) >= kGoodEnough * best && (!least.has_value() || step.power < *least)) {
      least = step.power;
    }
  }
  return least;
}

std::vector<int> parse_powers(const std::string& text) {
  std::vector<int> numbers;
  std::istringstream parts(text);
  for (std::string part; std::getline(parts, part, ':');) {
    numbers.push_back(power_from(part));
  }
  if (numbers.size() != 3 || numbers[0] > numbers[1] || numbers[2] == 0) {
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
  const auto power = recommended_power(survey, epc);
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
    object["steps"].push_back(
        {{"power", step.power}, {"seconds", step.seconds}, {"polls", step.polls}, {"tags", std::move(tags)}});
  }
  return object;
}

void survey(const Common& common, const SurveyOptions& options) {
  const auto powers = parse_powers(options.power);
  hold_power_to(options.law, powers.back());
  std::string epc = options.tag;
  std::ranges::transform(epc, epc.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  const std::filesystem::path page(options.out);
  const auto beside = [&page](const char* extension) {
    return std::filesystem::path(page).replace_extension(extension);
  };
  for (const auto& file : {page, beside(".csv"), beside(".json")}) {
    check_writable(file);
  }
  const Port port(common.port, std::chrono::milliseconds(common.timeout));
  const auto before = port.power_or_nobody();
  catch_interrupts();
  Survey result{.port = common.port, .time = local_time(), .steps = {}};
  std::exception_ptr failure;  // what was found until then is kept all the same
  try {
    const PowerRestorer restorer(port, before);
    for (std::size_t i = 0; i < powers.size() && !interrupted(); ++i) {
      result.steps.push_back(measure(port, powers[i], options.seconds,
                                     "step " + std::to_string(i + 1) + " of " + std::to_string(powers.size()) + ", "));
    }
    progress("");
  } catch (const Failure&) {
    progress("");
    failure = std::current_exception();
  }
  const auto epcs = result.epcs();
  if (epc.empty() && !epcs.empty()) {
    epc = epcs.front();
  }
  write(page, report_of(result, epc));
  write(beside(".csv"), csv_of(result));
  write(beside(".json"), json_of(result, epc).dump(2) + "\n");
  if (interrupted()) {
    note("interrupted after " + std::to_string(result.steps.size()) + " of " + std::to_string(powers.size()) +
         " steps");
  }
  if (common.json) {
    print(json_of(result, epc));
  } else {
    print(as_table(result));
    const auto power = recommended_power(result, epc);
    print(power.has_value()
              ? "\nRecommended for " + epc + ": " + coloured(Colour::bold, "transmit_power " + std::to_string(*power)) +
                    ", " + power_text(*power) + " (`achost config set uhf transmit_power " + std::to_string(*power) +
                    "`)\n"
              : "\nNo recommendation: " + (epc.empty() ? std::string("no tag was read") : epc + " was not read") +
                    "\n");
    print("Report: " + page.string() + "; figures: " + beside(".csv").string() + ", " + beside(".json").string() +
          "\n");
  }
  if (failure != nullptr) {
    std::rethrow_exception(failure);
  }
}

}  // namespace uhfctl
