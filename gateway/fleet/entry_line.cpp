#include "gateway/fleet/entry_line.h"

#include <algorithm>
#include <utility>

namespace fleet {
namespace {

std::string text_of(const Json& value) { return value.is_string() ? value.get<std::string>() : line_of(value); }

// What has parts of its own is for programs.
void append(std::string& text, const std::string& key, const Json& value) {
  if (!value.is_null() && !value.is_structured()) {
    text += "  " + shown(key) + "=" + shown(text_of(value));
  }
}

// "2026-11-22 10:40:11" of "2026-11-22T10:40:11.123+01:00", as the door's clock showed it.
std::string time_of(const Json& entry) {
  std::string time = shown(text_in(entry, "time"));
  if (time.size() > 19 && time[10] == 'T') {
    time = time.substr(0, 10) + " " + time.substr(11, 8);
  }
  return time;
}

}  // namespace

std::string shown(const std::string& text) {
  std::string result = text.empty() ? "-" : text;
  std::ranges::replace_if(
      result, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return result;
}

std::string entry_line(const std::string& door, const Json& entry) {
  std::string text = time_of(entry) + "  " + door + "  " + shown(text_in(entry, "kind"));
  for (const char* const key : {"user", "card"}) {
    append(text, key, value_in(entry, key));
  }
  const Json fields = value_in(entry, "fields");
  for (auto field = fields.begin(); fields.is_object() && field != fields.end(); ++field) {
    append(text, field.key(), field.value());
  }
  return text;
}

std::string drift_line(const Json& drift) {
  std::string text;
  for (const auto& [key, value] : drift.items()) {
    if (key != "desired" && key != "stored") {
      text += (text.empty() ? "" : " ") + shown(key) + " " + shown(text_of(value));
    }
  }
  const Json desired = value_in(drift, "desired");
  const Json stored = value_in(drift, "stored");
  if (stored.is_null()) {
    return text + " is not there";
  }
  if (desired.is_null()) {
    return text + " is not wanted";
  }
  if (!desired.is_object() || !stored.is_object()) {
    return text + " is " + shown(text_of(stored)) + ", wanted " + shown(text_of(desired));
  }
  const char* before = ": ";
  for (const auto& [key, value] : stored.items()) {
    if (const Json wanted = value_in(desired, key.c_str()); wanted != value) {
      text += std::exchange(before, "; ") + shown(key) + " is " + shown(text_of(value)) + ", wanted " +
              shown(text_of(wanted));
    }
  }
  return text;
}

bool Doubles::is_new(std::string_view door, const Json& entry) {
  const auto number = number_in(entry, "number");
  if (!number.has_value()) {
    return true;
  }
  auto& seen = seen_[std::string(door)];
  const bool is_new = seen.emplace(*number, text_in(entry, "boot")).second;
  if (seen.size() > kKept) {
    seen.erase(seen.begin());
  }
  return is_new;
}

}  // namespace fleet
