// The journal.
#include <csignal>
#include <cstdlib>

#include "cli/command_line.h"
#include "door/base/time_of.h"
#include "door/cli/cli.h"
#include "door/cli/journal_command.h"

namespace achost {

void add_journal(CLI::App& app) {
  constexpr std::int64_t kMost = 1'000'000'000'000'000;
  CLI::App& command = *app.add_subcommand("journal", "Show what happened: who came in, and who changed what");
  const auto options = std::make_shared<JournalOptions>();
  const auto state = add_state(command);
  command.add_option("--since", options->since, "Only entries of that time and later")->type_name("TIME");
  command.add_option("--until", options->until, "Only entries before that time")->type_name("TIME");
  command.add_option("--user", options->user, "Only what that user did or was given")
      ->type_name("N")
      ->check(cli::whole_number());
  command.add_option("--card", options->card, "Only what was done with that card, such as 33 or 0x21")
      ->type_name("CARD");
  command.add_option("--kind", options->kinds, "Only this kind, such as opening; may be repeated")
      ->type_name("KIND")
      ->take_all()
      ->expected(1);
  command.add_option("--last", options->last, "Only the newest N of them")
      ->type_name("N")
      ->check(cli::range<std::int64_t>(0, kMost));
  command.add_option("--after", options->after, "Only entries with a greater number")
      ->type_name("NUMBER")
      ->check(cli::range<std::int64_t>(0, kMost));
  command.add_flag("--follow", options->follows, "Go on with what happens, until Ctrl-C; begins with the last 10");
  auto* const json = command.add_flag("--json", options->json, "One JSON object a line");
  command.add_flag("--csv", options->csv, "For a spreadsheet")->excludes(json);
  command.add_flag("--show-cards", options->shows_cards,
                   "Show card values in full, also where the output is no terminal");
  command.footer(kTimesHelp);
  command.callback([=] {
    options->state = *state;
    if (options->follows) {
      // Ctrl-C is the way out, so it is no failure.
      std::signal(SIGINT, [](int) { std::_Exit(0); });
      std::signal(SIGTERM, [](int) { std::_Exit(0); });
    }
    print_journal(*options);
  });
}

}  // namespace achost
