#include "door/journal/journal_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <utility>

#include "ac/exception.h"
#include "door/journal/entry_code.h"
#include "refhost/log.h"

namespace achost {

using refhost::throw_database_failure;

// The numbers of kinds and boots are what the columns hold. A card of 64 bits is stored as the signed number of the
// same bits, the only kind of number that SQLite has. `facts` are what the journal knows of itself.
const refhost::DatabaseKind kJournalKind = {
    .noun = "journal",
    .version = 1,
    .schema =
        "CREATE TABLE entries(number INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL, at INTEGER NOT NULL, "
        "zone INTEGER NOT NULL, monotonic INTEGER NOT NULL, boot INTEGER NOT NULL, trusted INTEGER NOT NULL, "
        "user INTEGER, card INTEGER, fields TEXT NOT NULL, sum INTEGER NOT NULL);"
        "CREATE INDEX entries_by_time ON entries(at);"
        "CREATE INDEX entries_by_user ON entries(user) WHERE user IS NOT NULL;"
        "CREATE INDEX entries_by_card ON entries(card) WHERE card IS NOT NULL;"
        "CREATE TABLE boots(number INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE);"
        "CREATE TABLE facts(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID",
    .probe = "SELECT number, kind, at, zone, monotonic, boot, trusted, user, card, fields, sum FROM entries LIMIT 0",
    .way_out = "restore a copy of it, or move it away to begin a new one",
    .shrinks = true,
    .is_big = true,
};

namespace {

constexpr const char* kInsert =
    "INSERT INTO entries(number, kind, at, zone, monotonic, boot, trusted, user, card, fields, sum) "
    "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, row_sum(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10))";

// What one step removes at the most, and gives back to the disk: entries that come meanwhile wait for it.
constexpr int kMostToGo = 100;
constexpr int kPagesBack = 12;
constexpr int kFreePages = 64;

// A start looks at so many of the latest entries: they are those that a crash can have touched.
constexpr std::int64_t kCheckedAtOpen = 1000;

constexpr const char* kSpoolFact = "spool";
constexpr const char* kRunningFact = "running";
constexpr const char* kSaidFact = "gone_and_said";

std::string random_id() {
  std::random_device random;
  std::string id;
  for (int i = 0; i < 4; ++i) {
    std::array<char, 16> part{};
    std::snprintf(part.data(), part.size(), "%08x", random());
    id += part.data();
  }
  return id;
}

// The greatest number of a file that is damaged, as far as it can be read. Else one that no file has come to: so none
// is given twice in any case.
std::int64_t last_number_of(const std::filesystem::path& file) {
  try {
    SQLite::Database damaged(file.string(), SQLite::OPEN_READONLY);
    return damaged.execAndGet(kLastNumber).getInt64();
  } catch (const SQLite::Exception&) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  }
}

// The greatest number of the damaged files that are kept beside it. They are there also where a crash came before the
// new file had its first number.
std::int64_t last_number_kept(const std::filesystem::path& file) {
  const std::string prefix = file.filename().string() + ".damaged-";
  std::int64_t last = 0;
  for (const auto& entry : std::filesystem::directory_iterator(file.parent_path())) {
    const auto name = entry.path().filename().string();
    if (name.starts_with(prefix) && !name.ends_with("-wal") && !name.ends_with("-shm")) {
      last = std::max(last, last_number_of(entry.path()));
    }
  }
  return last;
}

template <typename Number>
void bind(SQLite::Statement& statement, int index, const std::optional<Number>& number) {
  if (number.has_value()) {
    statement.bind(index, static_cast<std::int64_t>(*number));
  } else {
    statement.bind(index);
  }
}

}  // namespace

JournalFile::Open::Open(SQLite::Database the_database) : database(std::move(the_database)), insert(database, kInsert) {}

JournalFile::JournalFile(const std::filesystem::path& directory) : file_(directory / kJournalFileName), watch_(file_) {
  auto database = refhost::open_database(file_, kJournalKind, nullptr, &faults_);
  try {
    open(std::move(database));
    check_latest();
  } catch (const SQLite::Exception& failure) {
    if (!refhost::is_damage(failure)) {
      throw_database_failure(file_, kJournalKind, failure);
    }
    begin_anew(failure.what());
  }
}

void JournalFile::open(SQLite::Database database) {
  open_ = std::make_unique<Open>(std::move(database));
  if (const std::string id = fact(kIdFact); !id.empty()) {
    id_ = id;
    last_ = open_->database.execAndGet(kLastNumber).getInt64();
    spool_ = fact(kSpoolFact);
    is_running_ = fact(kRunningFact) == "1";
  } else {
    begin();
  }
}

