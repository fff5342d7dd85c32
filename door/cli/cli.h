// The command line, a function for each group of subcommands. What they ask for is done while it is parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace achost {

void add_audit(CLI::App& app);     // audit list and export
void add_backup(CLI::App& app);    // backup and restore
void add_check(CLI::App& app);     // check
void add_control(CLI::App& app);   // status, events, door, gpio, rex, enroll and field
void add_desired(CLI::App& app);   // desired
void add_door(CLI::App& app);      // door, a part of these
void add_gpio(CLI::App& app);      // gpio, a part of these
void add_journal(CLI::App& app);   // journal
void add_reader(CLI::App& app);    // health and recording
void add_schedule(CLI::App& app);  // schedule
void add_user(CLI::App& app);      // user and card
void add_why(CLI::App& app);       // why

// Adds --state; the text is filled in before the command runs.
std::shared_ptr<std::string> add_state(CLI::App& command);

}  // namespace achost
