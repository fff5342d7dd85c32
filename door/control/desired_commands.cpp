#include "door/control/desired_commands.h"

#include <optional>
#include <string>
#include <utility>

#include "door/control/row_lines.h"
#include "door/services/desired_state.h"
#include "refhost/store_report.h"

namespace achost {
namespace {

using Type = ControlField::Type;

Json or_null(std::int64_t time) { return time == 0 ? Json(nullptr) : Json(time); }

Json person_json(const std::optional<Person>& person) {
  if (!person.has_value()) {
    return nullptr;
  }
  const auto& [user, numbers] = *person;
  Json cards = Json::array();
  for (const auto card : numbers) {
    cards.push_back(std::to_string(card));
  }
  return {{"name", user.name},        {"from", or_null(user.from)}, {"until", or_null(user.until)},
          {"blocked", user.blocked},  {"schedule", user.schedule},  {"pause", user.pause},
          {"cards", std::move(cards)}};
}

Json text_json(const std::optional<std::string>& text) { return text.has_value() ? Json(*text) : Json(nullptr); }

Json json_of(const DesiredState::Difference& difference) {
  if (const auto* const user = std::get_if<DesiredState::UserDifference>(&difference)) {
    return {{"user", user->user}, {"desired", person_json(user->desired)}, {"stored", person_json(user->stored)}};
  }
  const auto& [kind, name, desired, stored] = std::get<DesiredState::TextDifference>(difference);
  return {{kind, name}, {"desired", text_json(desired)}, {"stored", text_json(stored)}};
}

Json show(const DesiredState& state, ControlStream& stream) {
  RowLines rows(stream);
  state.each_difference([&](const DesiredState::Difference& difference) {
    rows.add({{"drift", json_of(difference)}});
    return !stream.is_over();
  });
  rows.flush();
  const auto taken = state.taken();
  if (!taken.has_value()) {
    return {{"revision", nullptr}, {"at", nullptr}, {"by", nullptr}};
  }
  return {{"revision", taken->revision}, {"at", taken->at}, {"by", taken->by}};
}

DesiredDocument received(const Json& request, ControlStream& stream) {
  using Form = DesiredReader::Form;
  DesiredReader reader(request.value("name", "line"), request.contains("from") ? Form::difference : Form::whole);
  for (std::string piece; !(piece = stream.receive_bytes()).empty();) {
    reader.take(piece);
  }
  return std::move(reader).result();
}

std::string text_of(const DesiredState::Outcome& done) {
  const auto part = [](std::int64_t number, const char* noun) { return refhost::counted(number, noun); };
  return part(done.users, "user") + " and " + part(done.cards, "card") + " stored, " +
         part(done.users_removed, "user") + " and " + part(done.cards_removed, "card") + " removed, " +
         part(done.settings, "setting") + " set, schedules " + (done.schedules ? "replaced" : "as before");
}

Json apply(Stores& stores, const Json& request, ControlStream& stream) {
  const auto revision = request["revision"].get<std::int64_t>();
  if (revision < 1) {
    throw RequestError("\"revision\" is a number of 1 or more");
  }
  const auto document = received(request, stream);
  const auto from = request.contains("from") ? std::optional(request["from"].get<std::int64_t>()) : std::nullopt;
  auto& state = stores.desired();
  const auto settings = state.new_settings(document);
  if (!settings.empty()) {
    stores.change({});  // a plug-in that has not started would not hear of them
  }
  const auto done = state.take(document, revision, from);
  std::string warning;
  for (const auto& awaited : settings.empty() ? std::vector<SettingsChanges::Awaited>() : stores.change(settings)) {
    warning += (warning.empty() ? "" : "; ") + text_of(awaited);
  }
  return {{"revision", revision}, {"done", text_of(done)}, {"warning", warning}};
}

}  // namespace

std::vector<ControlCommand> desired_commands(Stores& stores) {
  return {
      {.name = "desired_apply",
       .fields = {{"revision", Type::integer}, {"from", Type::integer, false}, {"name", Type::text, false}},
       .run = [&stores](const Json& request, ControlStream& stream) { return apply(stores, request, stream); },
       .changes = true,
       .takes_bytes = true},
      {"desired_state", {}, [&stores](const Json&, ControlStream& stream) { return show(stores.desired(), stream); }}};
}

}  // namespace achost
