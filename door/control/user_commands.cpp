#include "door/control/user_commands.h"

#include <functional>
#include <optional>

#include "door/base/failure.h"
#include "door/control/packed_people.h"
#include "door/control/row_lines.h"
#include "door/services/people_actions.h"
#include "door/services/people_import.h"
#include "door/services/people_text.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using Type = ControlField::Type;

// What an import may take on its way: a million users with cards.
constexpr std::size_t kLargestImport = std::size_t{256} << 20;

std::uint64_t card_of(const Json& request) {
  const auto text = request["card"].get<std::string>();
  const auto card = card_number(text);
  if (!card.has_value()) {
    throw Failure(kUsage, "\"" + refhost::log::escape(text) + "\" is no card: a number such as 33 or 0x21");
  }
  return *card;
}

std::int64_t user_of(const Json& request) { return request["user"].get<std::int64_t>(); }

template <typename Value>
std::optional<Value> given(const Json& request, const char* field) {
  return request.contains(field) ? std::optional(request[field].get<Value>()) : std::nullopt;
}

UserChange change_of(const Json& request) {
  return {.id = user_of(request),
          .name = given<std::string>(request, "name"),
          .from = given<std::int64_t>(request, "from"),
          .until = given<std::int64_t>(request, "until"),
          .schedule = given<std::string>(request, "schedule"),
          .pause = given<std::int64_t>(request, "pause")};
}

// The change of one thing: its function says what it did.
ControlCommand change(Stores& stores, std::string name, std::vector<ControlField> fields,
                      std::string (*run)(UserStore&, const Json&)) {
  return {.name = std::move(name),
          .fields = std::move(fields),
          .run = [&stores, run](const Json& request, ControlStream&) -> Json {
            return {{"done", run(stores.users(), request)}};
          },
          .changes = true};
}

// As the command line packs it, or a text as people_text.h has it.
PeopleImport import_of(const Json& request, const std::string& bytes) {
  if (request.value("format", "") == "packed") {
    return unpack_import(bytes);
  }
  const auto form = request.contains("format") ? people_form(request["format"]) : std::nullopt;
  if (request.contains("format") && !form.has_value()) {
    throw RequestError("\"format\" is csv, jsonl or packed");
  }
  return parse_people(bytes, "line", form);
}

Json run_import(UserStore& store, const Json& request, bool dry_run, ControlStream& stream) {
  const ImportOptions options{
      .replace = request.value("replace", false), .move = request.value("move", false), .dry_run = dry_run};
  std::string bytes;
  for (std::string piece; !(piece = stream.receive_bytes()).empty();) {
    bytes += piece;
    if (bytes.size() > kLargestImport) {
      throw Failure(kUsage, "this is too much for one import: take several");
    }
  }
  const auto outcome = import_people(store, import_of(request, bytes), options);
  std::string lines;
  for (const auto& line : outcome.lines) {
    lines += line + "\n";
  }
  stream.send_bytes(lines);
  return {{"done", outcome.text()}};
}

ControlCommand import_command(Stores& stores, const char* name, bool dry_run) {
  return {
      .name = name,
      .fields = {{"replace", Type::flag, false}, {"move", Type::flag, false}, {"format", Type::text, false}},
      .run = [&stores, dry_run](const Json& request,
                                ControlStream& stream) { return run_import(stores.users(), request, dry_run, stream); },
      .changes = !dry_run,
      .takes_bytes = true};
}

Json run_export(UserStore& store, const Json& request, ControlStream& stream) {
  const auto form = people_form(request["format"]);
  if (!form.has_value()) {
    throw RequestError("\"format\" is csv or jsonl");
  }
  const auto exported = export_people(store, *form);
  stream.send_bytes(exported.text);
  return {{"warning", exported.warning}};
}

Json list_users(const UsersWithCards& users, const Json& request, ControlStream& stream) {
  if (wants_packed(request)) {
    stream.send_bytes(pack_users(users));
    return {{"columns", user_columns()}};
  }
  RowLines rows(stream);
  for (const auto& [user, cards] : users) {
    rows.add({{"user", json_of(user, cards)}});
  }
  rows.flush();
  return {{"count", users.size()}};
}

