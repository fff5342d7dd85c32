#include "door/cli/door_table.h"

#include "door/base/door_words.h"
#include "door/cli/health_line.h"

namespace achost {
namespace {

std::string text_at(const Json& door, const char* key) { return door.at(key).get<std::string>(); }

std::string mode_of(const Json& door) {
  constexpr std::string_view kIs = "is in mode ";
  const std::string words = mode_words(text_at(door, "mode"), text_at(door, "by")).substr(kIs.size());
  return door.contains("seconds_left")
             ? words + ", for " + duration_text(door["seconds_left"].get<std::int64_t>()) + " more"
             : words;
}

}  // namespace

std::vector<std::vector<std::string>> door_rows(const Json& door) {
  const bool has_contact = !door.at("contact").is_null();
  const bool has_case = !door.at("case").is_null();
  return {{"  lock", text_at(door, "lock")},
          {"  mode", mode_of(door)},
          {"  contact", has_contact ? "the door " + contact_words(text_at(door, "contact"))
                                    : "none: host.door_contact gives it a line"},
          {"  case", has_case ? text_at(door, "case") : "no contact: host.tamper_contact gives it a line"}};
}

}  // namespace achost
