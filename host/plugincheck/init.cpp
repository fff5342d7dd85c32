// Chapter 2: init() with settings that are not as they should be, and without a reader.
#include <algorithm>
#include <array>
#include <cstdint>

#include "notes.h"
#include "scenes.h"

namespace plugincheck {
namespace {

using Changes = std::vector<SettingChange>;

Stage::Outcome try_init(const Plan& plan, const Changes& changes, const std::function<void(Stage&)>& prepare = {}) {
  Stage& stage = *new Stage(plan, changes);
  if (prepare) {
    prepare(stage);
  }
  const auto before = threads_of_process();
  auto outcome = stage.init();
  if (!outcome.started) {
    Notes::look_at({"2.3", "2.6"});
    const bool are_gone = Stage::wait([&] { return threads_of_process().size() <= before.size(); });
    if (!are_gone) {
      Notes::found("2.6", "after \"" + outcome.text + "\" there are " +
                              std::to_string(threads_of_process().size() - before.size()) + " more than before");
    }
  }
  return outcome;
}

Scene with_settings(const std::string& name, const Changes& changes) {
  return {name, {"2.5"}, [changes](const Plan& plan) { try_init(plan, changes); }, Scene::Act::playing};
}

bool names(const std::string& text, const std::string& setting) { return text.find(setting) != std::string::npos; }

// One that uhf.so cannot do without.
Scene required(const std::string& key) {
  const auto play = [key](const Plan& plan) {
    const auto outcome = try_init(plan, {{"uhf." + key, std::nullopt}});
    if (outcome.started) {
      Notes::found("2.12", "without " + key + " it started");
    } else if (!names(outcome.text, key)) {
      Notes::found("2.12", "without " + key + " it says \"" + outcome.text + "\"");
    }
  };
  return {"required-" + key, {"2.5", "2.12"}, play, Scene::Act::playing, Level::uhf};
}

void without_device(const Plan& plan) {
  const auto outcome = try_init(plan, {{"uhf.serial_port_path", plan.directory / "none"}});
  Notes::examine({"2.11"});
  if (outcome.started && plan.level == Level::uhf) {
    Notes::found("2.11", "it started without its device");
  }
}

void with_silent_device(const Plan& plan) {
  const auto outcome = try_init(plan, {}, [](Stage& stage) { stage.reader().faults().set("silence", 1); });
  if (outcome.started && plan.level == Level::uhf) {
    Notes::found("2.11", "it started with a reader that says nothing");
  }
}

// A value that is no good, whatever the setting is for.
std::vector<std::pair<std::string, std::string>> odd_values() {
  return {{"malformed", "12x;--7"}, {"below", "-2147483648"}, {"beyond", "99999999999999999999"}, {"empty", ""}};
}

}  // namespace

std::vector<Scene> init_scenes() {
  std::vector<Scene> scenes;
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    if (setting.section != "uhf") {
      continue;
    }
    const std::string name = setting.section + "." + setting.key;
    scenes.push_back(with_settings("missing-" + setting.key, {{name, std::nullopt}}));
    for (const auto& [how, value] : odd_values()) {
      scenes.push_back(with_settings(how + "-" + setting.key, {{name, value}}));
    }
  }
  scenes.push_back({"without-device", {"2.2"}, without_device});
  scenes.push_back({"silent-device", {"2.2"}, with_silent_device});
  scenes.push_back(required("trig_gpio"));
  scenes.push_back(required("watchdog_timeout"));
  scenes.push_back(required("serial_port_timeout"));
  return scenes;
}

}  // namespace plugincheck
