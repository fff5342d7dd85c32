// Users and cards. The database is used directly, whether a host runs or not: both see each other's changes.
#include <cstdio>
#include <memory>
#include <optional>

#include "cli/command_line.h"
#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/base/time_of.h"
#include "door/cli/cli.h"
#include "door/cli/file_content.h"
#include "door/cli/user_table.h"
#include "door/services/people_actions.h"
#include "door/services/people_import.h"
#include "door/services/user_store.h"
#include "refhost/database.h"
#include "refhost/instance_lock.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using Access = UserStore::Access;

struct UserOptions {
  std::shared_ptr<std::string> state;
  bool json = false;
  std::int64_t id = 0;
  std::optional<std::string> name;
  std::optional<std::string> from;
  std::optional<std::string> until;
  std::string card;
  std::string file;
  std::string format;
  ImportOptions import;
};

using Options = std::shared_ptr<UserOptions>;

// A card as the events show it: decimal, or hexadecimal behind 0x.
std::uint64_t card_of(const std::string& text) {
  const auto card = card_number(text);
  if (!card.has_value()) {
    throw Failure(kUsage, "\"" + refhost::log::escape(text) + "\" is no card: a number such as 33 or 0x21");
  }
  return *card;
}

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

UserChange change_of(const UserOptions& options) {
  return {.id = options.id,
          .name = options.name,
          .from = limit_of(options.from, time_of),
          .until = limit_of(options.until, end_of)};
}

// The store, for changes. What only the owner of the state directory may do to the file is done as such, and not at all
// beside a host.
std::unique_ptr<UserStore> open_to_change(const std::filesystem::path& directory) {
  try {
    return std::make_unique<UserStore>(directory, Access::beside_owner);
  } catch (const refhost::NeedsOwner& reason) {
    std::optional<refhost::InstanceLock> lock;
    try {
      lock.emplace(directory);
    } catch (const std::exception& failure) {
      throw Failure(kFailed, std::string(reason.what()) + ", and " + failure.what());
    }
    return std::make_unique<UserStore>(directory, Access::read_write);
  }
}

std::unique_ptr<UserStore> store_to_add(const UserOptions& options) {
  return open_to_change(writable_state(*options.state));
}

std::unique_ptr<UserStore> store_to_change(const UserOptions& options) {
  return open_to_change(existing_state(*options.state));
}

std::unique_ptr<UserStore> store_to_read(const UserOptions& options) {
  return std::make_unique<UserStore>(existing_state(*options.state), Access::read_only);
}

void list_users(const UserOptions& options) {
  const auto users = store_to_read(options)->users_with_cards();
  print(options.json ? users_as_json(users) : users_as_table(users));
}

void list_cards(const UserOptions& options) {
  const auto store = store_to_read(options);
  const auto cards = store->cards();
  print(options.json ? cards_as_json(cards, store->users()) : cards_as_table(cards, store->users()));
}

void import_file(const UserOptions& options) {
  const auto form = people_form(CLI::detail::to_lower(options.format));
  const auto wanted = parse_people(content_of(options.file), name_of_input(options.file), form);
  const auto store = options.import.dry_run ? store_to_read(options) : store_to_add(options);
  const auto outcome = import_people(*store, wanted, options.import);
  for (const auto& line : outcome.lines) {
    if (!print(line + "\n")) {
      return;
    }
  }
  print((options.import.dry_run ? "nothing is stored; it would be " : "") + outcome.text() + "\n");
}

void export_file(const UserOptions& options) {
  const auto exported =
      export_people(*store_to_read(options), people_form(CLI::detail::to_lower(options.format)).value());
  if (options.file.empty()) {
    print(exported.text);
  } else {
    OutputFile file(options.file, OutputFile::Form::whole);
    file.write(exported.text);
    file.close();
  }
  if (!exported.warning.empty()) {
    std::fprintf(stderr, "achost: %s\n", exported.warning.c_str());
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
  command.footer(kTimesHelp);
}

void say(const std::string& done) { print(done + "\n"); }

void add_one_user(CLI::App& user) {
  CLI::App* command = nullptr;
  auto options = subcommand(command, user, "add", "Make a user",
                            [](const UserOptions& given) { say(add_user(*store_to_add(given), change_of(given))); });
  add_fields(*command, options);
  options = subcommand(command, user, "put", "Make a user, or change what is given of one",
                       [](const UserOptions& given) { say(put_user(*store_to_add(given), change_of(given))); });
  add_fields(*command, options);
  options = subcommand(command, user, "rename", "Change the name of a user", [](const UserOptions& given) {
    say(rename_user(*store_to_change(given), given.id, given.name.value()));
  });
  add_id(*command, options);
  command->add_option("NAME", options->name, "The new name")->required();
  options = subcommand(command, user, "block", "Let no card of a user open, until unblock",
                       [](const UserOptions& given) { say(block_user(*store_to_change(given), given.id, true)); });
  add_id(*command, options);
  options = subcommand(command, user, "unblock", "Let the cards of a user open again",
                       [](const UserOptions& given) { say(block_user(*store_to_change(given), given.id, false)); });
  add_id(*command, options);
  options = subcommand(command, user, "remove", "Remove a user with all of his cards",
                       [](const UserOptions& given) { say(remove_user(*store_to_change(given), given.id)); });
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
  command->footer("The columns are id, name, card, from, until, blocked, registration, enrolled.");
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
                         const auto number = card_of(given.card);
                         say(add_card(*store_to_add(given), number, given.id));
                       });
  command->add_option("CARD", options->card, "Number of the card, such as 33 or 0x21")->required();
  command->add_option("--user", options->id, "Number of the user, who is made when missing")
      ->required()
      ->type_name("N")
      ->check(cli::whole_number());
  options = subcommand(command, card, "remove", "Take a card from its user", [](const UserOptions& given) {
    const auto number = card_of(given.card);
    say(remove_card(*store_to_change(given), number));
  });
  command->add_option("CARD", options->card, "Number of the card")->required();
}

}  // namespace

void add_user(CLI::App& app) {
  add_users(app);
  add_cards(app);
}

}  // namespace achost
