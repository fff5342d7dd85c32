// What becomes of a journal whose file is damaged.
#include <SQLiteCpp/SQLiteCpp.h>

#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "door/journal/journal.h"
#include "door/tests/journal_fixture.h"
#include "refhost/database.h"
#include "refhost/log.h"

namespace achost::test {
namespace {

using testing::HasSubstr;

constexpr int kEntries = 20'000;
constexpr int kPage = 4096;
const Entry kNews = {.kind = Kind::alarm, .fields = {{"name", "news"}}};

class DamagedJournalTest : public JournalFixture {
 protected:
  DamagedJournalTest() {
    { const Journal makes_the_file(state()); }
    auto database = open();
    database.exec("PRAGMA synchronous = OFF");
    database.exec(
        "INSERT INTO entries SELECT i, 1, i, 0, 0, 1, 0, NULL, NULL, '{}', "
        "row_sum(i, 1, i, 0, 0, 1, 0, NULL, NULL, '{}') FROM (WITH RECURSIVE n(i) AS "
        "(SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(kEntries) + ") SELECT i FROM n); INSERT INTO boots VALUES(1, 'b')");
    database.exec("PRAGMA wal_checkpoint(TRUNCATE)");
    refhost::log::set_threshold(refhost::log::Level::off);
  }
  ~DamagedJournalTest() override { refhost::log::set_threshold(refhost::log::Level::warning); }

  SQLite::Database open() const {
    SQLite::Database database(file(), SQLite::OPEN_READWRITE, 30'000);
    refhost::add_row_sum(database);
    return database;
  }

  std::filesystem::path file() const { return state() / "journal.db"; }

  // Of a page counted from 1.
  void damage(std::int64_t page) const {
    std::fstream(file(), std::ios::in | std::ios::out | std::ios::binary).seekp((page - 1) * kPage)
        << std::string(kPage, 'x');
  }

  // A page that only an examination of all reads.
  void damage_the_middle() const { damage(static_cast<std::int64_t>(std::filesystem::file_size(file()) / kPage / 2)); }

  void damage_index() const {
    damage(SQLite::Database(file())
               .execAndGet("SELECT rootpage FROM sqlite_schema WHERE name = 'entries_by_time'")
               .getInt64());
  }

  std::vector<std::filesystem::path> kept() const {
    std::vector<std::filesystem::path> result;
    for (const auto& entry : std::filesystem::directory_iterator(state())) {
      const auto name = entry.path().string();
      if (name.find(".damaged-") != std::string::npos && !name.ends_with("-wal") && !name.ends_with("-shm")) {
        result.push_back(entry.path());
      }
    }
    return result;
  }
  // The file is kept, and the new one holds a gap of that number that says so and what came after.
  void expect_begun_anew(const Journal& journal, std::int64_t gap) const {
    EXPECT_EQ(kept().size(), 1U);
    const auto found = entries({.kinds = {Kind::gap}});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].number, gap);
    ASSERT_EQ(journal.faults().size(), 1U);
    EXPECT_EQ(found[0].entry.fields, std::vector<EntryField>({{"reason", journal.faults()[0]}}));
    EXPECT_THAT(journal.faults()[0], HasSubstr("the journal " + file().string() + " is damaged ("));
  }
};

TEST_F(DamagedJournalTest, ThatIsSoundStaysAsItIs) {
  Journal journal(state());
  EXPECT_TRUE(journal.examine());
  EXPECT_FALSE(journal.examine()) << "once is enough";
  journal.note(kNews);
  wait_for(journal, kEntries + 1);
  EXPECT_TRUE(journal.faults().empty());
  EXPECT_TRUE(kept().empty());
}

TEST_F(DamagedJournalTest, InTheMiddleIsFoundBesideTheWorkAndTheNumbersGoOn) {
  damage_the_middle();
  std::mutex mutex;
  std::vector<std::string> told;
  {
    Journal journal(state());
    journal.on_damage([&](const std::vector<std::string>& faults) {
      const std::lock_guard lock(mutex);
      told = faults;
    });
    journal.note(kNews);
    wait_for(journal, kEntries + 1);
    EXPECT_TRUE(journal.faults().empty()) << "the opening does not read it";
    EXPECT_TRUE(journal.examine());
    wait_for(journal, kEntries + 2);
    journal.note(kNews);
    wait_for(journal, kEntries + 3);
    expect_begun_anew(journal, kEntries + 2);
    const std::lock_guard lock(mutex);
    EXPECT_EQ(told, journal.faults());
  }
  EXPECT_EQ(numbers(), std::vector<std::int64_t>({kEntries + 2, kEntries + 3}));
  EXPECT_TRUE(Journal::inspect(state()).faults.empty());
  Journal next(state());
  EXPECT_TRUE(next.examine());
  EXPECT_TRUE(next.faults().empty());
}

TEST_F(DamagedJournalTest, ThatAnEntryMeetsLosesNoEntry) {
  damage_index();
  Journal journal(state());
  EXPECT_TRUE(journal.faults().empty());
  journal.note(kNews);
  wait_for(journal, kEntries + 2);
  expect_begun_anew(journal, kEntries + 2);
  EXPECT_EQ(numbers(), std::vector<std::int64_t>({kEntries + 1, kEntries + 2}));
  EXPECT_TRUE(journal.examine());
  journal.note(kNews);
  wait_for(journal, kEntries + 3);
  EXPECT_EQ(kept().size(), 1U) << "the new one is whole";
}

TEST_F(DamagedJournalTest, AmongTheLatestEntriesIsFoundAtTheOpening) {
  damage(SQLite::Database(file()).execAndGet("SELECT max(pageno) FROM dbstat WHERE name = 'entries'").getInt64());
  Journal journal(state());
  wait_for(journal, kEntries + 1);
  expect_begun_anew(journal, kEntries + 1);
}

TEST_F(DamagedJournalTest, WhoseNumbersCannotBeReadIsFollowedByGreaterOnes) {
  damage(1);
  { const Journal stores_the_gap_at_its_end(state()); }
  const auto found = entries();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].entry.kind, Kind::gap);
  EXPECT_GT(found[0].number, kEntries);
}

TEST_F(DamagedJournalTest, IsFollowedByGreaterNumbersAlsoAfterACrashBeforeTheNewOneHadAny) {
  { Journal journal(state()); }
  std::filesystem::rename(file(), file().string() + ".damaged-20260101T000000");
  Journal journal(state());
  journal.note(kNews);
  wait_for(journal, kEntries + 1);
  EXPECT_EQ(numbers(), std::vector<std::int64_t>({kEntries + 1}));
}

TEST_F(DamagedJournalTest, IsNoRunThatHasEnded) {
  {
    Journal journal(state());
    journal.note({.kind = Kind::start});
    wait_for(journal, kEntries + 1);
    damage_the_middle();
    journal.examine();
    wait_for(journal, kEntries + 2);
  }
  EXPECT_TRUE(Journal(state()).found_unended_run());
}

TEST_F(DamagedJournalTest, IsNotExaminedAfterItsEnd) {
  damage_the_middle();
  Journal journal(state());
  journal.seal();
  EXPECT_FALSE(journal.examine());
  EXPECT_TRUE(kept().empty());
}

}  // namespace
}  // namespace achost::test
