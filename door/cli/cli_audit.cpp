// The audit log.
#include "cli/command_line.h"
#include "door/cli/audit_export.h"
#include "door/cli/cli.h"

namespace achost {
namespace {

std::shared_ptr<AuditOptions> add_filters(CLI::App& command) {
  auto options = std::make_shared<AuditOptions>();
  command.add_option("--type", options->types, "Only this type; may be repeated")
      ->type_name("config|api|usb|network|time|online|menu|boot")
      ->take_all()
      ->expected(1);
  command.add_option("--since", options->since, "Only records of that time and later")->type_name("TIME");
  command.add_option("--until", options->until, "Only records before that time")->type_name("TIME");
  command.add_option("--last", options->last, "Only the newest N of them")
      ->type_name("N")
      ->check(cli::range<std::size_t>(0, 1'000'000'000));
  command.footer(kTimesHelp);
  return options;
}

}  // namespace

void add_audit(CLI::App& app) {
  CLI::App& audit = *app.add_subcommand("audit", "Show and export the audit log")->require_subcommand(1);
  CLI::App& list = *audit.add_subcommand("list", "Show records, the oldest first");
  const auto list_state = add_state(list);
  const auto list_options = add_filters(list);
  const auto json = std::make_shared<bool>();
  list.add_flag("--json", *json, "One JSON object a line");
  list.callback([=] {
    list_options->state = *list_state;
    list_options->form = *json ? AuditForm::json : AuditForm::table;
    export_audit(*list_options);
  });
  CLI::App& save = *audit.add_subcommand("export", "Write records for other programs");
  const auto save_state = add_state(save);
  const auto save_options = add_filters(save);
  const auto format = std::make_shared<std::string>();
  save.add_option("--format", *format, "csv, or jsonl: one JSON object a line")
      ->required()
      ->check(cli::one_of({"csv", "jsonl"}));
  save.add_option("--output", save_options->output, "File to write (default: standard output)")->type_name("FILE");
  save.callback([=] {
    save_options->state = *save_state;
    save_options->form = CLI::detail::to_lower(*format) == "csv" ? AuditForm::csv : AuditForm::json;
    export_audit(*save_options);
  });
}

}  // namespace achost
