#include "daemon/settings_table.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <vector>

#include "daemon/assignment.h"

namespace achost {
namespace {

using Row = std::array<std::string, 6>;

Row row_of(const refhost::Setting& setting, const std::string& value) {
  return {setting.section == kDefaultSection ? setting.key : setting.section + "." + setting.key,
          value.empty() ? "-" : value,
          value == setting.default_value ? "default" : "set",
          setting.unit.empty() ? "-" : setting.unit,
          setting.allowed(),
          setting.help + (setting.live ? "" : " (applies at the next start)")};
}

// The rows with each column but the last as wide as its widest cell.
std::string aligned(const std::vector<Row>& rows) {
  std::array<std::size_t, std::tuple_size_v<Row>> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string text;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      text += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    text += row.back() + "\n";
  }
  return text;
}

}  // namespace

std::string settings_as_table(const refhost::SettingsStore& store) {
  std::vector<Row> rows = {{"KEY", "VALUE", "FROM", "UNIT", "ALLOWED", "WHAT IT IS"}};
  for (const auto& setting : store.schema().settings()) {
    rows.push_back(row_of(setting, store.get(setting.section, setting.key).value()));
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
                                           {"unit", setting.unit},
                                           {"allowed", setting.allowed()},
                                           {"live", setting.live},
                                           {"help", setting.help}};
    text += object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  }
  return text;
}

}  // namespace achost
