#include "door/cli/manual.h"

#include "door/base/assignment.h"
#include "door/journal/entry.h"
#include "refhost/audit_log.h"
#include "refhost/settings_schema.h"

namespace achost {
namespace {

using Words = std::vector<std::string>;

// Lines of the virtual device that somebody may want to set by hand: the first of 256.
const Words kLines = {"0", "1", "2", "3", "4", "5", "6", "7"};

// Empty where there are too many to tell.
Words values_of(const refhost::Setting& setting) {
  return setting.type == refhost::SettingType::flag ? Words{"0", "1"} : setting.choices;
}

// The keys of a section behind words that take one, and their values behind each key.
void offer_keys(std::vector<cli::Offer>& offers, const std::string& path, const std::string& section, Words more,
                bool with_values) {
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    if (setting.section != section) {
      continue;
    }
    more.push_back(setting.key);
    if (const auto values = values_of(setting); with_values && !values.empty()) {
      offers.push_back({path + " " + setting.key, "", values});
    }
  }
  offers.push_back({path, "", more});
}

Words other_sections() {
  Words sections;
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    if (setting.section != kDefaultSection && (sections.empty() || sections.back() != setting.section)) {
      sections.push_back(setting.section);
    }
  }
  return sections;
}

std::vector<cli::Offer> offers() {
  std::vector<cli::Offer> all;
  for (const bool setting : {false, true}) {
    const std::string path = setting ? "config set" : "config get";
    offer_keys(all, path, kDefaultSection, other_sections(), setting);
    for (const auto& section : other_sections()) {
      offer_keys(all, path + " " + section, section, {}, setting);
    }
  }
  Words assignments;
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    assignments.push_back((setting.section == kDefaultSection ? "" : setting.section + ".") + setting.key + "=");
  }
  all.push_back({"run", "--set", assignments});
  const Words types(std::begin(refhost::kAuditTypes) + 1, std::end(refhost::kAuditTypes));
  Words kinds;
  for (const auto& kind : kKinds) {
    kinds.emplace_back(kind.name);
  }
  all.push_back({"journal", "--kind", kinds});
  all.push_back({"audit list", "--type", types});
  all.push_back({"audit export", "--type", types});
  all.push_back({"audit export", "--format", {"csv", "jsonl"}});
  for (const char* const command : {"user import", "user export"}) {
    all.push_back({command, "--format", {"csv", "jsonl"}});
  }
  all.push_back({"door mode", "", {"auto", "normal", "locked", "unlocked"}});
  all.push_back({"gpio set", "", kLines});
  for (const auto& line : kLines) {
    all.push_back({"gpio set " + line, "", {"0", "1"}});
  }
  return all;
}

}  // namespace

cli::Manual manual() {
  return {
      .examples = {{"achost run --simulate --temporary-state", "The whole story with a simulated reader."},
                   {"achost run --port /dev/uhf-reader", "A real reader."},
                   {"achost config set read_interval 500", "Change a setting, also of a host that runs."},
                   {"achost enroll --user 7", "Give the next card that the reader sees to user 7."},
                   {"achost journal --since yesterday", "Who came in, and what else happened."},
                   {"achost user import people.csv", "Users with their cards, from a spreadsheet."},
                   {"achost audit export --format csv --output audit.csv", "The audit log, for a spreadsheet."},
                   {"achost backup /media/door.backup", "A copy of all that is stored; achost restore reads it."},
                   {"achost check", "Whether all that is stored is whole."}},
      .files = {{"/var/lib/achost", "Settings, users, audit log and journal, for root and the service."},
                {"~/.local/state/achost", "The same for everybody else."},
                {"/etc/default/achost", "The port and the options of the service."},
                {"/usr/lib/uhf/uhf.so", "The plug-in."}},
      .environment = {{"ACHOST_STATE", "Directory of settings, users, audit log and journal, unless --state gives it."},
                      {"NO_COLOR", "If set, nothing is coloured."}},
      .offers = offers()};
}

}  // namespace achost
