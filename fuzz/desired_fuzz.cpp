// A document of what a door is to be like: read alike in whatever pieces it comes, refused with its line and nothing
// changed, or taken so that nothing is different afterwards.
#include <algorithm>
#include <map>
#include <optional>

#include "door/base/failure.h"
#include "door/services/desired_state.h"
#include "door/services/people_text.h"
#include "input.h"
#include "refhost/log.h"
#include "temporary_directory.h"

namespace {

using Form = achost::DesiredReader::Form;

std::optional<achost::DesiredDocument> document(std::string_view text, Form form, std::size_t piece) {
  try {
    achost::DesiredReader reader("fuzz", form);
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
      reader.take(text.substr(0, piece));
    }
    return std::move(reader).result();
  } catch (const achost::Failure& failure) {
    const std::string said = failure.what();
    fuzz::require(said.starts_with("fuzz:"), "an error names the document");
    fuzz::require(said.find('\n') == said.npos, "an error is one line");
    return std::nullopt;
  }
}

// The door of this process, which is as the documents before have it.
struct Door {
  achost::UserStore users{fuzz::empty_directory(), achost::UserStore::Access::read_write};
  std::map<std::string, std::string> settings;
  achost::DesiredState state{
      users,
      {.value = [this](const std::string& section, const std::string& key) { return settings[section + "." + key]; },
       .store =
           [this](const std::vector<refhost::SettingValue>& values) {
             for (const auto& [section, key, value] : values) {
               settings[section + "." + key] = value;
             }
           }}};

  std::string content() const {
    return achost::people_as_text(users.people(), achost::PeopleForm::json) +
           achost::schedules_as_text(*users.schedules());
  }
};

void take(Door& door, const achost::DesiredDocument& document, std::optional<std::int64_t> from) {
  const auto before = door.content();
  try {
    door.state.take(document, 1, from);
  } catch (const achost::Failure&) {
    fuzz::require(door.content() == before, "what is refused changes nothing");
    return;
  }
  fuzz::require(door.state.summary().differences == 0, "what is taken leaves no difference");
  for (const auto& [card, user] : document.cards) {
    fuzz::require(door.users.user(user).has_value(), "each card has its user");
  }
  if (!from.has_value()) {
    fuzz::require(door.users.cards().size() == document.cards.size(), "all cards are those of the document");
    fuzz::require(door.users.users().size() == document.users.size(), "and all users");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  refhost::log::set_threshold(refhost::log::Level::off);
  static Door door;
  fuzz::Input input(data, size);
  const std::size_t piece = 1 + input.byte();
  const auto form = input.below(2) == 0 ? Form::whole : Form::difference;
  const auto text = input.all_text();
  const auto read = document(text, form, piece);
  fuzz::require(document(text, form, text.size() + 1).has_value() == read.has_value(), "pieces make no difference");
  if (read.has_value()) {
    if (form == Form::difference) {
      take(door, *document("{\"remove_users\": true}\n{\"remove_schedules\": true}", Form::whole, 1), std::nullopt);
    }
    take(door, *read, form == Form::difference ? std::optional<std::int64_t>(1) : std::nullopt);
  }
  return 0;
}
