// Users and their cards. The database is used directly, whether a host runs or not: both see each other's changes.
#include "cli/command_line.h"
#include "cli/text_table.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/control/control.h"
#include "door/services/user_store.h"
#include "refhost/database.h"
#include "refhost/instance_lock.h"
#include "refhost/log_entry.h"

#include <charconv>
#include <memory>
#include <optional>

namespace achost {
namespace {

using refhost::log::escape;
using Access = UserStore::Access;

std::string dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"; }

// A card as the events show it: decimal, or hexadecimal behind 0x.
std::uint64_t card_of(const std::string& text) {
  const bool is_hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const std::string digits = is_hexadecimal ? text.substr(2) : text;
  std::uint64_t card = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), card, is_hexadecimal ? 16 : 10);
  if (result.ec != std::errc() || result.ptr != digits.data() + digits.size()) {
    throw Failure(kUsage, "\"" + escape(text) + "\" is no card: a number such as 33 or 0x21");
  }
  return card;
}

void check_user(std::int64_t user) {
  if (user < 1) {
    throw Failure(kUsage, "a user has a number of 1 or more, not " + std::to_string(user));
  }
}

struct UserOptions {
  std::shared_ptr<std::string> state;
  bool json = false;
  std::int64_t id = 0;
  std::string name;
  std::string card;
};

std::shared_ptr<UserOptions> subcommand(CLI::App*& command, CLI::App& parent, const char* name, const char* help) {
  command = parent.add_subcommand(name, help);
  auto options = std::make_shared<UserOptions>();
  options->state = add_state(*command);
  return options;
}

void list_users(const UserOptions& options) {
  const UserStore store(existing_state(*options.state), Access::read_only);
  std::vector<std::vector<std::string>> rows = {{"USER", "CARDS", "NAME"}};
  std::string json;
  for (const auto& [user, count] : store.users_with_cards()) {
    rows.push_back({std::to_string(user.id), std::to_string(count), escape(user.name)});
    json += dump({{"user", user.id}, {"name", user.name}, {"cards", count}});
  }
  print(options.json ? json : aligned(rows));
}

void list_cards(const UserOptions& options) {
  const UserStore store(existing_state(*options.state), Access::read_only);
  std::vector<std::vector<std::string>> rows = {{"CARD", "", "USER", "ENROLLED", "REGISTRATION"}};
  std::string json;
  for (const auto& card : store.cards()) {
    rows.push_back({std::to_string(card.value), hexadecimal(card.value), std::to_string(card.user), card.enrolled,
                    escape(card.registration)});
    json += dump({{"card", card.value},
                  {"card_hex", hexadecimal(card.value)},
                  {"user", card.user},
                  {"enrolled", card.enrolled},
                  {"registration", card.registration}});
  }
  print(options.json ? json : aligned(rows));
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

void put_user(const UserOptions& options) {
  check_user(options.id);
  open_to_change(writable_state(*options.state))
      ->change_user({.id = options.id, .name = options.name}, UserStore::Which::any);
}

void remove_user(const UserOptions& options) {
  if (!open_to_change(existing_state(*options.state))->remove_user(options.id)) {
    throw Failure(kFailed, "there is no user " + std::to_string(options.id) + ": achost user list shows all");
  }
}

void add_card(const UserOptions& options) {
  check_user(options.id);
  const auto card = card_of(options.card);
  const auto store = open_to_change(writable_state(*options.state));
  if (!store->bind(card, options.id, "")) {
    throw Failure(kFailed, "card " + std::to_string(card) + " is of user " +
                               std::to_string(store->owner_of(card).value_or(0)) + " already: remove it first");
  }
}

void remove_card(const UserOptions& options) {
  const auto card = card_of(options.card);
  if (!open_to_change(existing_state(*options.state))->remove_card(card)) {
    throw Failure(kFailed, "card " + std::to_string(card) + " is nobody's: achost card list shows all");
  }
}

void add_users(CLI::App& app) {
  CLI::App& user = *app.add_subcommand("user", "Show and change users")->require_subcommand(1);
  CLI::App* command = nullptr;
  auto options = subcommand(command, user, "list", "Show all users");
  command->add_flag("--json", options->json, "One JSON object a line");
  command->callback([options] { list_users(*options); });
  options = subcommand(command, user, "put", "Make a user, or change the name of one");
  command->add_option("ID", options->id, "Number of the user, 1 or more")->required()->check(cli::whole_number());
  command->add_option("--name", options->name, "Name")->type_name("NAME");
  command->callback([options] { put_user(*options); });
  options = subcommand(command, user, "remove", "Remove a user with all of his cards");
  command->add_option("ID", options->id, "Number of the user")->required()->check(cli::whole_number());
  command->callback([options] { remove_user(*options); });
}

void add_cards(CLI::App& app) {
  CLI::App& card = *app.add_subcommand("card", "Show and change whose cards are whose")->require_subcommand(1);
  CLI::App* command = nullptr;
  auto options = subcommand(command, card, "list", "Show all cards");
  command->add_flag("--json", options->json, "One JSON object a line");
  command->callback([options] { list_cards(*options); });
  options = subcommand(command, card, "add", "Give a card to a user without holding it to the reader");
  command->add_option("CARD", options->card, "Number of the card, such as 33 or 0x21")->required();
  command->add_option("--user", options->id, "Number of the user, who is made when missing")
      ->required()
      ->type_name("N")
      ->check(cli::whole_number());
  command->callback([options] { add_card(*options); });
  options = subcommand(command, card, "remove", "Take a card from its user");
  command->add_option("CARD", options->card, "Number of the card")->required();
  command->callback([options] { remove_card(*options); });
}

}  // namespace

void add_user(CLI::App& app) {
  add_users(app);
  add_cards(app);
}

}  // namespace achost
