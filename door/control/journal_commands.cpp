#include "door/control/journal_commands.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "door/base/failure.h"
#include "door/control/answer_parts.h"
#include "door/control/packed_rows.h"
#include "door/journal/entry_code.h"
#include "door/services/people_actions.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using std::chrono::milliseconds;
using Type = ControlField::Type;

// Then an answer without entries: whoever asks can look whether he is still wanted.
constexpr milliseconds kLongestWait(500);

const Json& journal_columns() {
  static const Json names = {"number", "at", "zone", "monotonic", "boot", "trusted", "kind", "user", "card", "fields"};
  return names;
}

JournalQuery query_of_request(const Json& request) {
  JournalQuery query{.user = number_in(request, "user"),
                     .since = number_in(request, "since"),
                     .until = number_in(request, "until"),
                     .after = number_in(request, "after"),
                     .last = number_in(request, "last"),
                     .to = number_in(request, "to")};
  for (const auto& kind : request.value("kinds", Json::array())) {
    query.kinds.push_back(journal_kind_of(kind));
  }
  if (request.contains("card")) {
    const auto text = request["card"].get<std::string>();
    query.card = card_number(text);
    if (!query.card.has_value()) {
      throw Failure(kUsage, "\"" + refhost::log::escape(text) + "\" is no card: a number such as 33 or 0x21");
    }
  }
  return query;
}

void pack_entry(const JournalEntry& entry, PackedRows& rows) {
  rows.add(entry.number);
  rows.add(entry.time.wall);
  rows.add(entry.time.offset);
  rows.add(entry.time.monotonic);
  rows.add(entry.boot);
  rows.add(std::int64_t{entry.time.is_trusted});
  rows.add(static_cast<std::int64_t>(entry.entry.kind));
  rows.add(std::int64_t{entry.entry.user.has_value()});
  rows.add(entry.entry.user.value_or(0));
  rows.add(std::int64_t{entry.entry.card.has_value()});
  rows.add(static_cast<std::int64_t>(entry.entry.card.value_or(0)));
  rows.add(json_of_fields(entry.entry.fields));
}

JournalEntry unpacked_entry(PackedReader& rows) {
  JournalEntry entry;
  entry.number = rows.number();
  entry.time.wall = rows.number();
  entry.time.offset = rows.number();
  entry.time.monotonic = rows.number();
  entry.boot = rows.text();
  entry.time.is_trusted = rows.number() != 0;
  entry.entry.kind = static_cast<Kind>(rows.number());
  const bool has_user = rows.number() != 0;
  const auto user = rows.number();
  const bool has_card = rows.number() != 0;
  const auto card = static_cast<std::uint64_t>(rows.number());
  entry.entry.user = has_user ? std::optional(user) : std::nullopt;
  entry.entry.card = has_card ? std::optional(card) : std::nullopt;
  entry.entry.fields = fields_of_json(rows.text());
  return entry;
}

Json answer_part(Stores& stores, const Json& request, ControlStream& stream) {
  const auto wanted = query_of_request(request);
  if (request.value("wait", false) && wanted.after.has_value() && !wanted.to.has_value()) {
    stores.wait_for_entries(*wanted.after, kLongestWait);
  }
  PackedRows rows;
  Json names = Json::object();
  const auto reach = Journal::read_part(stores.directory(), wanted, [&](const JournalEntry& entry) {
    pack_entry(entry, rows);
    if (entry.entry.user.has_value()) {
      names[std::to_string(*entry.entry.user)] = "";
    }
    return rows.bytes().size() < kEnoughForAPart;
  });
  for (auto& [user, name] : names.items()) {
    name = stores.users().name_of(std::stoll(user));
  }
  stream.send_bytes(rows.bytes());
  return {{"columns", journal_columns()},
          {"names", names},
          {"after", reach.after},
          {"to", reach.to},
          {"more", reach.after < reach.to}};
}

}  // namespace

Kind journal_kind_of(const std::string& name) {
  if (const auto kind = kind_of(name)) {
    return *kind;
  }
  std::string all;
  for (const auto& known : kKinds) {
    all += (all.empty() ? "" : ", ") + std::string(known.name);
  }
  throw Failure(kUsage, "there is no kind \"" + refhost::log::escape(name) + "\": there are " + all);
}

std::vector<ControlCommand> journal_commands(Stores& stores) {
  return {{"journal_query",
           {{"kinds", Type::texts, false},
            {"user", Type::integer, false},
            {"card", Type::text, false},
            {"since", Type::integer, false},
            {"until", Type::integer, false},
            {"last", Type::integer, false},
            {"after", Type::integer, false},
            {"to", Type::integer, false},
            {"wait", Type::flag, false}},
           [&stores](const Json& request, ControlStream& stream) { return answer_part(stores, request, stream); }}};
}

Json journal_request(const JournalQuery& query) {
  Json request = {{"command", "journal_query"}, {"kinds", Json::array()}};
  for (const auto kind : query.kinds) {
    request["kinds"].push_back(name_of(kind));
  }
  for (const auto& [name, value] : {std::pair{"user", query.user},
                                    {"since", query.since},
                                    {"until", query.until},
                                    {"last", query.last},
                                    {"after", query.after}}) {
    if (value.has_value()) {
      request[name] = *value;
    }
  }
  if (query.card.has_value()) {
    request["card"] = std::to_string(*query.card);
  }
  return request;
}

void unpack_journal(const Json& answer, std::string_view bytes, const std::function<void(const JournalEntry&)>& take) {
  if (answer.at("columns") != journal_columns()) {
    throw std::runtime_error("the host that runs is of another version than this program: start it again");
  }
  for (PackedReader rows(bytes); !rows.is_at_end();) {
    take(unpacked_entry(rows));
  }
}

std::map<std::int64_t, std::string> names_in(const Json& answer) {
  std::map<std::int64_t, std::string> names;
  for (const auto& [user, name] : answer.at("names").items()) {
    names.emplace(std::stoll(user), name.get<std::string>());
  }
  return names;
}

}  // namespace achost
