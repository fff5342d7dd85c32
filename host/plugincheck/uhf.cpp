// What uhf.so does: chapter 6, and what the other chapters say of it.
#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>

#include "notes.h"
#include "scenes.h"

namespace plugincheck {
namespace {

constexpr const char* kCard = "identifier_new_card";

Stage* started(const Plan& plan, std::initializer_list<ClauseId> clauses,
               const std::vector<SettingChange>& changes = {}) {
  Stage* const stage = Stage::started(plan, changes);
  if (stage != nullptr) {
    Notes::examine(clauses);
  }
  return stage;
}

std::uint32_t any_card(Stage& stage) { return 1U + static_cast<std::uint32_t>(stage.random().below(1'000'000'000)); }

// The line of a card's announcement; empty when there is none so far.
std::string line_of_card(const Stage& stage, std::uint32_t card) {
  for (const auto& line : stage.sent(kCard)) {
    if (line.find(" value=" + std::to_string(card) + " ") != std::string::npos) {
      return line;
    }
  }
  return {};
}

bool is_announced(const Stage& stage, std::uint32_t card) {
  return Stage::wait([&] { return !line_of_card(stage, card).empty(); });
}

bool is_quiet(const Stage& stage) {
  return !Stage::wait([&] { return stage.count(kCard) > 0; }, kQuiet);
}

// Whether a message of that type is sent whose line is so; the last one that was, else.
void expect_line(const Stage& stage, const std::string& type, const std::string& expected, ClauseId clause) {
  const auto has_it = [&] { return std::ranges::count(stage.sent(type), expected) > 0; };
  if (!Stage::wait(has_it)) {
    const auto lines = stage.sent(type);
    Notes::found(clause, lines.empty() ? "no \"" + type + "\" was sent" : "it sent " + lines.back());
  }
}

// The values of an announcement; nothing when its fields are not those that it should have, in their order.
std::optional<std::array<std::string, 5>> values_in(const std::string& line) {
  constexpr std::array<std::string_view, 5> kFields = {
      "identifier_id=", "value=", "device_id=", "readings_count=", "uuid="};
  std::array<std::string, 5> values;
  std::istringstream words(line);
  std::string word;
  words >> word;
  for (std::size_t i = 0; i < kFields.size(); ++i) {
    if (!(words >> word) || !word.starts_with(kFields[i])) {
      return std::nullopt;
    }
    values[i] = word.substr(kFields[i].size());
  }
  return words >> word ? std::nullopt : std::optional(values);
}

// 8-4-4-4-12 hexadecimal digits, of version 4.
bool is_uuid(const std::string& text) {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-4xxx-vxxx-xxxxxxxxxxxx";
  return std::ranges::equal(text, kForm, [](char c, char form) {
    const bool is_digit = std::isxdigit(static_cast<unsigned char>(c)) != 0;
    return form == 'x'   ? is_digit
           : form == 'v' ? std::string_view("89abAB").find(c) != std::string_view::npos
                         : c == form;
  });
}

void announce_cards(const Plan& plan) {
  constexpr std::size_t kTags = 5;
  Stage* const stage =
      started(plan, {"6.1", "6.2", "6.3", "6.4", "6.5"}, {{"uhf.read_interval", "60000"}, {"host.device_id", "47"}});
  if (stage == nullptr) {
    return;
  }
  std::set<std::uint32_t> cards;
  while (cards.size() < kTags) {
    cards.insert(any_card(*stage));
  }
  const auto first = *cards.begin();
  stage->reader().field().add(Stage::tag(first));
  if (!Stage::wait([&] { return stage->count(kCard) > 0; })) {
    Notes::found("6.1", "there is a tag in the field, and nothing was announced");
    return;
  }
  if (line_of_card(*stage, first).empty()) {
    Notes::found("6.2", "of the card " + std::to_string(first) + " it announced " + stage->sent(kCard).front());
    return;
  }
  for (const auto card : cards) {
    stage->reader().field().add(Stage::tag(card));
  }
  for (const auto card : cards) {
    if (!is_announced(*stage, card)) {
      Notes::found("6.5", "one of " + std::to_string(kTags) + " was not announced");
    }
  }
  Stage::wait([] { return false; }, kQuiet);  // for more of them
  std::set<std::string> uuids;
  for (const auto& line : stage->sent(kCard)) {
    const auto values = values_in(line);
    if (!values) {
      Notes::found("6.1", "it announced " + line);
      continue;
    }
    if (values->at(2) != "47") {
      Notes::found("6.2", "on the device 47 it announced " + line);
    }
    if (!is_uuid(values->at(4)) || !uuids.insert(values->at(4)).second) {
      Notes::found("6.3", "it announced " + line);
    }
  }
  if (const auto count = stage->count(kCard); count > kTags) {
    Notes::found("6.4", std::to_string(kTags) + " tags stayed in the field, and it announced " + std::to_string(count));
  }
}

void inhibit(const Plan& plan) {
  Stage* const stage =
      started(plan, {"6.6"}, {{"uhf.operation_mode", "inhibit"}, {"uhf.trig_gpio", "7"}, {"uhf.trigger_timeout", "0"}});
  if (stage == nullptr) {
    return;
  }
  stage->answer_gpio(1);
  stage->reader().field().add(Stage::tag(any_card(*stage)));
  if (!is_quiet(*stage)) {
    Notes::found("6.6", "while the input was active it announced a tag");
  }
  expect_line(*stage, "gpio_current_state", "gpio_current_state gpio=7", "6.6");
  stage->answer_gpio(0);
  if (!Stage::wait([&] { return stage->count(kCard) > 0; })) {
    Notes::found("6.6", "while the input was idle it announced nothing");
  }
}

void stay_unanswered(const Plan& plan) {
  Stage* const stage = started(plan, {"6.7"}, {{"uhf.operation_mode", "inhibit"}, {"uhf.trigger_timeout", "0"}});
  if (stage == nullptr) {
    return;
  }
  Notes::let_it_end();
  stage->answer_gpio(std::nullopt);
  // A question that was answered before may let one tag through; what is asked from now on is not answered.
  const auto before = stage->count("gpio_current_state");
  Stage::wait([&] { return stage->count("gpio_current_state") > before + 1; });
  stage->reader().field().add(Stage::tag(any_card(*stage)));
  if (Stage::wait([&] { return stage->count(kCard) > 0; }, kQuiet)) {
    Notes::found("6.7", "it announced a tag");
  }
}

void trigger(const Plan& plan) {
  Stage* const stage = started(
      plan, {"6.8"}, {{"uhf.operation_mode", "trigger"}, {"uhf.trig_gpio", "7"}, {"uhf.trigger_timeout", "60000"}});
  if (stage == nullptr) {
    return;
  }
  stage->reader().field().add(Stage::tag(any_card(*stage)));
  if (!is_quiet(*stage)) {
    Notes::found("6.8", "before the trigger it announced a tag");
  }
  stage->tell(message_of("gpio_notified", {{"gpio", 7}, {"value", 1}}));
  if (!Stage::wait([&] { return stage->count(kCard) > 0; })) {
    Notes::found("6.8", "after the trigger it announced nothing");
  }
}

void serve(const Plan& plan) {
  Stage* const stage = started(plan, {"6.9", "6.10", "6.11"});
  if (stage == nullptr) {
    return;
  }
  stage->tell(message_of("sec_box_rex_changed", {{"active", 0}}));
  expect_line(*stage, "actuator_open_door", "actuator_open_door id=1 reason=1", "6.9");
  stage->tell(message_of("enroller_remote_enroll",
                         {{"type", "card"}, {"user_id", std::int64_t{12}}, {"save", 0}, {"registration", "r7"}}));
  expect_line(*stage, "identifier_supress_actions", "identifier_supress_actions", "6.10");
  expect_line(*stage, "enroll_card", "enroll_card state=1 user_id=12 remote=1 registration=r7", "6.10");
  const auto endings =
      std::to_array<std::pair<const char*, Fields>>({{"enroll_rfid_successful", {{"user_card", std::int64_t{99}}}},
                                                     {"enroll_timeout", {}},
                                                     {"enroller_error", {{"error", 1}}}});
  std::size_t expected = 0;
  for (const auto& [type, fields] : endings) {
    ++expected;
    stage->tell(message_of(type, fields));
    if (!Stage::wait([&] { return stage->count("identifier_allow_actions") >= expected; })) {
      Notes::found("6.11", "after \"" + std::string(type) + "\" it let nobody act");
      return;
    }
  }
}

void record(const Plan& plan) {
  Stage* const stage = started(plan, {"6.12"});
  if (stage == nullptr) {
    return;
  }
  struct Event {
    const char* type;
    Fields fields;
    int kind;
  };
  const auto events = std::to_array<Event>(
      {{"config_param_set",
        {{"module", "uhf"}, {"param", "trig_idle"}, {"value", "0"}, {"previous_value", "1"}, {"sys_config", 0}},
        1},
       {"audit_logs_new_api", {{"details", "of it"}}, 2},
       {"audit_logs_new_usb", {{"details", "of it"}}, 3},
       {"audit_logs_new_network", {{"details", "of it"}}, 4},
       {"ac_util_system_clock_set", {{"previous_time", "then"}}, 5},
       {"audit_logs_new_online", {{"details", "of it"}}, 6},
       {"audit_logs_new_menu", {{"details", "of it"}}, 7},
       {"audit_logs_new_boot", {}, 8}});
  for (const auto& [type, fields, kind] : events) {
    stage->tell(message_of(type, fields));
    const auto records = stage->records();
    if (records.empty() || records.back().type != kind) {
      Notes::found("6.12", "of \"" + std::string(type) + "\" there is no record of the kind " + std::to_string(kind));
    }
  }
}

void change_power(const Plan& plan) {
  Stage* const stage = started(plan, {"6.13"});
  if (stage == nullptr) {
    return;
  }
  const auto power = 1500 + stage->random().below(1000);
  stage->settings().set("uhf", "transmit_power", std::to_string(power));
  if (!Stage::wait([&] { return stage->reader().state().power == power; })) {
    Notes::found("6.13", "transmit_power became " + std::to_string(power) + ", and the reader has " +
                             std::to_string(stage->reader().state().power));
  }
}

void detect(const Plan& plan) {
  Stage* const stage = started(plan, {"6.14"}, {{"uhf.tag_detector_enabled", "1"}, {"uhf.tag_detector_relay", "3"}});
  if (stage == nullptr) {
    return;
  }
  stage->reader().field().add(Stage::tag(any_card(*stage)));
  expect_line(*stage, "gpio_set_value", "gpio_set_value gpio=19 value=1", "6.14");
  stage->reader().field().clear();
  expect_line(*stage, "gpio_set_value", "gpio_set_value gpio=19 value=0", "6.14");
}

void hang_up(const Plan& plan) {
  Stage* const stage = started(plan, {"3.6"});
  if (stage == nullptr) {
    return;
  }
  Notes::let_it_end();
  stage->reader().faults().set("hang-up", 1);
  if (!Stage::wait([&] { return stage->ending().has_value(); })) {
    Notes::found("3.6", "it goes on");
  }
}

bool has_thread(const std::string& name) {
  for (const auto thread : threads_of_process()) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/comm");
    if (std::string its; std::getline(file, its) && its == name) {
      return true;
    }
  }
  return false;
}

void look_at_threads(const Plan& plan) {
  if (started(plan, {"4.4"}) != nullptr && !Stage::wait([] { return has_thread("uhf_watchdog"); })) {
    Notes::found("4.4", "there is none of that name");
  }
}

Scene of_uhf(const std::string& name, void (*play)(const Plan&)) {
  return {name, {"2.1"}, play, Scene::Act::playing, Level::uhf};
}

}  // namespace

std::vector<Scene> uhf_scenes() {
  return {of_uhf("cards", announce_cards),   of_uhf("inhibit", inhibit), of_uhf("unanswered", stay_unanswered),
          of_uhf("trigger", trigger),        of_uhf("services", serve),  of_uhf("records", record),
          of_uhf("power", change_power),     of_uhf("detector", detect), of_uhf("hang-up", hang_up),
          of_uhf("threads", look_at_threads)};
}

}  // namespace plugincheck
