// The journal: what noting costs, and noting a message for those who follow the bus, how soon an entry is on the disk,
// and questions to one as full as it gets, beside bare SQLite. The argument is achost.
#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ac/message.h"
#include "ac/util.h"
#include "commands.h"
#include "door/control/event_ring.h"
#include "door/journal/journal.h"
#include "full_journal.h"
#include "outside.h"
#include "store.h"
#include "table.h"

namespace {

namespace fs = std::filesystem;
using achost::Entry;
using achost::Journal;
using achost::Kind;

constexpr int kEntries = 2'000'000;
constexpr int kNotes = 2'000;
constexpr int kStored = 300;
constexpr int kTurns = 21;
constexpr int kNotesToBegin = 1'000;  // with that many it is looked for what is to go
constexpr int kNotesMeanwhile = 10'000;

const Entry kEntry = {.kind = Kind::identification, .user = 7, .card = 33, .fields = {{"outcome", "opens"}}};

// Nobody follows: who does takes them on a thread of his own.
void noting_messages() {
  ac::Message message("identifier_new_card");
  message.add_int("identifier_id", 1);
  message.add_int64("value", 33);
  message.add_int64("device_id", 1);
  message.add_int("readings_count", 1);
  message.add_string("uuid", ac::util::identifier::generate_new_uuid());
  achost::EventRing ring;
  constexpr int kAtOnce = 10'000;
  std::vector<double> turns;
  for (int turn = 0; turn < kTurns; ++turn) {
    turns.push_back(milliseconds([&] {
      for (int i = 0; i < kAtOnce; ++i) {
        ring.note(message);
      }
    }));
  }
  print_row("noting a message for those who follow the bus", number(median(turns) * 1e6 / kAtOnce, 1) + " ns");
}

void noting(const fs::path& directory) {
  Journal journal(directory);
  std::vector<double> notes;
  for (int i = 0; i < kNotes; ++i) {
    notes.push_back(milliseconds([&] { journal.note(kEntry); }) * 1000);
  }
  journal.wait_beyond(kNotes - 1, std::chrono::seconds(10));
  print_row("noting an entry in the journal, median", number(median(notes), 2) + " µs");
  print_row("noting an entry in the journal, 99 of 100", number(quantile(notes, 0.99), 2) + " µs");
}

double time_to_disk(Journal& journal) {
  const auto before = journal.stored();
  return milliseconds([&] {
    journal.note(kEntry);
    journal.wait_beyond(before, std::chrono::seconds(10));
  });
}

// An entry by itself each time, at any moment of what the journal does otherwise; beside it a bare insert of the same.
void storing(const fs::path& directory) {
  const TemporaryDirectory beside;
  { const Journal makes_the_file(beside.path()); }
  SQLite::Database bare(beside.path() / "journal.db", SQLite::OPEN_READWRITE);
  bare.exec("PRAGMA synchronous = FULL");
  SQLite::Statement insert(bare,
                           "INSERT INTO entries(kind, at, zone, monotonic, boot, trusted, user, card, fields, sum) "
                           "VALUES(1, 0, 0, 0, 1, 0, 7, 33, '{\"outcome\":\"opens\"}', 0)");
  Journal journal(directory);
  std::vector<double> times;
  std::vector<double> bare_times;
  for (int i = 0; i < kStored; ++i) {
    times.push_back(time_to_disk(journal));
    bare_times.push_back(milliseconds([&] {
      insert.exec();
      insert.reset();
    }));
  }
  print_row("from noting an entry to the disk, median", number(median(times)) + " ms", "", "50 ms");
  print_row("from noting an entry to the disk, the longest of 300", number(quantile(times, 1)) + " ms", "", "50 ms");
  print_row("bare SQLite: the same inserted, the longest of 300", number(quantile(bare_times, 1)) + " ms");
}

// That some have gone, and not all yet.
void require_that_entries_go(const fs::path& directory) {
  const SQLite::Database database(directory / "journal.db", SQLite::OPEN_READONLY);
  SQLite::Statement oldest(database, "SELECT min(number) FROM entries");
  oldest.executeStep();
  const std::int64_t number = oldest.getColumn(0);
  if (number == 1 || number >= kEntries) {
    throw std::runtime_error("the entries have not gone while it was measured");
  }
}

// Turn by turn with a journal of which nothing goes. In memory, so that it is the journal's own time, and no disk's.
void retention() {
  const TemporaryDirectory full("/dev/shm");
  const TemporaryDirectory beside("/dev/shm");
  fill_journal(full.path(), kEntries);
  Journal still(beside.path());
  Journal journal(full.path());
  journal.retain([] { return achost::JournalRetention{.keep = 1000}; });
  std::vector<double> of_still;
  std::vector<double> of_journal;
  for (const auto& [notes, pause] : {std::pair(kNotesToBegin, 0), {kNotesMeanwhile, 1}}) {
    for (int i = 0; i < notes; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(pause));
      of_still.push_back(milliseconds([&] { still.note(kEntry); }) * 1000);
      of_journal.push_back(milliseconds([&] { journal.note(kEntry); }) * 1000);
    }
  }
  std::vector<double> times_of_still;
  std::vector<double> times;
  for (int i = 0; i < kStored; ++i) {
    times_of_still.push_back(time_to_disk(still));
    times.push_back(time_to_disk(journal));
  }
  require_that_entries_go(full.path());
  for (const auto& [kind, share] : {std::pair{"999 of 1,000", 0.999}, {"the longest", 1.0}}) {
    const double reference = quantile(of_still, share);
    print_row("noting an entry while 2,000,000 go, in memory, " + std::string(kind),
              number(quantile(of_journal, share)) + " µs", ratio_of(quantile(of_journal, share), reference));
    print_row("noting in another journal meanwhile, in memory, " + std::string(kind), number(reference) + " µs");
  }
  print_row("from noting to the disk while 2,000,000 go, in memory, the longest of 300",
            number(quantile(times, 1)) + " ms", ratio_of(quantile(times, 1), quantile(times_of_still, 1)), "50 ms");
  print_row("the same in another journal meanwhile, in memory, the longest of 300",
            number(quantile(times_of_still, 1)) + " ms");
}

