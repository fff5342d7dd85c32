// What a door is to be like, as whoever keeps many doors writes it: people, cards, schedules and settings in one
// document, or what is different from the one before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "door/services/schedule_text.h"
#include "door/services/user.h"
#include "refhost/settings_schema.h"

namespace achost {

struct DesiredDocument {
  struct ForUser {
    User user;
    std::size_t line = 0;
  };
  struct ForCard {
    std::uint64_t value = 0;
    std::int64_t user = 0;  // one of those above
  };

  std::string name;                    // of the text, for messages
  std::vector<ForUser> users;          // in the order of their numbers; their cards are those below and no others
  std::vector<ForCard> cards;          // in the order of their numbers
  std::optional<Schedules> schedules;  // nothing: they stay
  std::vector<refhost::SettingValue> settings;

  // Of what is different alone.
  std::vector<std::int64_t> users_removed;              // in the order of their numbers
  std::vector<refhost::SettingValue> settings_removed;  // are not wanted any more, whatever they are; without values

  // The line of a user who is there.
  std::size_t line_of(std::int64_t user) const;
};

// Reads the text as it comes: one JSON object a line. Only what it says is kept, not the text. A whole document that
// names no user is taken only where it says that this is meant, and one that says how many lines it has only with all
// of them: neither a file that was written by half nor one without a table of people removes anybody.
class DesiredReader {
 public:
  enum class Form {
    whole,
    difference,  // lines that remove one user or setting are taken too
  };

  DesiredReader(std::string name, Form form);

  // Each throws Failure (kUsage), which begins with NAME:LINE, for the first thing that is wrong.
  void take(std::string_view piece);
  DesiredDocument result() &&;

 private:
  void take_line(std::string_view text);
  void take_user(const nlohmann::json& object);
  void take_removal(const nlohmann::json& object);
  void take_number_of_lines(const nlohmann::json& value);

  const Form form_;
  std::string begun_;  // a line without its end
  std::size_t size_ = 0;
  std::size_t line_ = 0;
  std::size_t lines_taken_ = 0;  // but empty ones, and the one that says how many there are
  std::optional<std::int64_t> lines_promised_;
  bool has_schedules_ = false;
  bool removes_users_ = false;
  ScheduleRows schedules_;
  DesiredDocument document_;
};

}  // namespace achost
