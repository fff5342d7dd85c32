#include "door/journal/changes.h"

#include <utility>

#include "door/base/maker.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

Entry with_maker(Entry entry) {
  if (const auto* maker = MakerScope::current()) {
    entry.fields.emplace_back("by_uid", maker->uid);
    entry.fields.emplace_back("by", maker->name);
    if (!maker->behalf.empty()) {
      entry.fields.emplace_back("on_behalf_of", maker->behalf);
    }
  }
  return entry;
}

}  // namespace

Entry setting_change(const std::string& setting, const std::string& value, const std::string& previous_value) {
  return with_maker({.kind = Kind::setting_change,
                     .fields = {{"setting", setting}, {"value", value}, {"previous_value", previous_value}}});
}

Entry user_change(const std::string& change, std::optional<std::int64_t> user, std::vector<EntryField> fields) {
  fields.insert(fields.begin(), {"change", change});
  return with_maker({.kind = Kind::user_change, .user = user, .fields = std::move(fields)});
}

Entry schedule_change(const std::string& change, std::vector<EntryField> fields) {
  fields.insert(fields.begin(), {"change", change});
  return with_maker({.kind = Kind::schedule_change, .fields = std::move(fields)});
}

std::string text_of_schedule_change(const Entry& entry) {
  std::string text;
  for (const auto& [name, value] : entry.fields) {
    const auto* const said = std::get_if<std::string>(&value);
    const std::string word =
        said != nullptr ? refhost::log::escape(*said) : std::to_string(std::get<std::int64_t>(value));
    if (name == "change") {
      text = word;
    } else if (name == "schedule" || name == "holiday") {
      text += " " + name + " " + word;
    } else if (name == "schedules" || name == "holidays") {
      text += " " + word + " " + name;
    } else if (name == "text" && !word.empty()) {
      text += ": " + word;
    }
  }
  return text;
}

Entry card_change(const std::string& change, std::uint64_t card, std::optional<std::int64_t> user) {
  return with_maker({.kind = Kind::card_change, .user = user, .card = card, .fields = {{"change", change}}});
}

Entry command_given(const std::string& what, std::vector<EntryField> fields, std::optional<std::int64_t> user) {
  fields.insert(fields.begin(), {"what", what});
  return with_maker({.kind = Kind::command, .user = user, .fields = std::move(fields)});
}

}  // namespace achost
