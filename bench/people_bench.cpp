// A hundred thousand users with a card each: their import, their lists, and whose card one is, beside bare SQLite. The
// argument is achost.
#include <SQLiteCpp/SQLiteCpp.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "commands.h"
#include "door/services/user_store.h"
#include "store.h"
#include "table.h"

namespace {

namespace fs = std::filesystem;

constexpr int kUsers = 100'000;
constexpr std::uint64_t kStep = 7919;  // from card to card
constexpr int kTurns = 5;
constexpr int kQuestions = 20'000;  // a turn

const std::string kMany = ", 100,000 users with a card each";

void write_csv(const fs::path& file) {
  std::ofstream text(file);
  text << "id,name,card\n";
  for (std::uint64_t i = 1; i <= kUsers; ++i) {
    text << i << ",user " << i << ',' << i * kStep << '\n';
  }
}

// The same rows in the same tables, in one transaction.
void insert_bare(const fs::path& file) {
  SQLite::Database database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
  database.exec(
      "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
      "CREATE TABLE users(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sum INTEGER, valid_from INTEGER, "
      "valid_until INTEGER, blocked INTEGER); CREATE TABLE cards(value INTEGER PRIMARY KEY, user INTEGER NOT NULL "
      "REFERENCES users(id), registration TEXT NOT NULL, enrolled TEXT NOT NULL, sum INTEGER);"
      "CREATE INDEX cards_by_user ON cards(user)");
  SQLite::Transaction transaction(database);
  SQLite::Statement user(database, "INSERT INTO users VALUES(?1, 'user ' || ?1, 4000000000, 0, 0, 0)");
  SQLite::Statement card(database,
                         "INSERT INTO cards VALUES(?1 * 7919, ?1, '', '2026-01-02T03:04:05.006+01:00', 4000000000)");
  for (int i = 1; i <= kUsers; ++i) {
    for (SQLite::Statement* const statement : {&user, &card}) {
      statement->reset();
      statement->bind(1, i);
      statement->exec();
    }
  }
  transaction.commit();
}

void imports(const std::string& achost, const fs::path& directory) {
  const auto csv = directory / "people.csv";
  write_csv(csv);
  std::vector<double> imported;
  std::vector<double> bare;
  for (int i = 0; i < kTurns; ++i) {
    const TemporaryDirectory state;
    imported.push_back(milliseconds([&] { run({achost, "user", "import", csv, "--state", state.path()}); }));
    bare.push_back(milliseconds([&] { insert_bare(state.path() / "bare.db"); }));
  }
  print_row("`achost user import`" + kMany, number(median(imported)) + " ms", ratio_of(imported, bare), "5 s");
  print_row("bare SQLite: the same rows inserted", number(median(bare)) + " ms");
  run({achost, "user", "import", csv, "--state", directory});
}

void lists(const std::string& achost, const fs::path& directory) {
  compare({{"`achost user list`" + kMany, {achost, "user", "list", "--state", directory}},
           {"`achost user list --json`" + kMany, {achost, "user", "list", "--json", "--state", directory}}},
          directory / "users.db", "100,000 users read, their cards counted",
          "SELECT id, name, (SELECT count(*) FROM cards WHERE user = users.id) FROM users ORDER BY id");
  compare({{"`achost card list`" + kMany, {achost, "card", "list", "--state", directory}},
           {"`achost user export`" + kMany, {achost, "user", "export", "--state", directory}}},
          directory / "users.db", "100,000 cards read with their users",
          "SELECT * FROM cards JOIN users ON users.id = cards.user ORDER BY value");
}

double resident() {
  std::ifstream file("/proc/self/statm");
  double pages = 0;
  file >> pages >> pages;
  return pages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// As a program without a memory of its own would ask, with the statement compiled once.
class BareQuestion {
 public:
  explicit BareQuestion(const fs::path& file) : database_(file, SQLite::OPEN_READONLY), query_(database_, kQuestion) {}

  std::int64_t owner_of(std::uint64_t card) {
    query_.reset();
    query_.bind(1, static_cast<std::int64_t>(card));
    return query_.executeStep() ? query_.getColumn(0).getInt64() : 0;
  }

 private:
  static constexpr const char* kQuestion =
      "SELECT users.id, users.name FROM cards JOIN users ON users.id = cards.user WHERE value = ?";

  SQLite::Database database_;
  SQLite::Statement query_;
};

// Nanoseconds a question, of cards in no order.
template <typename Question>
double question_time(const Question& question) {
  std::mt19937 random(1);
  std::int64_t wrong = 0;
  const double time = milliseconds([&] {
    for (int i = 0; i < kQuestions; ++i) {
      const std::uint64_t user = 1 + random() % kUsers;
      wrong += question(user * kStep) == static_cast<std::int64_t>(user) ? 0 : 1;
    }
  });
  if (wrong != 0) {
    throw std::runtime_error("a card has not its owner");
  }
  return time * 1e6 / kQuestions;
}

void questions(const fs::path& directory) {
  using achost::UserStore;
  const double before = resident();
  std::unique_ptr<UserStore> store;
  std::vector<double> openings;
  std::vector<double> loaded;
  std::vector<double> bare;
  openings.push_back(
      milliseconds([&] { store = std::make_unique<UserStore>(directory, UserStore::Access::read_write); }));
  const double grown = resident() - before;
  BareQuestion question(directory / "users.db");
  for (int i = 0; i < kTurns; ++i) {
    loaded.push_back(question_time([&](std::uint64_t card) { return store->owner_of(card).value_or(0); }));
    bare.push_back(question_time([&](std::uint64_t card) { return question.owner_of(card); }));
  }
  for (int i = 0; i < kTurns; ++i) {
    openings.push_back(milliseconds([&] { const UserStore again(directory, UserStore::Access::read_write); }));
  }
  print_row("whose card it is, of 100,000", number(median(loaded)) + " ns", ratio_of(loaded, bare));
  print_row("bare SQLite: the same question", number(median(bare)) + " ns");
  print_row("users and cards opened and loaded" + kMany, number(median(openings)) + " ms");
  print_row("memory that a user with a card takes, of 100,000", number(grown / kUsers) + " bytes");
}

}  // namespace

int main(int, char** arguments) {
  const TemporaryDirectory directory;
  imports(arguments[1], directory.path());
  lists(arguments[1], directory.path());
  questions(directory.path());
  return 0;
}
