// Whether what is stored is whole. Nothing is changed, and a host may run meanwhile.
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/control/control.h"
#include "door/journal/journal.h"
#include "door/services/user_store.h"
#include "refhost/audit_log.h"
#include "refhost/log_entry.h"
#include "refhost/settings_store.h"

#include <array>

namespace achost {
namespace {

using refhost::StoreReport;
using refhost::log::escape;

std::string text_of(const StoreReport& report) {
  std::string text = report.store + ": " + report.content + (report.faults.empty() ? ", whole" : ", damaged") + "\n";
  for (const auto& fault : report.faults) {
    text += "  " + escape(fault) + "\n";
  }
  return text;
}

std::string json_of_report(const StoreReport& report) {
  const Json json{{"store", report.store},
                  {"content", report.content},
                  {"whole", report.faults.empty()},
                  {"faults", report.faults}};
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

void check(const std::string& state, bool json) {
  const auto directory = existing_state(state);
  std::string damaged;
  for (const auto& inspect :
       {refhost::SettingsStore::inspect, UserStore::inspect, refhost::AuditLog::inspect, Journal::inspect}) {
    const StoreReport report = inspect(directory);
    print(json ? json_of_report(report) : text_of(report));
    if (!report.faults.empty()) {
      damaged += (damaged.empty() ? "" : ", ") + report.store;
    }
  }
  if (!damaged.empty()) {
    throw Failure(kDamaged, "damaged in " + directory.string() + ": " + damaged);
  }
}

}  // namespace

void add_check(CLI::App& app) {
  CLI::App& command =
      *app.add_subcommand("check", "Examine all that is stored: settings, users, audit log and journal");
  const auto state = add_state(command);
  const auto json = std::make_shared<bool>();
  command.add_flag("--json", *json, "One JSON object a line");
  command.callback([=] { check(*state, *json); });
}

}  // namespace achost