struct Question {
  std::vector<std::string> words;
  std::string bare;
  std::string target;
};

// All fields of all rows, and nothing done with them.
std::size_t walk(const fs::path& file, const std::string& question) {
  const SQLite::Database database(file, SQLite::OPEN_READONLY);
  SQLite::Statement query(database, question);
  std::size_t size = 0;
  while (query.executeStep()) {
    for (int i = 0; i < query.getColumnCount(); ++i) {
      size += static_cast<std::size_t>(query.getColumn(i).getBytes());
    }
  }
  return size;
}

// Each command beside the bare question, turn by turn; a daemon runs there, or none.
void ask(const std::string& achost, const fs::path& directory, const std::string& where) {
  const std::string all = "SELECT * FROM entries ";
  for (const auto& [words, bare, target] :
       {Question{{"--last", "10"}, all + "ORDER BY number DESC LIMIT 10", "20 ms"},
        Question{{"--since", "today"},
                 all + "WHERE at >= strftime('%s', 'now', 'localtime', 'start of day', 'utc') * 1000 ORDER BY at",
                 "50 ms"},
        Question{{"--user", "7"}, all + "WHERE user = 7 ORDER BY number", "50 ms"}}) {
    std::vector<std::string> command = {achost, "journal", "--state", directory};
    command.insert(command.end(), words.begin(), words.end());
    std::vector<double> times;
    std::vector<double> bare_times;
    for (int i = 0; i < kTurns; ++i) {
      times.push_back(milliseconds([&] { run(command); }));
      bare_times.push_back(milliseconds([&] { walk(directory / "journal.db", bare); }));
    }
    const std::string name = words[0] + " " + words[1];
    print_row("`achost journal " + name + "`, 2,000,000 entries" + where, number(median(times)) + " ms",
              ratio_of(times, bare_times), target);
    print_row("bare SQLite: the entries of `" + name + "` read", number(median(bare_times)) + " ms");
  }
}

// Nobody answers at the reader's line, and the daemon serves its clients.
void wait_until_served(const fs::path& directory) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!fs::exists(directory / "control.sock")) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("the daemon does not start");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: uhf-bench-journal ACHOST\n", stderr);
    return 2;
  }
  const TemporaryDirectory small;
  noting(small.path());
  noting_messages();
  storing(small.path());
  retention();
  const TemporaryDirectory full;
  fill_journal(full.path(), kEntries);
  const std::string achost = arguments[1];
  ask(achost, full.path(), "");
  const Reader reader(0);
  const Process daemon(achost, full.path(), reader.path(), {"--set", "host.journal_keep=0"});
  wait_until_served(full.path());
  ask(achost, full.path(), ", through a daemon");
  return 0;
}
