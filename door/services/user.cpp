#include "door/services/user.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "door/base/encoding.h"
#include "door/base/local_time.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

template <typename Number>
std::optional<Number> number_of(std::string_view digits, int base) {
  Number number{};
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
  const bool is_whole = result.ec == std::errc() && result.ptr == digits.data() + digits.size();
  return is_whole ? std::optional(number) : std::nullopt;
}

std::string minute(std::int64_t time) {
  return local_time(Milliseconds(std::chrono::milliseconds(time)), "%Y-%m-%d %H:%M");
}

}  // namespace

User changed(const User* before, bool is_damaged, const UserChange& change) {
  User user{.id = change.id};
  if (before != nullptr) {
    user = is_damaged ? User{.id = before->id, .name = before->name, .blocked = true} : *before;
  }
  user.name = change.name.value_or(user.name);
  user.from = change.from.value_or(user.from);
  user.until = change.until.value_or(user.until);
  user.blocked = change.blocked.value_or(user.blocked);
  user.schedule = change.schedule.value_or(user.schedule);
  user.pause = change.pause.value_or(user.pause);
  return user;
}

bool PeopleChange::is_nothing() const {
  return cards_removed.empty() && users_removed.empty() && users.empty() && cards.empty();
}

std::string named(std::int64_t id, const std::string& name) {
  const std::string number = std::to_string(id);
  return name.empty() ? "user " + number : refhost::log::escape(name) + " (" + number + ")";
}

std::string text_of_pause(std::int64_t pause) {
  constexpr std::pair<std::int64_t, const char*> kUnits[] = {{24LL * 60 * 60, " d"}, {60LL * 60, " h"}, {60, " min"}};
  for (const auto& [seconds, name] : kUnits) {
    if (pause != 0 && pause % seconds == 0) {
      return std::to_string(pause / seconds) + name;
    }
  }
  return std::to_string(pause) + " s";
}

std::string fault_of_schedule(const User& user) {
  return "there is no schedule " + in_quotes(user.schedule) + " for " + named(user) +
         ": achost schedule list shows all";
}

std::string fault_of(const User& user) {
  if (user.id < 1) {
    return "a user has a number of 1 or more, not " + std::to_string(user.id);
  }
  if (user.name.size() > kLongestName) {
    return "a name of " + std::to_string(user.name.size()) + " bytes: give " + std::to_string(kLongestName) +
           " at most";
  }
  if (utf8_end(user.name) != user.name.size()) {
    return "a name that is no UTF-8: give it in UTF-8";
  }
  if (user.from != 0 && user.until != 0 && user.from >= user.until) {
    return named(user) + " would be valid from " + minute(user.from) + " until " + minute(user.until) +
           ", which is not later: give another time";
  }
  if (user.pause < 0 || user.pause > kLongestPause) {
    return "a pause of " + std::to_string(user.pause) + " s: give 0 s to " + text_of_pause(kLongestPause);
  }
  return "";
}

std::optional<std::uint64_t> card_number(std::string_view text) {
  const bool is_hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  return number_of<std::uint64_t>(is_hexadecimal ? text.substr(2) : text, is_hexadecimal ? 16 : 10);
}

std::optional<std::int64_t> user_number(std::string_view text) {
  const auto number = number_of<std::int64_t>(text, 10);
  return number.has_value() && *number >= 1 ? number : std::nullopt;
}

std::string hexadecimal(std::uint64_t value) {
  std::array<char, 24> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "0x%" PRIx64, value);
  return buffer.data();
}

std::string named_card(std::uint64_t card) { return "card " + std::to_string(card) + " (" + hexadecimal(card) + ")"; }

std::string validity_of(const User& user) {
  std::string text;
  const auto add = [&text](const char* separator, const std::string& more) {
    text += (text.empty() ? "" : separator) + more;
  };
  if (user.from != 0) {
    add(" ", "from " + minute(user.from));
  }
  if (user.until != 0) {
    add(" ", "until " + minute(user.until));
  }
  if (!user.schedule.empty()) {
    add(", ", "in " + refhost::log::escape(user.schedule));
  }
  if (user.pause != 0) {
    add(", ", text_of_pause(user.pause) + " between entries");
  }
  if (user.blocked) {
    add(", ", "blocked");
  }
  return text;
}

std::string named(const User& user) { return named(user.id, user.name); }

}  // namespace achost
