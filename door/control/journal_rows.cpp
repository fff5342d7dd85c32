#include "door/control/journal_rows.h"

#include <map>
#include <set>
#include <string>
#include <variant>

#include "door/base/local_time.h"

namespace achost {
namespace {

using Names = std::map<std::int64_t, std::string>;

Names names_in(const std::vector<JournalEntry>& entries, UserStore& users) {
  std::set<std::int64_t> known;
  for (const auto& entry : entries) {
    if (entry.entry.user.has_value()) {
      known.insert(*entry.entry.user);
    }
  }
  Names names;
  if (!known.empty()) {
    for (const auto& [user, name] : users.names_of(known)) {
      names.emplace(user, name);
    }
  }
  return names;
}

Json json_of(const JournalEntry& entry, const Names& names) {
  const auto& [kind, user, card, fields] = entry.entry;
  Json row = {{"number", entry.number},
              {"time", iso_time(entry.time.wall, entry.time.offset)},
              {"at", entry.time.wall},
              {"kind", name_of(kind)}};
  if (user.has_value()) {
    row["user"] = *user;
    const auto name = names.find(*user);
    row["name"] = name == names.end() ? "" : name->second;
  }
  if (card.has_value()) {
    row["card"] = std::to_string(*card);
  }
  Json told = Json::object();
  for (const auto& [field, value] : fields) {
    auto& place = told[field];
    std::visit([&place](const auto& one) { place = one; }, value);
  }
  if (kind == Kind::sighting && told.contains("fates") && told["fates"].is_string()) {  // the journal has no lists
    told["fates"] = Json::parse(told["fates"].get<std::string>(), nullptr, false);
  }
  row["fields"] = std::move(told);
  row["clock_trusted"] = entry.time.is_trusted;
  row["monotonic_ms"] = entry.time.monotonic;
  row["boot"] = entry.boot;
  return row;
}

}  // namespace

bool send_entries(const std::vector<JournalEntry>& entries, UserStore& users, ControlStream& stream) {
  const auto names = names_in(entries, users);
  std::string lines;
  for (const auto& entry : entries) {
    lines += line_of({{"entry", json_of(entry, names)}});
  }
  return lines.empty() || stream.send_lines(lines);
}

}  // namespace achost