Json find_people(const UserStore& store, const Json& request) {
  constexpr std::int64_t kMost = 200;
  const PeopleSearch asked;
  const auto most = request.value("most", static_cast<std::int64_t>(asked.most));
  if (most < 1 || most > kMost) {
    throw RequestError("\"most\" is 1 to " + std::to_string(kMost) + ": ask again \"after\" the last of them");
  }
  const auto found = store.find({.text = request.value("text", asked.text),
                                 .after = request.value("after", asked.after),
                                 .most = static_cast<std::size_t>(most)});
  Json users = Json::array();
  for (const auto& [user, cards, first, is_right] : found.users) {
    Json one = json_of(user, cards);
    one["first_cards"] = Json::array();
    for (const auto& card : first) {
      one["first_cards"].push_back(json_of(card));
    }
    one["damaged"] = !is_right;
    users.push_back(std::move(one));
  }
  return {{"users", users}, {"more", found.more}, {"all_users", found.all_users}, {"all_cards", found.all_cards}};
}

Json list_cards(const std::vector<Card>& cards, const Json& request, ControlStream& stream) {
  if (wants_packed(request)) {
    stream.send_bytes(pack_cards(cards));
    return {{"columns", card_columns()}};
  }
  RowLines rows(stream);
  for (const auto& card : cards) {
    rows.add({{"card", json_of(card)}});
  }
  rows.flush();
  return {{"count", cards.size()}};
}

std::vector<ControlCommand> card_commands(Stores& stores, const ControlField& user) {
  return {
      {"card_list",
       {kForm},
       [&stores](const Json& request, ControlStream& stream) {
         return list_cards(stores.users().cards(), request, stream);
       }},
      change(stores, "card_add", {{"card"}, user},
             [](UserStore& store, const Json& request) { return add_card(store, card_of(request), user_of(request)); }),
      change(stores, "card_remove", {{"card"}},
             [](UserStore& store, const Json& request) { return remove_card(store, card_of(request)); })};
}

}  // namespace

std::vector<ControlCommand> user_commands(Stores& stores) {
  const ControlField user{"user", Type::integer};
  const std::vector<ControlField> all = {user,
                                         {"name", Type::text, false},
                                         {"from", Type::integer, false},
                                         {"until", Type::integer, false},
                                         {"schedule", Type::text, false},
                                         {"pause", Type::integer, false}};
  auto commands = card_commands(stores, user);
  commands.insert(commands.end(),
                  {{"user_list",
                    {kForm},
                    [&stores](const Json& request, ControlStream& stream) {
                      return list_users(stores.users().users_with_cards(), request, stream);
                    }},
                   {"user_find",
                    {{"text", Type::text, false}, {"after", Type::integer, false}, {"most", Type::integer, false}},
                    [&stores](const Json& request, ControlStream&) { return find_people(stores.users(), request); }},
                   change(stores, "user_add", all,
                          [](UserStore& store, const Json& request) { return add_user(store, change_of(request)); }),
                   change(stores, "user_put", all,
                          [](UserStore& store, const Json& request) { return put_user(store, change_of(request)); }),
                   change(stores, "user_rename", {user, {"name"}},
                          [](UserStore& store, const Json& request) {
                            return rename_user(store, user_of(request), request["name"]);
                          }),
                   change(stores, "user_block", {user, {"blocked", Type::flag}},
                          [](UserStore& store, const Json& request) {
                            return block_user(store, user_of(request), request["blocked"]);
                          }),
                   change(stores, "user_remove", {user},
                          [](UserStore& store, const Json& request) { return remove_user(store, user_of(request)); }),
                   import_command(stores, "user_import", false),
                   import_command(stores, "user_plan", true),
                   {"user_export", {{"format"}}, [&stores](const Json& request, ControlStream& stream) {
                      return run_export(stores.users(), request, stream);
                    }}});
  return commands;
}

}  // namespace achost
