// Schedules and holidays.
#include <memory>
#include <utility>

#include "cli/output_file.h"
#include "cli/text_table.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/cli/file_content.h"
#include "door/cli/request.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using refhost::log::escape;

struct ScheduleOptions {
  std::shared_ptr<std::string> state;
  bool json = false;
  bool dry_run = false;
  std::string name;
  std::string file;
};

// "open", or when it will be: "from 2026-01-31 08:30".
std::string standing_of(const Json& schedule) {
  if (schedule.at("damaged").get<bool>()) {
    return "damaged";
  }
  if (schedule.at("holds").get<bool>()) {
    return "open";
  }
  if (schedule.at("begins").is_null()) {
    return "shut";
  }
  auto begin = schedule.at("begins").get<std::string>().substr(0, std::string_view("2026-01-31T08:30").size());
  begin[begin.find('T')] = ' ';
  return "from " + begin;
}

std::string as_table(const Json& list) {
  std::vector<std::vector<std::string>> rows = {{"SCHEDULE", "NOW", "WINDOWS"}};
  for (const auto& schedule : list.at("schedules")) {
    std::string windows;
    for (const auto& window : schedule.at("windows")) {
      windows += (windows.empty() ? "" : ", ") + window.get<std::string>();
    }
    rows.push_back({escape(schedule.at("schedule").get<std::string>()), standing_of(schedule), windows});
  }
  std::vector<std::vector<std::string>> days = {{"HOLIDAY", "NAME"}};
  for (const auto& holiday : list.at("holidays")) {
    days.push_back({holiday.at("holiday").get<std::string>(), escape(holiday.at("name").get<std::string>())});
  }
  return aligned(rows) + (days.size() == 1 ? "" : "\n" + aligned(days));
}

std::string as_lines(const Json& list) {
  std::string text;
  for (const char* const part : {"schedules", "holidays"}) {
    for (const auto& one : list.at(part)) {
      text += line_of(one);
    }
  }
  return text;
}

void list_schedules(const ScheduleOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  const auto list = owner.ask({{"command", "schedule_list"}});
  print(options.json ? as_lines(list) : as_table(list));
}

void import_schedules(const ScheduleOptions& options) {
  const auto text = content_of(options.file);
  StoreOwner owner(options.dry_run ? existing_state(*options.state) : writable_state(*options.state));
  std::string_view left = text;
  const auto give = [&left] {
    const auto piece = left.substr(0, kLongestPiece);
    left.remove_prefix(piece.size());
    return std::string(piece);
  };
  std::string lines;
  const auto answer = owner.ask(
      {{"command", options.dry_run ? "schedule_plan" : "schedule_import"}, {"name", name_of_input(options.file)}},
      {.give = give, .take = [&lines](std::string_view more) { lines += more; }});
  print(lines + (options.dry_run ? "nothing is stored; it would be " : "") + answer.at("done").get<std::string>() +
        "\n");
}

void export_schedules(const ScheduleOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  std::string text;
  owner.ask({{"command", "schedule_export"}}, {.take = [&text](std::string_view more) { text += more; }});
  if (options.file.empty()) {
    print(text);
  } else {
    OutputFile file(options.file, OutputFile::Form::whole);
    file.write(text);
    file.close();
  }
}

void remove_schedule(const ScheduleOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  print(owner.ask({{"command", "schedule_remove"}, {"name", options.name}}).at("done").get<std::string>() + "\n");
}

// A command with --state, whose action gets what was given.
std::pair<CLI::App&, std::shared_ptr<ScheduleOptions>> schedule_command(CLI::App& parent, const char* name,
                                                                        const char* help,
                                                                        void (*action)(const ScheduleOptions&)) {
  CLI::App& command = *parent.add_subcommand(name, help);
  auto options = std::make_shared<ScheduleOptions>();
  options->state = add_state(command);
  command.callback([options, action] { action(*options); });
  return {command, options};
}

}  // namespace

void add_schedule(CLI::App& app) {
  CLI::App& schedule = *app.add_subcommand("schedule", "Show and change schedules and holidays")->require_subcommand(1);
  const auto [list, listed] =
      schedule_command(schedule, "list", "Show all schedules, and whether they hold now, and holidays", list_schedules);
  list.add_flag("--json", listed->json, "One JSON object a line");
  const auto [import, imported] = schedule_command(
      schedule, "import", "Store the schedules and holidays of a file in place of all, or none", import_schedules);
  import.add_option("FILE", imported->file, "CSV; - is standard input")->type_name("FILE")->required();
  import.add_flag("--dry-run", imported->dry_run, "Store nothing, and tell what would be different");
  import.footer(
      "The columns are name, days, from, to: office,mon-fri,08:00,18:00. A window of a day is up to 24:00, or over\n"
      "midnight. office,holiday,10:00,12:00 is one of holidays, and Christmas Day,2026-12-25,, is a holiday.");
  const auto [output, exported] = schedule_command(
      schedule, "export", "Write all schedules and holidays, for a change or a copy", export_schedules);
  output.add_option("--output", exported->file, "File to write (default: standard output)")->type_name("FILE");
  const auto [remove, removed] =
      schedule_command(schedule, "remove", "Remove a schedule that no user has", remove_schedule);
  remove.add_option("NAME", removed->name, "Its name")->required();
}

}  // namespace achost
