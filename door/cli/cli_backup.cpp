// Copies of all that is stored.
#include <cstdlib>

#include "door/backup/backup_file.h"
#include "door/backup/restore.h"
#include "door/backup/work_place.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/cli/request.h"

namespace achost {
namespace {

void back_up(const std::string& state, const std::string& file, bool replaces) {
  StoreOwner owner(existing_state(state));
  BackupWriter backup(file, replaces);
  std::int64_t size = 0;
  const Exchange exchange{.take =
                              [&](std::string_view piece) {
                                backup.add(piece);
                                size += static_cast<std::int64_t>(piece.size());
                              },
                          .take_line = [&](const Json& line) { backup.begin(line.at("file"), line.at("size")); }};
  owner.ask({{"command", "backup"}}, exchange);
  backup.close();
  print("backup of " + std::to_string(size) + " bytes in " + file + "\n");
}

// Prepared here, with the rights of whoever asks, and taken over by the host.
void restore_beside_host(const std::filesystem::path& file, const std::filesystem::path& state) {
  prepare_restore(file, state);
  try {
    ControlClient host(state);
    host.send({{"command", "restore"}});
    const auto answer = host.receive(StoreOwner::kPatience);
    if (!answer.contains("kept")) {
      throw Failure(kFailed, answer.value("error", "the host does not say why"));
    }
    print(state.string() + " is as " + file.string() + " has it, and its host starts anew; what was there is in " +
          answer.at("kept").get<std::string>() + "\n");
  } catch (...) {
    forget_restore(state);
    throw;
  }
}

void restore_or_check(const std::string& state, const std::string& file, bool checks) {
  if (checks) {
    const WorkPlace place;
    check_backup(file, place.directory());
    print(file + " is whole\n");
    return;
  }
  const auto directory = writable_state(state);
  if (ask_if_running(directory, {{"command", "status"}}).has_value()) {
    restore_beside_host(file, directory);
    return;
  }
  const auto kept = restore(file, directory);
  print(directory.string() + " is as " + file + " has it; what was there is in " + kept.string() + "\n");
}

}  // namespace

void add_backup(CLI::App& app) {
  CLI::App& save = *app.add_subcommand("backup", "Write a copy of all that is stored, also while a host runs");
  const auto state = add_state(save);
  const auto file = std::make_shared<std::string>();
  const auto option = std::make_shared<bool>();
  save.add_option("FILE", *file, "The copy")->type_name("FILE")->required();
  save.add_flag("--force", *option, "Also in place of a file that is there");
  save.callback([=] { back_up(*state, *file, *option); });
  CLI::App& load = *app.add_subcommand("restore", "Put a copy in the place of all that is stored, once it is checked");
  const auto load_state = add_state(load);
  const auto load_file = std::make_shared<std::string>();
  const auto checks = std::make_shared<bool>();
  load.add_option("FILE", *load_file, "What achost backup has written")->type_name("FILE")->required();
  load.add_flag("--check", *checks, "Only check it");
  load.callback([=] { restore_or_check(*load_state, *load_file, *checks); });
  load.footer("A host that runs there starts anew with it. What was there is kept beside it, as before-restore-DATE.");
}

}  // namespace achost
