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

  std::string name;            // of the text, for messages
  std::vector<ForUser> users;  // in the order of their numbers; their cards are those below and no others
  std::vector<ForCard> cards;  // in the order of their numbers
  std::optional<Schedules> schedules;
  std::vector<refhost::SettingValue> settings;

  // Of what is different alone.
  std::vector<std::int64_t> users_removed;              // in the order of their numbers
  std::vector<refhost::SettingValue> settings_removed;  // are not wanted any more, whatever they are; without values

  // The line of a user who is there.
  std::size_t line_of(std::int64_t user) const;
};

// Reads the text as it comes: one JSON object a line. Only what it says is kept, not the text.
class DesiredReader {
 public:
  enum class Form {
    whole,
    difference,  // lines that remove something are taken too
  };

  DesiredReader(std::string name, Form form);

  // Each throws Failure (kUsage), which begins with NAME:LINE, for the first thing that is wrong.
  void take(std::string_view piece);
  DesiredDocument result() &&;

 private:
  void take_line(std::string_view text);
  void take_user(const nlohmann::json& object);
  void take_removal(const nlohmann::json& object);

  const Form form_;
  std::string begun_;  // a line without its end
  std::size_t size_ = 0;
  std::size_t line_ = 0;
  bool has_schedules_ = false;
  ScheduleRows schedules_;
  DesiredDocument document_;
};

}  // namespace achost
