// Chapters 3 and 4: run() and the handlers, beside a reader whose tags come and go.
#include <algorithm>

#include "notes.h"
#include "odd_messages.h"
#include "scenes.h"

namespace plugincheck {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kLimit{4000};  // of the watchdog; watchdog_timeout is a fortieth of it

void note_ending(const Stage& stage) {
  if (const auto ending = stage.ending()) {
    Notes::found("3.1", *ending);
  }
}

// Its run() has begun, as far as it tells the watchdog: what it does wrong at its beginning comes before that. Null
// when there is no stage.
Stage* reading(const Plan& plan) {
  Stage* const stage = Stage::started(plan);
  if (stage != nullptr) {
    Stage::wait([stage] { return stage->ending() || !stage->names_alive().empty(); });
  }
  return stage;
}

// Tags come and go, one change each time.
void stir(Stage& stage) {
  constexpr std::uint32_t kTags = 12;
  const auto tag = Stage::tag(0x1000U + static_cast<std::uint32_t>(stage.random().below(kTags)));
  if (stage.random().chance(0.5)) {
    stage.reader().field().add(tag);
  } else {
    stage.reader().field().remove(tag.epc);
  }
}

void send_odd_messages(const Plan& plan) {
  constexpr int kRounds = 40;
  Stage* const stage = reading(plan);
  if (stage == nullptr) {
    return;
  }
  Notes::examine({"3.1", "3.2", "3.3", "3.5"});
  for (int round = 0; round < kRounds && !stage->ending(); ++round) {
    stir(*stage);
    for (const auto& type : stage->types()) {
      if (!stage->tell(odd_message(type, stage->random()))) {
        return;
      }
    }
  }
  note_ending(*stage);
}

// A value that the setting takes; not one that makes it pause for so long that the watchdog would bark.
std::string allowed_value(const refhost::Setting& setting, uhfsim::Random& random) {
  constexpr std::int64_t kMost = 500;
  switch (setting.type) {
    case refhost::SettingType::integer:
      return std::to_string(setting.min + static_cast<std::int64_t>(random.below(static_cast<std::size_t>(
                                              std::min(setting.max - setting.min, kMost) + 1))));
    case refhost::SettingType::choice:
      return setting.choices.at(random.below(setting.choices.size()));
    case refhost::SettingType::flag:
      return random.chance(0.5) ? "1" : "0";
    case refhost::SettingType::int_ranges:
      return random.chance(0.5) ? "0-10" : "3;7-9;20";
    default:
      return setting.default_value;
  }
}

void change_settings(const Plan& plan) {
  constexpr int kRounds = 6;
  Stage* const stage = reading(plan);
  if (stage == nullptr) {
    return;
  }
  Notes::examine({"3.1", "3.2", "3.4", "4.2"});
  for (int round = 0; round < kRounds; ++round) {
    for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
      if (setting.section != "uhf" || !setting.live) {
        continue;
      }
      stir(*stage);
      const auto previous = stage->settings().get("uhf", setting.key).value_or("");
      const auto value = allowed_value(setting, stage->random());
      stage->settings().set("uhf", setting.key, value);
      if (!stage->tell(message_of("config_param_set", {{"module", "uhf"},
                                                       {"param", setting.key},
                                                       {"value", value},
                                                       {"previous_value", previous},
                                                       {"sys_config", 0}}))) {
        return;
      }
    }
  }
  note_ending(*stage);
}

void look_at_names(const Plan& plan, const Stage& stage) {
  const auto is_alive = [&stage](const char* name) {
    return Stage::wait([&] { return std::ranges::count(stage.names_alive(), name) > 0; });
  };
  if (!Stage::wait([&] { return !stage.names_alive().empty(); })) {
    Notes::found("4.1", "it has told the watchdog nothing for ten seconds");
  }
  if (plan.level == Level::contract) {
    return;
  }
  Notes::examine({"4.3"});
  for (const auto* const name : {"uhf", "uhf_worker", "uhf_write_threads"}) {
    if (!is_alive(name)) {
      Notes::found("4.3", "nobody says \"" + std::string(name) + "\"");
    }
  }
}

void watch(const Plan& plan) {
  Stage* const stage = Stage::started(plan);
  if (stage == nullptr) {
    return;
  }
  Notes::examine({"3.1", "4.1", "4.2"});
  stage->watch_keep_alives(kLimit);
  look_at_names(plan, *stage);
  Notes::examine({"3.1", "4.2"});
  const auto end = steady_clock::now() + kLimit + kLimit / 4;
  Stage::wait([&] { return stage->ending() || steady_clock::now() > end; });
  note_ending(*stage);
}

}  // namespace

std::vector<Scene> running_scenes() {
  return {
      {"odd-messages", {"2.1"}, send_odd_messages}, {"settings", {"2.1"}, change_settings}, {"watch", {"2.1"}, watch}};
}

}  // namespace plugincheck
