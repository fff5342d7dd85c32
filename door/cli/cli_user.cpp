// Users and cards.
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "cli/command_line.h"
#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/base/time_of.h"
#include "door/cli/cli.h"
#include "door/cli/file_content.h"
#include "door/cli/request.h"
#include "door/cli/user_table.h"
#include "door/control/packed_people.h"
#include "door/services/people_import.h"
#include "door/services/people_text.h"

namespace achost {
namespace {

struct UserOptions {
  std::shared_ptr<std::string> state;
  bool json = false;
  std::int64_t id = 0;
  std::optional<std::string> name;
  std::optional<std::string> from;
  std::optional<std::string> until;
  std::optional<std::string> schedule;
  std::optional<std::string> pause;
  std::string card;
  std::string file;
  std::string format;
  ImportOptions import;
};

using Options = std::shared_ptr<UserOptions>;

// "none" and an empty text are no limit.
std::optional<std::int64_t> limit_of(const std::optional<std::string>& text, TimeParser parse) {
  if (!text.has_value()) {
    return std::nullopt;
  }
  const std::int64_t time = text->empty() || *text == "none" ? 0 : parse(*text, std::chrono::system_clock::now());
  if (time < 0) {
    throw Failure(kUsage, *text + " is before 1970: give a later time, or none");
  }
  return time;
}

Json request_for(const char* command, const UserOptions& options) {
  Json request = {{"command", command}, {"user", options.id}};
  if (options.name.has_value()) {
    request["name"] = *options.name;
  }
  const std::pair<const char*, std::optional<std::int64_t>> limits[] = {{"from", limit_of(options.from, time_of)},
                                                                        {"until", limit_of(options.until, end_of)}};
  for (const auto& [name, limit] : limits) {
    if (limit.has_value()) {
      request[name] = *limit;
    }
  }
  const auto is_none = [](const std::string& text) { return text.empty() || text == "none"; };
  if (options.schedule.has_value()) {
    request["schedule"] = is_none(*options.schedule) ? "" : *options.schedule;
  }
  if (options.pause.has_value()) {
    request["pause"] = is_none(*options.pause) ? 0 : seconds_of(*options.pause);
  }
  return request;
}

// Have it done, and say so. is_new: it makes something, also before a host has run.
void change(const UserOptions& options, const Json& request, bool is_new) {
  StoreOwner owner(is_new ? writable_state(*options.state) : existing_state(*options.state));
  print(owner.ask(request).at("done").get<std::string>() + "\n");
}

// The answer and its bytes.
std::pair<Json, std::string> ask_with_bytes(StoreOwner& owner, const Json& request) {
  std::string bytes;
  auto answer = owner.ask(request, {.take = [&bytes](std::string_view more) { bytes += more; }});
  return {std::move(answer), std::move(bytes)};
}

UsersWithCards users_of(StoreOwner& owner) {
  const auto [answer, bytes] = ask_with_bytes(owner, {{"command", "user_list"}, {"form", "packed"}});
  return unpack_users(answer.at("columns"), bytes);
}

void list_users(const UserOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  const auto users = users_of(owner);
  print(options.json ? users_as_json(users) : users_as_table(users));
}

void list_cards(const UserOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  const auto [answer, bytes] = ask_with_bytes(owner, {{"command", "card_list"}, {"form", "packed"}});
  const auto cards = unpack_cards(answer.at("columns"), bytes);
  std::vector<User> users;
  for (auto& [user, count] : users_of(owner)) {
    users.push_back(std::move(user));
  }
  print(options.json ? cards_as_json(cards, users) : cards_as_table(cards, users));
}

// It is parsed here: times without a zone are those of whoever gives them.
void import_file(const UserOptions& options) {
  const auto form = people_form(CLI::detail::to_lower(options.format));
  const auto packed = pack_import(parse_people(content_of(options.file), name_of_input(options.file), form));
  const bool dry_run = options.import.dry_run;
  StoreOwner owner(dry_run ? existing_state(*options.state) : writable_state(*options.state));
  std::string lines;
  std::string_view left = packed;
  const auto answer = owner.ask({{"command", dry_run ? "user_plan" : "user_import"},
                                 {"format", "packed"},
                                 {"replace", options.import.replace},
                                 {"move", options.import.move}},
                                {.give =
                                     [&left] {
                                       const auto piece = left.substr(0, kLongestPiece);
                                       left.remove_prefix(piece.size());
                                       return std::string(piece);
                                     },
                                 .take = [&lines](std::string_view more) { lines += more; }});
  print(lines + (dry_run ? "nothing is stored; it would be " : "") + answer.at("done").get<std::string>() + "\n");
}

void export_file(const UserOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  const auto [answer, text] =
      ask_with_bytes(owner, {{"command", "user_export"}, {"format", CLI::detail::to_lower(options.format)}});
  if (options.file.empty()) {
    print(text);
  } else {
    OutputFile file(options.file, OutputFile::Form::whole);
    file.write(text);
    file.close();
  }
  if (const std::string warning = answer.at("warning"); !warning.empty()) {
    std::fprintf(stderr, "achost: %s\n", warning.c_str());
  }
}

// A command with --state, whose action gets what was given.
Options subcommand(CLI::App*& command, CLI::App& parent, const char* name, const char* help,
                   void (*action)(const UserOptions&)) {
  command = parent.add_subcommand(name, help);
  auto options = std::make_shared<UserOptions>();
  options->state = add_state(*command);
  command->callback([options, action] { action(*options); });
  return options;
}

void add_id(CLI::App& command, const Options& options) {
  command.add_option("ID", options->id, "Number of the user, 1 or more")->required()->check(cli::whole_number());
}

void add_json(CLI::App& command, const Options& options) {
  command.add_flag("--json", options->json, "One JSON object a line");
}

// What a user has.
void add_fields(CLI::App& command, const Options& options) {
  add_id(command, options);
  command.add_option("--name", options->name, "Name")->type_name("NAME");
  command.add_option("--from", options->from, "His cards open from that time on; none: no limit")->type_name("TIME");
  command.add_option("--until", options->until, "His cards open until then; a day is within it; none: no limit")
      ->type_name("TIME");
  command.add_option("--schedule", options->schedule, "His cards open while it holds; none: always")->type_name("NAME");
  command
      .add_option("--pause", options->pause,
                  std::string("So much lies between two of his entries at least: ") + kLengthsHelp + "; none: no limit")
      ->type_name("LENGTH");
  command.footer(kTimesHelp);
}

void add_one_user(CLI::App& user) {
  CLI::App* command = nullptr;
  auto options = subcommand(command, user, "add", "Make a user",
                            [](const UserOptions& given) { change(given, request_for("user_add", given), true); });
  add_fields(*command, options);
  options = subcommand(command, user, "put", "Make a user, or change what is given of one",
                       [](const UserOptions& given) { change(given, request_for("user_put", given), true); });
  add_fields(*command, options);
  options = subcommand(command, user, "rename", "Change the name of a user",
                       [](const UserOptions& given) { change(given, request_for("user_rename", given), false); });
  add_id(*command, options);
  command->add_option("NAME", options->name, "The new name")->required();
  options =
      subcommand(command, user, "block", "Let no card of a user open, until unblock", [](const UserOptions& given) {
        change(given, {{"command", "user_block"}, {"user", given.id}, {"blocked", true}}, false);
      });
  add_id(*command, options);
  options = subcommand(command, user, "unblock", "Let the cards of a user open again", [](const UserOptions& given) {
    change(given, {{"command", "user_block"}, {"user", given.id}, {"blocked", false}}, false);
  });
  add_id(*command, options);
  options = subcommand(command, user, "remove", "Remove a user with all of his cards",
                       [](const UserOptions& given) { change(given, request_for("user_remove", given), false); });
  add_id(*command, options);
}

void add_users(CLI::App& app) {
  CLI::App& user = *app.add_subcommand("user", "Show and change users")->require_subcommand(1);
  CLI::App* command = nullptr;
  auto options = subcommand(command, user, "list", "Show all users", list_users);
  add_json(*command, options);
  add_one_user(user);
  options = subcommand(command, user, "import", "Store the users and cards of a file, all or nothing", import_file);
  command->add_option("FILE", options->file, "CSV, or one JSON object a line; - is standard input")
      ->type_name("FILE")
      ->required();
  command->add_option("--format", options->format, "csv, or jsonl (default: as the file begins)")
      ->check(cli::one_of({"csv", "jsonl"}));
  command->add_flag("--replace", options->import.replace, "Remove the users and cards that the file does not name");
  command->add_flag("--move", options->import.move, "Take cards that are somebody else's from him");
  command->add_flag("--dry-run", options->import.dry_run, "Store nothing, and tell what would become of whom");
  command->footer(
      "The columns are id, name, card, from, until, blocked, schedule, pause, registration,\n"
      "enrolled.");
  options = subcommand(command, user, "export", "Write all users and cards, for a copy", export_file);
  options->format = "csv";
  command->add_option("--format", options->format, "csv (the default), or jsonl: one JSON object a line")
      ->check(cli::one_of({"csv", "jsonl"}));
  command->add_option("--output", options->file, "File to write (default: standard output)")->type_name("FILE");
}

void add_cards(CLI::App& app) {
  CLI::App& card = *app.add_subcommand("card", "Show and change whose cards are whose")->require_subcommand(1);
  CLI::App* command = nullptr;
  auto options = subcommand(command, card, "list", "Show all cards", list_cards);
  add_json(*command, options);
  options = subcommand(command, card, "add", "Give a card to a user without holding it to the reader",
                       [](const UserOptions& given) {
                         change(given, {{"command", "card_add"}, {"card", given.card}, {"user", given.id}}, true);
                       });
  command->add_option("CARD", options->card, "Number of the card, such as 33 or 0x21")->required();
  command->add_option("--user", options->id, "Number of the user, who is made when missing")
      ->required()
      ->type_name("N")
      ->check(cli::whole_number());
  options = subcommand(command, card, "remove", "Take a card from its user", [](const UserOptions& given) {
    change(given, {{"command", "card_remove"}, {"card", given.card}}, false);
  });
  command->add_option("CARD", options->card, "Number of the card")->required();
}

}  // namespace

void add_user(CLI::App& app) {
  add_users(app);
  add_cards(app);
}

}  // namespace achost