// A new file. Where it goes on for a damaged one, that one's spool is its own.
void JournalFile::begin() {
  id_ = id_.empty() ? random_id() : id_;
  last_ = last_ == 0 ? last_number_kept(file_) : last_;
  SQLite::Transaction transaction(open_->database);
  set_fact(kIdFact, id_);
  set_fact(kSaidFact, std::to_string(last_));
  set_fact(kSpoolFact, spool_);
  set_fact(kRunningFact, is_running_ ? "1" : "0");
  SQLite::Statement number(open_->database, "INSERT INTO sqlite_sequence(name, seq) VALUES('entries', ?)");
  number.bind(1, last_);
  number.exec();
  transaction.commit();
}

// Where the new one cannot be made at once, the next use tries it again, and keeps nothing a second time.
void JournalFile::begin_anew(const std::string& damage) {
  try {
    const bool is_kept = std::exchange(is_beginning_, true);
    open(is_kept ? refhost::open_database(file_, kJournalKind, nullptr, &faults_)
                 : refhost::begin_database_anew(file_, kJournalKind, damage, &faults_));
    is_beginning_ = false;
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file_, kJournalKind, failure);
  }
}

void JournalFile::add_fault(const std::string& reason) {
  faults_.push_back(file_.string() + ": " + reason);
  refhost::log::error(faults_.back());
}

template <typename Action>
auto JournalFile::use(const char* what, Action action) {
  refhost::StoreWatch::Use use(watch_, what);
  try {
    if (is_beginning_) {
      begin_anew("");
    }
    try {
      return action();
    } catch (const SQLite::Exception& failure) {
      if (!refhost::is_damage(failure)) {
        throw;
      }
      begin_anew(failure.what());
      return action();
    }
  } catch (const SQLite::Exception& failure) {
    use.fail(failure.what());
    throw_database_failure(file_, kJournalKind, failure);
  } catch (const ac::ac_exception& failure) {
    use.fail(failure.what());
    throw;
  }
}

void JournalFile::part() {
  try {
    SQLite::Transaction transaction(open_->database);
    id_ = random_id();
    set_fact(kIdFact, id_);
    set_fact(kPartedFact, std::to_string(last_));
    set_fact(kSpoolFact, "");
    set_fact(kRunningFact, "0");
    transaction.commit();
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file_, kJournalKind, failure);
  }
  spool_.clear();
  is_running_ = false;
}

void JournalFile::check_latest() {
  refhost::StoreReport report;
  check_entries(open_->database, last_ - kCheckedAtOpen, report);
  for (const auto& fault : report.faults) {
    add_fault(fault);
  }
}

void JournalFile::set_spool(const std::string& file) {
  if (file == spool_) {
    return;
  }
  try {
    set_fact(kSpoolFact, file);
    spool_ = file;
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file_, kJournalKind, failure);
  }
}

void JournalFile::store(const std::vector<JournalEntry>& entries) {
  use("what has happened", [&] { store_all(entries); });
}

void JournalFile::store_all(const std::vector<JournalEntry>& entries) {
  boot_.clear();  // what a transaction that failed has made is not there
  SQLite::Transaction transaction(open_->database, SQLite::TransactionBehavior::IMMEDIATE);
  std::int64_t last = last_;
  for (const auto& entry : entries) {
    if (entry.number > last) {
      insert(entry);
      take_note_of(entry);
      last = entry.number;
    }
  }
  transaction.commit();
  last_ = last;
}

void JournalFile::insert(const JournalEntry& entry) {
  auto& insert = open_->insert;
  insert.tryReset();  // should the last time have failed
  insert.bind(1, entry.number);
  insert.bind(2, static_cast<int>(entry.entry.kind));
  insert.bind(3, entry.time.wall);
  insert.bind(4, entry.time.offset);
  insert.bind(5, entry.time.monotonic);
  insert.bind(6, boot(entry.boot));
  insert.bind(7, entry.time.is_trusted ? 1 : 0);
  bind(insert, 8, entry.entry.user);
  bind(insert, 9, entry.entry.card);
  insert.bind(10, json_of_fields(entry.entry.fields));
  insert.exec();
  insert.reset();
}

// What an entry says of the journal itself is remembered with it.
void JournalFile::take_note_of(const JournalEntry& entry) {
  if (entry.entry.kind == Kind::start || entry.entry.kind == Kind::end) {
    is_running_ = entry.entry.kind == Kind::start;
    set_fact(kRunningFact, is_running_ ? "1" : "0");
  } else if (entry.entry.kind == Kind::retention) {
    for (const auto& [name, value] : entry.entry.fields) {
      if (name == "last") {
        set_fact(kSaidFact, std::to_string(std::get<std::int64_t>(value)));
      }
    }
  }
}

std::int64_t JournalFile::boot(const std::string& text) {
  if (text != boot_ || boot_number_ == 0) {
    SQLite::Statement add(open_->database, "INSERT OR IGNORE INTO boots(id) VALUES(?)");
    add.bind(1, text);
    add.exec();
    SQLite::Statement find(open_->database, "SELECT number FROM boots WHERE id = ?");
    find.bind(1, text);
    find.executeStep();
    boot_ = text;
    boot_number_ = find.getColumn(0).getInt64();
  }
  return boot_number_;
}

