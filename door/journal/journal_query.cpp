// Reading the journal, a piece at a time, so that neither memory nor the writer's file grows with what is asked.
#include <algorithm>
#include <limits>
#include <map>

#include "door/journal/entry_code.h"
#include "door/journal/journal.h"
#include "door/journal/journal_file.h"

namespace achost {
namespace {

// Entries of one piece: a reader who takes his time holds no part of the log from being used again.
constexpr int kPiece = 500;

std::string number(std::int64_t value) { return std::to_string(value); }

// The index to go by, and what an entry must be. A card or a user has few entries of all, which lie in the order of
// their numbers there.
std::string condition(const JournalQuery& query) {
  std::string text = query.card.has_value()
                         ? "INDEXED BY entries_by_card WHERE card = " + number(static_cast<std::int64_t>(*query.card))
                     : query.user.has_value() ? "INDEXED BY entries_by_user WHERE user = " + number(*query.user)
                                              : "NOT INDEXED WHERE 1";
  text += query.card.has_value() && query.user.has_value() ? " AND user = " + number(*query.user) : "";
  text += query.since.has_value() ? " AND at >= " + number(*query.since) : "";
  text += query.until.has_value() ? " AND at < " + number(*query.until) : "";
  for (std::size_t i = 0; i < query.kinds.size(); ++i) {
    text += (i == 0 ? " AND kind IN (" : ", ") + number(static_cast<int>(query.kinds[i]));
  }
  return text + (query.kinds.empty() ? "" : ")");
}

struct Span {
  std::int64_t first = 1;
  std::int64_t last = 0;
};

// Between which numbers the entries are. Those of a time lie together, unless somebody has set the clock: its index
// tells the first and the last of them. The newest are found from the end on.
Span span_of(SQLite::Database& database, const JournalQuery& query) {
  const auto ask = [&](const std::string& sql) { return database.execAndGet(sql).getInt64(); };
  constexpr const char* kByTime = "(number), 0) FROM entries INDEXED BY entries_by_time WHERE at ";
  if (query.to.has_value()) {
    return {.first = query.after.value_or(0) + 1, .last = *query.to};
  }
  const bool goes_by_time = !query.card.has_value() && !query.user.has_value();
  Span span{.first = query.after.value_or(0) + 1, .last = ask("SELECT coalesce(max(number), 0) FROM entries")};
  if (goes_by_time && query.until.has_value()) {
    span.last = std::min(span.last, ask(std::string("SELECT coalesce(max") + kByTime + "< " + number(*query.until)));
  }
  if (query.last.has_value()) {
    span.first =
        std::max(span.first, ask("SELECT coalesce(min(number), " + number(std::numeric_limits<std::int64_t>::max()) +
                                 ") FROM (SELECT number FROM entries " + condition(query) + " AND number BETWEEN " +
                                 number(span.first) + " AND " + number(span.last) + " ORDER BY number DESC LIMIT " +
                                 number(std::max<std::int64_t>(*query.last, 0)) + ")"));
  } else if (goes_by_time && query.since.has_value()) {
    const auto first = ask(std::string("SELECT coalesce(min") + kByTime + ">= " + number(*query.since));
    span.first = first == 0 ? span.last + 1 : std::max(span.first, first);
  }
  return span;
}

JournalEntry entry_of(SQLite::Statement& row, const std::string& boot) {
  JournalEntry entry{.number = row.getColumn(0).getInt64(),
                     .time = {.wall = row.getColumn(2).getInt64(),
                              .offset = row.getColumn(3).getInt64(),
                              .monotonic = row.getColumn(4).getInt64(),
                              .is_trusted = row.getColumn(6).getInt() != 0},
                     .boot = boot,
                     .entry = {.kind = static_cast<Kind>(row.getColumn(1).getInt())}};
  if (!row.getColumn(7).isNull()) {
    entry.entry.user = row.getColumn(7).getInt64();
  }
  if (!row.getColumn(8).isNull()) {
    entry.entry.card = static_cast<std::uint64_t>(row.getColumn(8).getInt64());
  }
  entry.entry.fields = fields_of_json(row.getColumn(9).getString());
  return entry;
}

// The ids of the machine's runs, by number. There are few, and each is asked for once.
class Boots {
 public:
  explicit Boots(SQLite::Database& database) : query_(database, "SELECT id FROM boots WHERE number = ?") {}

