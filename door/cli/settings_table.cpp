#include "door/cli/settings_table.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "cli/text_table.h"
#include "door/base/assignment.h"

namespace achost {
namespace {

std::string name_of(const refhost::Setting& setting) {
  return setting.section == kDefaultSection ? setting.key : setting.section + "." + setting.key;
}

std::vector<std::string> row_of(const refhost::SettingsStore& store, const refhost::Setting& setting) {
  const std::string value = store.get(setting.section, setting.key).value();
  const bool overridden = store.is_overridden(setting.section, setting.key);
  return {name_of(setting),
          value.empty() ? "-" : value,
          overridden                       ? "this run"
          : value == setting.default_value ? "default"
                                           : "set",
          setting.unit.empty() ? "-" : setting.unit,
          setting.allowed(),
          setting.help + (setting.live ? "" : " (applies at the next start)")};
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

std::string settings_as_table(const refhost::SettingsStore& store) {
  std::vector<std::vector<std::string>> rows = {{"KEY", "VALUE", "FROM", "UNIT", "ALLOWED", "WHAT IT IS"}};
  for (const auto& setting : store.schema().settings()) {
    rows.push_back(row_of(store, setting));
  }
  return aligned(rows);
}

std::string settings_as_json(const refhost::SettingsStore& store) {
  std::string text;
  for (const auto& setting : store.schema().settings()) {
    const auto value = store.get(setting.section, setting.key).value();
    const nlohmann::ordered_json object = {{"section", setting.section},
                                           {"key", setting.key},
                                           {"value", value},
                                           {"default", setting.default_value},
                                           {"is_default", value == setting.default_value},
                                           {"overridden", store.is_overridden(setting.section, setting.key)},
                                           {"unit", setting.unit},
                                           {"allowed", setting.allowed()},
                                           {"live", setting.live},
                                           {"help", setting.help}};
    text += object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  }
  return text;
}

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
  return text;
}

}  // namespace achost