std::string JournalFile::fact(const char* name) {
  SQLite::Statement query(open_->database, "SELECT value FROM facts WHERE name = ?");
  query.bind(1, name);
  return query.executeStep() ? query.getColumn(0).getString() : "";
}

void JournalFile::set_fact(const char* name, const std::string& value) {
  SQLite::Statement put(open_->database, "INSERT OR REPLACE INTO facts(name, value) VALUES(?, ?)");
  put.bind(1, name);
  put.bind(2, value);
  put.exec();
}

bool JournalFile::remove_some(const JournalRetention& rule) {
  return use("a removal of old entries", [&] { return remove_oldest(rule); });
}

// The oldest, up to the first that may stay: so the numbers that are there follow each other.
bool JournalFile::remove_oldest(const JournalRetention& rule) {
  SQLite::Statement oldest(open_->database, "SELECT number, at FROM entries ORDER BY number LIMIT ?");
  oldest.bind(1, kMostToGo);
  const std::int64_t too_many = rule.keep > 0 ? last_ - rule.keep : 0;
  const std::int64_t too_old = rule.knows_ages ? rule.oldest : 0;
  int found = 0;
  std::int64_t last = 0;
  while (oldest.executeStep()) {
    const std::int64_t number = oldest.getColumn(0);
    if (number > too_many && oldest.getColumn(1).getInt64() >= too_old) {
      break;
    }
    last = number;
    ++found;
  }
  oldest.reset();
  const bool has_room = open_->database.execAndGet("PRAGMA freelist_count").getInt() > kFreePages;
  if (found == 0 && !has_room) {
    return false;
  }
  SQLite::Transaction transaction(open_->database, SQLite::TransactionBehavior::IMMEDIATE);
  SQLite::Statement remove(open_->database, "DELETE FROM entries WHERE number <= ?");
  remove.bind(1, last);
  remove.exec();
  if (has_room) {
    open_->database.exec("PRAGMA incremental_vacuum(" + std::to_string(kPagesBack) + ")");
  }
  transaction.commit();
  return found == kMostToGo || has_room;
}

std::optional<JournalFile::Gone> JournalFile::gone() {
  try {
    const std::string said = fact(kSaidFact);
    const Gone gone{.first = 1 + (said.empty() ? 0 : std::stoll(said)),
                    .last = open_->database
                                .execAndGet("SELECT coalesce((SELECT min(number) FROM entries), 1 + (" +
                                            std::string(kLastNumber) + "))")
                                .getInt64() -
                            1};
    return gone.last < gone.first ? std::nullopt : std::optional(gone);
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file_, kJournalKind, failure);
  }
}

// The numbers that are there follow each other: the oldest go, and nothing else does.
void check_entries(SQLite::Database& database, std::int64_t after, refhost::StoreReport& report) {
  constexpr std::size_t kMost = 10;
  SQLite::Statement query(database,
                          "SELECT number, sum = row_sum(number, kind, at, zone, monotonic, boot, trusted, user, card, "
                          "fields) FROM entries NOT INDEXED WHERE number > ? ORDER BY number");
  query.bind(1, after);
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::int64_t count = 0;
  std::int64_t unsaid = 0;
  const auto add = [&](const std::string& fault) {
    report.faults.size() < kMost ? report.faults.push_back(fault) : void(++unsaid);
  };
  const auto miss = [&](std::int64_t from, std::int64_t to) {
    if (from <= to) {
      add(from == to ? "entry " + refhost::grouped(from) + " is missing"
                     : "entries " + refhost::grouped(from) + " to " + refhost::grouped(to) + " are missing");
    }
  };
  for (; query.executeStep(); ++count) {
    const std::int64_t number = query.getColumn(0);
    count == 0 ? void(first = number) : miss(last + 1, number - 1);
    last = number;
    if (query.getColumn(1).getInt() != 1) {
      add("entry " + refhost::grouped(number) + " is not as it was written: its checksum is wrong");
    }
  }
  if (count > 0) {
    miss(last + 1, database.execAndGet(kLastNumber).getInt64());
  }
  if (unsaid > 0) {
    report.faults.push_back("so are " + refhost::grouped(unsaid) + " more");
  }
  report.content = (count == 1 ? "1 entry" : refhost::grouped(count) + " entries") +
                   (count == 0 ? "" : ", numbers " + refhost::grouped(first) + " to " + refhost::grouped(last));
}

refhost::StoreReport Journal::inspect(const std::filesystem::path& directory) {
  return refhost::inspect_database(
      "journal", directory / kJournalFileName, kJournalKind,
      [](SQLite::Database& database, refhost::StoreReport& report) { check_entries(database, 0, report); });
}

}  // namespace achost
