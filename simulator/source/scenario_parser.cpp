#include "scenario_parser.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "numbers.h"
#include "uhfsim/text.h"

namespace uhfsim {

namespace {

constexpr double kMostSeconds = 86400;

struct Unit {
  std::string_view suffix;
  double milliseconds;
};

// "ms" before "s": the first suffix that fits is taken, and no suffix always fits.
constexpr Unit kUnits[] = {{"ms", 1}, {"s", 1000}, {"", 1000}};

}  // namespace

Scenario Scenario::parse(std::string_view text, const std::string& name, const HostCheck& check) {
  return ScenarioParser(name, check).parse(text);
}

Scenario Scenario::load(const std::string& path, const HostCheck& check) {
  std::ifstream file(path, std::ios::binary);
  file.peek();  // a directory can be opened, but not read
  if (!file.is_open() || file.bad()) {
    throw ScenarioError(path + ": the file cannot be read (" + std::strerror(errno) + "); expected a scenario file");
  }
  std::ostringstream text;
  text << file.rdbuf();
  return parse(text.str(), path, check);
}

Scenario ScenarioParser::parse(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = text.find('\n');
    ++line_;
    read_line(words_of(text.substr(0, length)));
    text.remove_prefix(length == text.npos ? text.size() : length + 1);
  }
  check_reached();
  std::ranges::stable_sort(scenario_.events_, {}, &Scenario::Event::at);
  return std::move(scenario_);
}

void ScenarioParser::read_line(const Words& words) {
  if (words.empty()) return;
  if (words[0] == "at") return read_at(words);
  if (words[0] == "loop") return read_loop(words);
  auto names = command_names();
  if (std::ranges::find(names, words[0]) == names.end()) {
    names.insert(names.end(), {"at", "loop"});
    fail("unknown word " + quoted(words[0]), alternatives(names));
  }
  read_event(Scenario::Time::zero(), words);
}

void ScenarioParser::read_at(const Words& words) {
  if (words.size() < 3) fail("too few words after \"at\"", "\"at TIME COMMAND\"");
  read_event(read_time(words[1]), {words.begin() + 2, words.end()});
}

void ScenarioParser::read_loop(const Words& words) {
  if (words.size() != 2)
    fail(words.size() < 2 ? "no time after \"loop\"" : "too many words after \"loop\"", "\"loop TIME\"");
  if (scenario_.loop_) fail("a second \"loop\"", "at most one");
  const Scenario::Time time = read_time(words[1]);
  if (time == Scenario::Time::zero()) fail("loop time " + quoted(words[1]), "at least 1ms");
  scenario_.loop_ = time;
}

void ScenarioParser::read_event(Scenario::Time at, const Words& words) {
  try {
    Command command = parse_command(words);
    if (const auto* told = std::get_if<TellHost>(&command); told != nullptr && check_) check_(told->line);
    scenario_.events_.push_back({at, std::move(command)});
  } catch (const CommandError& error) {
    fail(error.what());
  }
  event_lines_.push_back(line_);
}

Scenario::Time ScenarioParser::read_time(std::string_view text) const {
  const auto* unit = std::ranges::find_if(kUnits, [text](const Unit& u) { return text.ends_with(u.suffix); });
  const std::string_view number = text.substr(0, text.size() - unit->suffix.size());
  const auto value = number_from<double>(number, std::chars_format::fixed);
  const double milliseconds = value.value_or(-1) * unit->milliseconds;
  if (!(milliseconds >= 0 && milliseconds <= kMostSeconds * 1000)) {
    fail("time " + quoted(text), "seconds such as 1.5, 2s or 500ms, from 0 to 86400s");
  }
  return Scenario::Time(std::llround(milliseconds));
}

// An event that the loop cuts off is a mistake of whoever wrote it.
void ScenarioParser::check_reached() {
  if (!scenario_.loop_) return;
  const auto late = [this](const Scenario::Event& event) { return event.at >= *scenario_.loop_; };
  const auto event = std::ranges::find_if(scenario_.events_, late);
  if (event == scenario_.events_.end()) return;
  line_ = event_lines_[static_cast<std::size_t>(event - scenario_.events_.begin())];
  const auto loop = std::to_string(scenario_.loop_->count());
  fail("time " + std::to_string(event->at.count()) + "ms is never reached", "less than the loop's " + loop + "ms");
}

void ScenarioParser::fail(const std::string& found, const std::string& expected) const {
  fail(found + "; expected " + expected);
}

void ScenarioParser::fail(const std::string& found_and_expected) const {
  throw ScenarioError(name_ + ':' + std::to_string(line_) + ": " + found_and_expected);
}

}  // namespace uhfsim
