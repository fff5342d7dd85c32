// Power failures: a story of every kind of write is written down, and the states of the disk that a power failure at
// any moment of it may leave are opened with the real stores. What was acknowledged is there, and nothing else but what
// was under way.
//
// The environment variables CRASH_STATES and CRASH_SEED give how many and which.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <optional>

#include "door/journal/entry_code.h"
#include "door/journal/journal.h"
#include "door/services/desired_rows.h"
#include "door/services/desired_state.h"
#include "door/services/user_store.h"
#include "door/tests/disk_recorder.h"
#include "refhost/audit_log.h"
#include "refhost/log.h"
#include "refhost/settings_store.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using refhost::AuditLog;
using refhost::SettingsStore;

// What is stored, a text for each store, so that it can be compared.
struct Content {
  std::string records;
  std::string users;
  std::string settings;
  std::string together;  // users, settings, and which document of what the door is to be like both are of
  std::string journal;   // a line each
};

std::string revision_of(const UserStore& users) {
  std::string revision;
  users.look([&](SQLite::Database& open) {
    if (const auto desired = rows::desired(open)) {
      revision = std::to_string(desired->revision) + " ";
    }
  });
  return revision;
}

Content stored(const std::filesystem::path& directory) {
  Content content;
  AuditLog::read(directory, {}, [&](const refhost::AuditEntry& entry) {
    content.records += std::to_string(entry.id) + "=" + entry.record.details.substr(0, 20) + ":" +
                       std::to_string(entry.record.details.size()) + " ";
  });
  const UserStore users(directory, UserStore::Access::read_only);
  for (const auto& user : users.users()) {
    content.users += std::to_string(user.id) + user.name + std::to_string(user.until) + (user.blocked ? "!" : "") + " ";
  }
  for (const auto& card : users.cards()) {
    content.users += std::to_string(card.value) + "->" + std::to_string(card.user) + card.registration + " ";
  }
  const SettingsStore settings(directory, SettingsStore::Access::read_only);
  for (const auto& setting : settings.schema().settings()) {
    if (const auto value = settings.get(setting.section, setting.key).value(); value != setting.default_value) {
      content.settings.append(setting.key).append("=").append(value).append(" ");
    }
  }
  content.together = revision_of(users) + content.users + content.settings;
  Journal::read(directory, {}, [&](const JournalEntry& entry) {
    content.journal += std::to_string(entry.number) + "=" + std::to_string(entry.entry.user.value_or(0)) + ":" +
                       json_of_fields(entry.entry.fields).substr(0, 20) + "\n";
  });
  return content;
}

// What is noted is acknowledged when it is on the disk, where it is 50 ms later at the most if the disk takes it; what
// was noted with it may be there or not, in its order.
bool is_between(const std::string& found, const std::string& before, const std::string& after) {
  return found.starts_with(before) && after.starts_with(found) && (found.empty() || found.ends_with('\n'));
}

// The story and what it has acknowledged. An enrollment is a bind(), an import is a set() of several.
class Story {
 public:
  Story() : recorder_(directory_.path()) {}

  struct Step {
    std::size_t operations;  // that were done when it was acknowledged
    Content content;         // that is stored from then on
  };

  const std::vector<DiskOperation>& operations() const { return recorder_.operations(); }
  const std::vector<Step>& steps() const { return steps_; }

