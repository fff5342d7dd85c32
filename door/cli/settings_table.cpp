#include "door/cli/settings_table.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "cli/paragraph.h"
#include "cli/text_table.h"
#include "door/base/assignment.h"
#include "refhost/radio_limits.h"

namespace achost {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string name_of(const refhost::Setting& setting) {
  return setting.section == kDefaultSection ? setting.key : setting.section + "." + setting.key;
}

std::string origin(const SettingState& state) {
  const std::string from = state.is_overridden                          ? "this run"
                           : state.value == state.setting.default_value ? "default"
                                                                        : "set";
  return !state.in_force.has_value() || state.in_force->value == state.value
             ? from
             : from + ", but " + (state.in_force->value.empty() ? "-" : state.in_force->value) + " is in force";
}

std::vector<std::string> row_of(const SettingState& state) {
  const auto& setting = state.setting;
  return {name_of(setting),  state.value.empty() ? "-" : state.value,
          origin(state),     setting.unit.empty() ? "-" : setting.unit,
          setting.allowed(), setting.help + (setting.live ? "" : " (applies at the next start)")};
}

std::size_t widest_line(const std::string& text) {
  std::istringstream lines(text);
  std::size_t widest = 0;
  for (std::string line; std::getline(lines, line);) {
    widest = std::max(widest, line.size());
  }
  return widest;
}

// Each row with its last three cells below the others, in as many lines as they need.
std::string folded(const Rows& rows, std::size_t width) {
  constexpr std::size_t kIndent = 4;
  Rows heads;
  for (const auto& row : rows) {
    heads.emplace_back(row.begin(), row.begin() + 3);
  }
  std::istringstream lines(aligned(heads));
  std::string text;
  std::string line;
  for (std::size_t i = 0; std::getline(lines, line); ++i) {
    const auto& row = rows[i];
    const auto allowed = "Allowed: " + row[4] + (row[3] == "-" ? "." : " (" + row[3] + ").");
    text += line + "\n";
    text += i == 0 ? "" : std::string(kIndent, ' ') + cli::wrapped(row[5] + ". " + allowed, kIndent, width) + "\n";
  }
  return text;
}

// In a table of Markdown a bar would end the cell.
std::string cell(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result += c == '|' ? "\\|" : std::string(1, c);
  }
  return result.empty() ? "-" : result;
}

}  // namespace

std::string settings_as_table(const SettingStates& settings, std::size_t width) {
  Rows rows = {{"KEY", "VALUE", "FROM", "UNIT", "ALLOWED", "WHAT IT IS"}};
  for (const auto& state : settings) {
    rows.push_back(row_of(state));
  }
  const auto table = aligned(rows);
  return width == 0 || widest_line(table) <= width ? table : folded(rows, width);
}

std::string settings_as_json(const SettingStates& settings) {
  std::string text;
  for (const auto& [setting, value, is_overridden, in_force] : settings) {
    nlohmann::ordered_json object = {{"section", setting.section},
                                     {"key", setting.key},
                                     {"value", value},
                                     {"default", setting.default_value},
                                     {"is_default", value == setting.default_value},
                                     {"overridden", is_overridden},
                                     {"unit", setting.unit},
                                     {"allowed", setting.allowed()},
                                     {"live", setting.live},
                                     {"help", setting.help}};
    if (in_force.has_value()) {
      object["in_force"] = in_force->value;
      object["reason"] = in_force->reason;
    }
    text += object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  }
  return text;
}

namespace {

std::string regions_as_markdown() {
  std::string text =
      "\n## What a region allows\n\n"
      "More is refused, unless `host.beyond_region` is 1; `achost config set --force` sets that too. The law limits "
      "what\n"
      "the antenna radiates: `transmit_power` counts with one of " +
      std::to_string(refhost::kCountedGain) +
      " dBi and no loss in its cable. `21dBm` is taken as 2100.\n\n"
      "| `region` | `transmit_power`, at most | `work_channel` |\n|---|---|---|\n";
  for (const auto& limit : refhost::kRadioLimits) {
    text += "| " + std::string(limit.region) + " | " + std::to_string(limit.most_power) + " (" +
            refhost::power_text(limit.most_power) + ") | " + std::string(limit.channels) + " |\n";
  }
  return text;
}

}  // namespace

std::string settings_as_markdown(const refhost::SettingsSchema& schema) {
  std::string text =
      "# Settings\n\n"
      "Made from `refhost/share/settings.json` by `scripts/settings-doc`; change it there.\n\n"
      "`achost config list` shows the values, `achost config set [SECTION] KEY VALUE` changes one: of a host that "
      "runs,\n"
      "at once where the last column says so, else at its next start. `achost run --set KEY=VALUE` is for that run "
      "alone.\n";
  std::string section;
  for (const auto& setting : schema.settings()) {
    if (setting.section != section) {
      section = setting.section;
      text += "\n## Section `" + section + "`\n\n| Key | What it is | Default | Allowed | Unit | A change applies |\n" +
              "|---|---|---|---|---|---|\n";
    }
    text += "| `" + setting.key + "` | " + cell(setting.help) + " | " + cell(setting.default_value) + " | " +
            cell(setting.allowed()) + " | " + cell(setting.unit) + " | " +
            (setting.live ? "at once" : "at the next start") + " |\n";
  }
  return text + regions_as_markdown();
}

}  // namespace achost
