// What a door is to have, as lines: all of its users with their cards, all of its schedules or nothing of them, and
// settings.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace fleet {

// Each line is a JSON object, without its newline.
struct Document {
  std::map<std::int64_t, std::string> users;       // by their numbers
  std::optional<std::set<std::string>> schedules;  // rows as `achost schedule export` has them; nothing: the door's own
  std::map<std::string, std::string> settings;     // by SECTION.KEY

  bool operator==(const Document&) const = default;
};

// Of the text of a file that `achost user import`, `achost schedule import` or `achost config import` takes. name: of
// the file, for messages. Throw cli::Failure (kUsage), one line that begins with NAME:LINE.
std::map<std::int64_t, std::string> user_lines(std::string_view text, const std::string& name);
std::set<std::string> schedule_lines(std::string_view text, const std::string& name);
std::map<std::string, std::string> setting_lines(std::string_view text, const std::string& name);

// Takes the lines of a part in. Throws cli::Failure (kFailed) for what is none.
void add_lines(Document& document, std::string_view lines);

// Throws cli::Failure (kUsage) for a user whose schedule is not in the document, where that says which there are.
void check_schedules(const Document& document);

}  // namespace fleet
