// A hundred thousand users with a card each: their import, what a door is to be like, their lists, and whose card one
// is, beside bare SQLite. The argument is achost.
#include <SQLiteCpp/SQLiteCpp.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "door/services/desired_state.h"
#include "door/services/people_import.h"
#include "door/services/people_text.h"
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

// Each with another name than in the document of before.
void write_document(const fs::path& file, const std::string& name) {
  std::ofstream text(file);
  for (std::uint64_t i = 1; i <= kUsers; ++i) {
    text << R"({"user": )" << i << R"(, "name": ")" << name << ' ' << i << R"(", "cards": [")" << i * kStep << "\"]}\n";
  }
}

void documents(const std::string& achost, const fs::path& directory) {
  const auto whole = directory / "whole.jsonl";
  const auto other = directory / "other.jsonl";
  write_document(whole, "user");
  write_document(other, "other");
  std::vector<double> made;
  std::vector<double> changed;
  std::vector<double> bare;
  for (int i = 0; i < kTurns; ++i) {
    const TemporaryDirectory state;
    const auto apply = [&](const fs::path& file, const char* revision) {
      return milliseconds([&] {
        run({achost, "desired", "apply", file, "--revision", revision, "--state", state.path()});
      });
    };
    made.push_back(apply(whole, "1"));
    changed.push_back(apply(other, "2"));
    bare.push_back(milliseconds([&] { insert_bare(state.path() / "bare.db"); }));
  }
  print_row("`achost desired apply`" + kMany, number(median(made)) + " ms", ratio_of(made, bare), "5 s");
  print_row("the same, each user changed", number(median(changed)) + " ms", ratio_of(changed, bare));
}

// How long whose card one is may take to answer while that is done, in ms.
template <typename Work>
double longest_wait(const achost::UserStore& users, const Work& work) {
  std::atomic<bool> is_done = false;
  double longest = 0;
  std::thread asker([&] {
    while (!is_done) {
      longest = std::max(longest, milliseconds([&] { users.owner_of(kStep); }));
    }
  });
  work();
  is_done = true;
  asker.join();
  return longest;
}

void waits(const fs::path& directory) {
  using achost::UserStore;
  const TemporaryDirectory state;
  UserStore users(state.path(), UserStore::Access::read_write);
  achost::DesiredState desired(
      users, {.value = [](const auto&, const auto&) { return std::string(); }, .store = [](const auto&) {}});
  std::ifstream file(directory / "whole.jsonl");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  achost::DesiredReader reader("document", achost::DesiredReader::Form::whole);
  reader.take(text);
  const auto document = std::move(reader).result();
  std::ifstream csv(directory / "people.csv");
  const auto import = achost::parse_people(std::string{std::istreambuf_iterator<char>(csv), {}}, "people.csv");
  achost::DesiredReader one_card("one card", achost::DesiredReader::Form::difference);
  one_card.take(R"({"user": 7, "name": "user 7", "cards": ["55433", "1"]})");
  const auto difference = std::move(one_card).result();
  std::vector<double> one;
  std::vector<double> taken;
  std::vector<double> imported;
  for (int i = 0; i < kTurns; ++i) {
    achost::DesiredReader none("nobody", achost::DesiredReader::Form::whole);
    none.take(R"({"remove_users": true})");
    const auto nobody = std::move(none).result();
    desired.take(nobody, 1, std::nullopt);
    taken.push_back(longest_wait(users, [&] { desired.take(document, 2, std::nullopt); }));
    one.push_back(milliseconds([&] { desired.take(difference, 3, 2); }));
    desired.take(nobody, 1, std::nullopt);
    imported.push_back(longest_wait(users, [&] { achost::import_people(users, import, {}); }));
  }
  print_row("whose card it is, the longest wait while 100,000 are taken as desired", number(median(taken)) + " ms",
            ratio_of(taken, imported));
  print_row("the same while they are imported", number(median(imported)) + " ms");
  print_row("a card more as desired, of 100,000, until it is stored and known", number(median(one)) + " ms");
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
  documents(arguments[1], directory.path());
  waits(directory.path());
  lists(arguments[1], directory.path());
  questions(directory.path());
  return 0;
}