  const std::string& at(std::int64_t boot) {
    const auto [found, is_new] = ids_.try_emplace(boot);
    if (is_new) {
      query_.reset();
      query_.bind(1, boot);
      found->second = query_.executeStep() ? query_.getColumn(0).getString() : "";
      query_.reset();
    }
    return found->second;
  }

 private:
  SQLite::Statement query_;
  std::map<std::int64_t, std::string> ids_;
};

// Of a kind that this program does not know there is nothing to say.
bool is_known(int kind) { return kind >= 1 && kind <= static_cast<int>(kKinds.size()); }

JournalReach read_from(SQLite::Database& database, const JournalQuery& query,
                       const std::function<bool(const JournalEntry&)>& take) {
  const auto [first, last] = span_of(database, query);
  SQLite::Statement rows(database,
                         "SELECT number, kind, at, zone, monotonic, boot, trusted, user, card, fields FROM entries " +
                             condition(query) + " AND number BETWEEN ? AND ? ORDER BY number LIMIT " + number(kPiece));
  Boots boots(database);
  std::vector<JournalEntry> piece;
  std::int64_t next = first;
  do {
    piece.clear();
    rows.bind(1, next);
    rows.bind(2, last);
    int found = 0;
    for (; rows.executeStep(); ++found) {
      next = rows.getColumn(0).getInt64() + 1;
      if (is_known(rows.getColumn(1).getInt())) {
        piece.push_back(entry_of(rows, boots.at(rows.getColumn(5).getInt64())));
      }
    }
    rows.reset();
    next = found < kPiece ? last + 1 : next;
    for (const auto& entry : piece) {
      if (!take(entry)) {
        return {.after = entry.number, .to = last};
      }
    }
  } while (next <= last);
  const auto reached = std::max(last, query.after.value_or(0));
  return {.after = reached, .to = reached};
}

std::string fact_in(SQLite::Database& database, const char* name) {
  SQLite::Statement query(database, "SELECT value FROM facts WHERE name = ?");
  query.bind(1, name);
  return query.executeStep() ? query.getColumn(0).getString() : "";
}

// In one transaction: the numbers are those of one moment.
JournalExtent extent_of(SQLite::Database& database, std::optional<std::int64_t> entry) {
  const SQLite::Transaction moment(database);
  JournalExtent extent{.id = fact_in(database, kIdFact), .last = database.execAndGet(kLastNumber).getInt64()};
  extent.first = database.execAndGet("SELECT coalesce(min(number), 0) FROM entries").getInt64();
  extent.first = extent.first == 0 ? extent.last + 1 : extent.first;
  if (const auto parted = fact_in(database, kPartedFact); !parted.empty()) {
    extent.parted = std::stoll(parted);
  }
  SQLite::Statement boot(database, "SELECT id FROM boots WHERE number = (SELECT boot FROM entries WHERE number = ?)");
  boot.bind(1, entry.value_or(0));
  if (boot.executeStep()) {
    extent.boot = boot.getColumn(0).getString();
  }
  return extent;
}

}  // namespace

JournalExtent Journal::extent(const std::filesystem::path& directory, std::optional<std::int64_t> entry) {
  const auto file = directory / kJournalFileName;
  auto database = refhost::open_database_to_read(file, kJournalKind);
  if (!database.has_value()) {
    return {};
  }
  try {
    return extent_of(*database, entry);
  } catch (const SQLite::Exception& failure) {
    refhost::throw_database_failure(file, kJournalKind, failure);
  }
}

JournalReach Journal::read_part(const std::filesystem::path& directory, const JournalQuery& query,
                                const std::function<bool(const JournalEntry&)>& take) {
  const auto file = directory / kJournalFileName;
  auto database = refhost::open_database_to_read(file, kJournalKind);
  if (!database.has_value()) {
    return {.after = query.after.value_or(0), .to = query.after.value_or(0)};
  }
  try {
    return read_from(*database, query, take);
  } catch (const SQLite::Exception& failure) {
    refhost::throw_database_failure(file, kJournalKind, failure);
  }
}

std::int64_t Journal::read(const std::filesystem::path& directory, const JournalQuery& query,
                           const std::function<void(const JournalEntry&)>& take) {
  return read_part(directory, query,
                   [&take](const JournalEntry& entry) {
                     take(entry);
                     return true;
                   })
      .to;
}

}  // namespace achost
