#include "door/control/journal_commands.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "door/base/failure.h"
#include "door/control/answer_parts.h"
#include "door/control/journal_follow.h"
#include "door/control/journal_rows.h"
#include "door/control/packed_rows.h"
#include "door/control/row_lines.h"
#include "door/journal/entry_code.h"
#include "door/services/people_actions.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using std::chrono::milliseconds;
using Type = ControlField::Type;

// Then an answer without entries: whoever asks can look whether he is still wanted.
constexpr milliseconds kLongestWait(500);

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

// For the command line: as they lie in the spool, with the names of their users.
Json pack(const JournalQuery& wanted, Stores& stores, ControlStream& stream, JournalReach& reach) {
  PackedRows rows;
  std::set<std::int64_t> users;
  reach = Journal::read_part(stores.directory(), wanted, [&](const JournalEntry& entry) {
    rows.add(encoded(entry.entry, entry.time, entry.boot, entry.number));
    if (entry.entry.user.has_value()) {
      users.insert(*entry.entry.user);
    }
    return rows.bytes().size() < kEnoughForAPart;
  });
  Json names = Json::array();
  if (!users.empty()) {
    for (const auto& [user, name] : stores.users().names_of(users)) {
      names.push_back({user, name});
    }
  }
  stream.send_bytes(rows.bytes());
  return {{"code", kEntryCode}, {"names", names}};
}

void send_lines(const JournalQuery& wanted, Stores& stores, ControlStream& stream, JournalReach& reach) {
  std::vector<JournalEntry> entries;
  reach = Journal::read_part(stores.directory(), wanted, [&](const JournalEntry& entry) {
    entries.push_back(entry);
    return entries.size() < kEntriesInAPart;
  });
  send_entries(entries, stores.users(), stream);
}

Json answer_part(Stores& stores, const Json& request, ControlStream& stream) {
  const auto wanted = query_of_request(request);
  const bool is_packed = wants_packed(request);
  if (request.value("wait", false) && wanted.after.has_value() && !wanted.to.has_value()) {
    stores.wait_for_entries(*wanted.after, kLongestWait);
  }
  Json answer = Json::object();
  JournalReach reach;
  is_packed ? void(answer = pack(wanted, stores, stream, reach)) : send_lines(wanted, stores, stream, reach);
  answer["after"] = reach.after;
  answer["to"] = reach.to;
  answer["more"] = reach.after < reach.to;
  return answer;
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
            {"wait", Type::flag, false},
            kForm},
           [&stores](const Json& request, ControlStream& stream) { return answer_part(stores, request, stream); }},
          journal_follow_command(stores)};
}

Json journal_request(const JournalQuery& query) {
  Json request = {{"command", "journal_query"}, {"kinds", Json::array()}, {"form", "packed"}};
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
  bool is_known = answer.at("code") == kEntryCode;
  for (PackedReader rows(bytes); is_known && !rows.is_at_end();) {
    const auto entry = decoded(rows.text());
    is_known = entry.has_value();
    if (is_known) {
      take(*entry);
    }
  }
  if (!is_known) {
    throw std::runtime_error("the host that runs is of another version than this program: start it again");
  }
}

std::map<std::int64_t, std::string> names_in(const Json& answer) {
  std::map<std::int64_t, std::string> names;
  for (const auto& one : answer.at("names")) {
    names.emplace(one.at(0).get<std::int64_t>(), one.at(1).get<std::string>());
  }
  return names;
}

}  // namespace achost