  void tell() {
    open_all();
    for (int i = 0; i < 6; ++i) {
      append("a record " + std::to_string(i));
    }
    use_users(100);
    use_journal(10);
    use_settings(500);
    append(std::string(20'000, 'x'));
    checkpoint();
    for (int i = 0; i < 6; ++i) {
      append("one after the checkpoint " + std::to_string(i));
    }
    use_users(200);
    use_journal(20);
    use_settings(600);
    close_all();
    open_all();
    append("one after the start");
    remove_oldest();
    use_users(300);
    use_journal(30);
    use_settings(700);
    checkpoint();
    append("the last");
    use_users(400);
    use_settings(800);
    take_documents();
    close_all();
  }

 private:
  void acknowledge(const std::function<void()>& step) {
    step();
    const std::size_t operations = recorder_.operations().size();
    steps_.push_back({.operations = operations, .content = stored(directory_.path())});
  }

  void open_all() {
    acknowledge([this] { log_.emplace(directory_.path()); });
    acknowledge([this] { users_.emplace(directory_.path(), UserStore::Access::read_write); });
    acknowledge([this] { settings_.emplace(directory_.path(), SettingsStore::Access::read_write); });
    acknowledge([this] { journal_.emplace(directory_.path()); });
    log_->retain([] { return refhost::AuditRetention{.keep = 5, .youngest_to_go = 0}; });
  }

  void close_all() {
    acknowledge([this] { log_.reset(); });
    acknowledge([this] { users_.reset(); });
    acknowledge([this] { settings_.reset(); });
    acknowledge([this] { journal_.reset(); });
  }

  void append(const std::string& details) {
    acknowledge([&] { log_->append({"now", 1, details}); });
  }

  void use_users(std::uint64_t number) {
    const auto user = static_cast<std::int64_t>(number);
    acknowledge([&] { users_->put({.id = user, .name = "Ana"}); });
    acknowledge([&] { users_->bind(number, user, "r"); });
    acknowledge([&] { users_->bind(number + 1, user + 1, ""); });
    acknowledge([&] { users_->remove_card(number); });
    acknowledge([&] { users_->remove_user(user + 1); });
    acknowledge([&] { users_->bind(number + 2, user, "another"); });
    acknowledge([&] { users_->change_user({.id = user, .blocked = true}, UserStore::Which::there); });
    acknowledge([&] { import(number); });
  }

  // Enough for many pages.
  void import(std::uint64_t number) {
    users_->change_all([number](const People& stored) {
      PeopleChange change{.cards_removed = {number + 2}, .users_removed = {}, .users = stored.users, .cards = {}};
      for (std::uint64_t i = 0; i < 50; ++i) {
        const std::uint64_t id = number + 10 + i;
        change.users.push_back({.id = static_cast<std::int64_t>(id), .name = std::string(100, 'x'), .until = 5});
        change.cards.push_back({.value = id, .user = static_cast<std::int64_t>(id), .registration = "import"});
      }
      return change;
    });
  }

  // One after the other, several at once, and more than a page.
  void use_journal(std::int64_t number) {
    const auto note = [&](int count, const std::string& text) {
      acknowledge([&] {
        const auto before = journal_->stored();
        for (int i = 0; i < count; ++i) {
          journal_->note({.kind = Kind::opening, .user = number + i, .fields = {{"text", text}}});
        }
        while (journal_->stored() < before + count) {
          journal_->wait_beyond(before + count - 1, std::chrono::seconds(1));
        }
      });
    };
    note(1, "a");
    note(1, "b");
    note(5, "several");
    note(3, std::string(4000, 'x'));
  }

  void use_settings(int number) {
    acknowledge([&] { settings_->set("uhf", "read_interval", std::to_string(number)); });
    acknowledge([&] {
      settings_->set({{"uhf", "read_interval", std::to_string(number + 1)},
                      {"uhf", "read_interval_diff_tags", std::to_string(number + 2)},
                      {"host", "enroll_timeout", std::to_string(1000 + number)}});
    });
  }

  // Users and settings, which are in two files, as a whole.
  void take_documents() {
    DesiredState state(*users_, access_to(*settings_));
    for (int revision = 1; revision <= 6; ++revision) {
      const auto text = std::to_string(revision);
      DesiredReader reader("a document", DesiredReader::Form::whole);
      reader.take("{\"setting\": \"uhf.read_interval\", \"value\": \"90" + text + "\"}\n");
      for (int user = revision; user < 50; user += 2) {
        reader.take("{\"user\": " + std::to_string(user) + ", \"name\": \"" + std::string(100, 'y') + text +
                    "\", \"cards\": [" + std::to_string(1000 + user) + "]}\n");
      }
      const auto document = std::move(reader).result();
      acknowledge([&] { state.take(document, revision, std::nullopt); });
    }
  }

  // What it has done counts once a later transaction is on the disk.
  void remove_oldest() {
    acknowledge([this] {
      while (log_->tidy()) {
      }
      SQLite::Database(directory_.path() / "audit.db", SQLite::OPEN_READWRITE).exec("PRAGMA wal_checkpoint(RESTART)");
    });
  }

  // As SQLite does by itself, after a thousand pages.
  void checkpoint() {
    for (const char* file : {"audit.db", "users.db", "settings.db", "journal.db"}) {
      acknowledge([&] {
        SQLite::Database(directory_.path() / file, SQLite::OPEN_READWRITE).exec("PRAGMA wal_checkpoint(RESTART)");
      });
    }
  }

  TemporaryDirectory directory_;
  DiskRecorder recorder_;
  std::optional<AuditLog> log_;
  std::optional<UserStore> users_;
  std::optional<SettingsStore> settings_;
  std::optional<Journal> journal_;
  std::vector<Step> steps_;
};

// What is wrong with what the stores make of a state, where it should be one of two.
std::vector<std::string> faults_of(const std::filesystem::path& directory, const Content& before,
                                   const Content& after) {
  std::vector<std::string> faults;
  try {
    {
      const AuditLog log(directory);
      UserStore users(directory, UserStore::Access::read_write);
      SettingsStore settings(directory, SettingsStore::Access::read_write);
      DesiredState(users, access_to(settings)).put_back();
      const Journal journal(directory);
      for (const auto& found : {log.faults(), users.faults(), settings.faults(), journal.faults()}) {
        faults.insert(faults.end(), found.begin(), found.end());
      }
    }
    for (const auto& report : {AuditLog::inspect(directory), UserStore::inspect(directory),
                               SettingsStore::inspect(directory), Journal::inspect(directory)}) {
      faults.insert(faults.end(), report.faults.begin(), report.faults.end());
    }
    const auto found = stored(directory);
    for (const auto text : {&Content::records, &Content::users, &Content::settings, &Content::together}) {
      if (found.*text != before.*text && found.*text != after.*text) {
        faults.push_back("found \"" + found.*text + "\", not \"" + before.*text + "\" or \"" + after.*text + "\"");
      }
    }
    if (!is_between(found.journal, before.journal, after.journal)) {
      faults.push_back("the journal has\n" + found.journal + "and not between\n" + before.journal + "and\n" +
                       after.journal);
    }
  } catch (const std::exception& failure) {
    faults.emplace_back(failure.what());
  }
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().string().find(".damaged") != std::string::npos) {
      faults.push_back("kept aside: " + entry.path().filename().string());
    }
  }
  return faults;
}

