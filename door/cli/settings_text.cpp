#include "door/cli/settings_text.h"

#include <map>
#include <utility>

#include "door/base/failure.h"

namespace achost {
namespace {

std::string trimmed(std::string_view text) {
  constexpr const char* kBlanks = " \t\r";
  const auto begin = text.find_first_not_of(kBlanks);
  return begin == text.npos ? "" : std::string(text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1));
}

// One line after the other.
class Reader {
 public:
  explicit Reader(std::string name) : name_(std::move(name)) {}

  void take(std::string_view text) {
    ++line_;
    const std::string line = trimmed(text);
    if (line.empty() || line.front() == '#') {
      return;
    }
    const auto equals = line.find('=');
    if (equals == std::string::npos) {
      refuse("\"" + line + "\" is no setting: give [SECTION.]KEY=VALUE");
    }
    try {
      add(checked_assignment(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1))));
    } catch (const refhost::SettingError& failure) {
      refuse(failure.what());
    }
  }

  std::vector<Assignment> settings() && { return std::move(settings_); }

 private:
  void add(Assignment setting) {
    const auto [first, is_new] = lines_.try_emplace({setting.section, setting.key}, line_);
    if (!is_new) {
      refuse(setting.section + "." + setting.key + " is set in line " + std::to_string(first->second) + " already");
    }
    settings_.push_back(std::move(setting));
  }

  [[noreturn]] void refuse(const std::string& text) const {
    throw Failure(kUsage, name_ + ":" + std::to_string(line_) + ": " + text);
  }

  const std::string name_;
  int line_ = 0;
  std::map<std::pair<std::string, std::string>, int> lines_;  // where each setting is set
  std::vector<Assignment> settings_;
};

}  // namespace

std::string settings_as_text(const std::vector<Assignment>& settings) {
  std::string text = "# The settings that are not the default; achost config import reads them.\n";
  for (const auto& [section, key, value] : settings) {
    text += section + "." + key + "=" + value + "\n";
  }
  return text;
}

std::vector<Assignment> parse_settings_text(std::string_view text, const std::string& name) {
  Reader reader(name);
  while (!text.empty()) {
    const auto end = text.find('\n');
    reader.take(text.substr(0, end));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return std::move(reader).settings();
}

}  // namespace achost