// In memory where that is possible: the disk is not what is tested.
std::filesystem::path place_of_states() {
  struct stat status {};
  std::string name =
      (stat("/dev/shm", &status) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/crash-XXXXXX";
  return mkdtemp(name.data());
}

class Crash : public testing::Test {
 protected:
  Crash() {
    refhost::log::set_threshold(refhost::log::Level::off);
    story_.tell();
  }
  ~Crash() override {
    refhost::log::set_threshold(refhost::log::Level::warning);
    std::filesystem::remove_all(place_);
  }

  // The faults of the state that this number makes.
  std::vector<std::string> faults(unsigned number, Syncs syncs) {
    std::mt19937 random(number);
    const auto& steps = story_.steps();
    const std::size_t count = random() % (story_.operations().size() + 1);
    for (const auto& entry : std::filesystem::directory_iterator(place_)) {
      std::filesystem::remove(entry.path());
    }
    for (const auto& [name, content] : crash_state(story_.operations(), count, random, syncs)) {
      std::ofstream(place_ / name, std::ios::binary) << content;
    }
    std::size_t acknowledged = 0;
    while (acknowledged < steps.size() && steps[acknowledged].operations <= count) {
      ++acknowledged;
    }
    const Content nothing;
    return faults_of(place_, acknowledged == 0 ? nothing : steps[acknowledged - 1].content,
                     steps[std::min(acknowledged, steps.size() - 1)].content);
  }

  const Story& story() const { return story_; }

 private:
  Story story_;
  const std::filesystem::path place_ = place_of_states();
};

unsigned number_of(const char* variable, unsigned usual) {
  const char* const wanted = std::getenv(variable);
  return wanted == nullptr ? usual : static_cast<unsigned>(std::atoi(wanted));
}

TEST_F(Crash, AtAnyMomentLeavesWhatWasAcknowledgedAndNoFalseAlarm) {
  const unsigned states = number_of("CRASH_STATES", USUAL_STATES);
  const unsigned seed = number_of("CRASH_SEED", 1);
  unsigned bad = 0;
  for (unsigned i = 0; i < states && bad < 5; ++i) {
    const auto found = faults(seed + i, Syncs::kept);
    bad += found.empty() ? 0 : 1;
    EXPECT_THAT(found, testing::IsEmpty()) << "CRASH_SEED=" << seed + i << " CRASH_STATES=1";
  }
  std::cout << states << " states after a power failure from seed " << seed << " on, of a story of "
            << story().operations().size() << " operations and " << story().steps().size() << " acknowledgements\n";
}

// The same with a disk that does not do what it is told: it must show.
TEST_F(Crash, OfADiskThatIgnoresSyncsLosesWhatWasAcknowledged) {
  constexpr unsigned kStates = 100;
  unsigned caught = 0;
  for (unsigned i = 0; i < kStates; ++i) {
    caught += faults(i, Syncs::ignored).empty() ? 0 : 1;
  }
  EXPECT_GT(caught, kStates / 2);
  std::cout << caught << " of " << kStates << " states of a disk that ignores syncs are caught\n";
}

}  // namespace
}  // namespace achost::test
