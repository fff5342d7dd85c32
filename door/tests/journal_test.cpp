#include "door/journal/journal.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <mutex>
#include <thread>

#include "door/tests/journal_fixture.h"
#include "refhost/clock.h"
#include "refhost/log.h"

namespace achost::test {
namespace {

using std::chrono::milliseconds;

class JournalTest : public JournalFixture {
 protected:
  SQLite::Database database() const { return {state() / "journal.db", SQLite::OPEN_READWRITE, 30'000}; }
};

const Entry kAlarm = {.kind = Kind::alarm, .fields = {{"name", "disk"}}};

TEST_F(JournalTest, KeepsAllOfAnEntry) {
  const Entry entry = {.kind = Kind::identification,
                       .user = 7,
                       .card = 0xffffffffffffffff,
                       .fields = {{"outcome", "opens"}, {"polls", std::int64_t{-3}}, {"text", "a\"\n\x01 ü"}}};
  const auto before = std::chrono::system_clock::now();
  {
    Journal journal(state());
    EXPECT_TRUE(journal.note(entry));
  }
  const auto found = entries();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].number, 1);
  EXPECT_EQ(found[0].entry, entry);
  const auto wall = std::chrono::duration_cast<milliseconds>(before.time_since_epoch()).count();
  EXPECT_GE(found[0].time.wall, wall);
  EXPECT_LE(found[0].time.wall, wall + 10'000);
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  EXPECT_EQ(found[0].time.offset, localtime_r(&now, &local)->tm_gmtoff);
  EXPECT_EQ(found[0].time.is_trusted, refhost::clock_is_trusted());
  std::string boot = content_of("/proc/sys/kernel/random/boot_id");
  std::erase(boot, '-');
  EXPECT_EQ(found[0].boot + "\n", boot);
}

TEST_F(JournalTest, NumbersFollowEachOtherFromEveryThreadAndOverEveryStart) {
  for (int start = 0; start < 3; ++start) {
    Journal journal(state());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int n = 0; n < 100; ++n) {
          EXPECT_TRUE(journal.note(kAlarm));
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
  }
  const auto found = numbers();
  ASSERT_EQ(found.size(), 1200U);
  EXPECT_EQ(found.front(), 1);
  EXPECT_EQ(found.back(), 1200);
  EXPECT_TRUE(Journal::inspect(state()).faults.empty());
}

TEST_F(JournalTest, WhatAKilledProcessHadNotedIsThereAtTheNextStart) {
  { const Journal makes_the_file(state()); }
  const pid_t child = fork();
  if (child == 0) {
    // Nothing gets to the disk before the kill.
    SQLite::Database lock(state() / "journal.db", SQLite::OPEN_READWRITE);
    Journal journal(state());
    lock.exec("BEGIN IMMEDIATE");
    for (int i = 0; i < 20; ++i) {
      journal.note({.kind = Kind::opening, .user = i});
    }
    kill(getpid(), SIGKILL);
  }
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(entries().empty());
  {
    Journal next(state());
    EXPECT_EQ(next.stored(), 20) << "before anything else";
    next.note(kAlarm);
  }
  const auto found = entries();
  ASSERT_EQ(found.size(), 21U);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(found.at(static_cast<std::size_t>(i)).entry, (Entry{.kind = Kind::opening, .user = i}));
  }
  EXPECT_EQ(found.back().number, 21);
}

TEST_F(JournalTest, AnEntryThatIsOnTheDiskAndInTheSpoolComesOnce) {
  std::filesystem::path spool;
  {
    Journal journal(state());
    journal.note(kAlarm);
    wait_for(journal, 1);
    spool = std::filesystem::directory_iterator(runtime())->path();
    std::filesystem::copy(spool, runtime() / "kept");
  }
  EXPECT_FALSE(std::filesystem::exists(spool)) << "a clean end leaves none";
  // As if the kill had come between the disk and the spool: its position of what is taken is the one before.
  std::fstream file(runtime() / "kept", std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(64);
  const std::uint64_t nothing = 0;
  file.write(reinterpret_cast<const char*>(&nothing), sizeof nothing);
  file.close();
  std::filesystem::rename(runtime() / "kept", spool);
  {
    Journal journal(state());
    EXPECT_TRUE(journal.faults().empty());
    journal.note(kAlarm);
  }
  EXPECT_EQ(numbers(), std::vector<std::int64_t>({1, 2}));
}

TEST_F(JournalTest, NoNumberIsGivenAgainWhenTheEntriesHaveGone) {
  {
    Journal journal(state());
    journal.note(kAlarm);
  }
  database().exec("DELETE FROM entries");
  {
    Journal journal(state());
    journal.note(kAlarm);
  }
  EXPECT_EQ(numbers(), std::vector<std::int64_t>({2}));
}

TEST_F(JournalTest, ALockedFileIsTroubleAtOnceAndNothingIsLost) {
  std::mutex mutex;
  std::vector<std::string> told;
  Journal journal(state());
  journal.on_trouble([&](const std::string& text) {
    const std::lock_guard lock(mutex);
    told.push_back(text);
  });
  {
    auto other = database();
    SQLite::Transaction transaction(other, SQLite::TransactionBehavior::EXCLUSIVE);
    EXPECT_TRUE(journal.note(kAlarm));
    const auto begin = std::chrono::steady_clock::now();
    while (journal.is_writable() && std::chrono::steady_clock::now() - begin < std::chrono::seconds(20)) {
      journal.wait_beyond(0, milliseconds(10));
    }
    EXPECT_FALSE(journal.is_writable());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    journal.look();
    const std::lock_guard lock(mutex);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_THAT(told[0], testing::HasSubstr((state() / "journal.db").string()));
    EXPECT_THAT(told[0], testing::HasSubstr("what happens waits in memory"));
  }
  wait_for(journal, 1);
  journal.look();
  EXPECT_TRUE(journal.is_writable());
  const std::lock_guard lock(mutex);
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told.back(), "");
}

TEST_F(JournalTest, WhatFindsNoRoomIsCountedAndSaid) {
  Journal journal(state());
  std::int64_t kept = 0;
  std::int64_t lost = 0;
  {
    auto other = database();
    SQLite::Transaction transaction(other, SQLite::TransactionBehavior::EXCLUSIVE);
    const Entry large = {.kind = Kind::alarm, .fields = {{"text", std::string(4000, 'x')}}};
    while (lost < 10) {
      ++(journal.note(large) ? kept : lost);
    }
    EXPECT_FALSE(journal.is_writable());
  }
  EXPECT_GT(kept, 200);
  wait_for(journal, kept + 1);
  const auto found = entries({.after = kept});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].entry.kind, Kind::gap);
  EXPECT_EQ(found[0].entry.fields.at(0), EntryField("lost", lost));
}

TEST_F(JournalTest, SightingsLeaveHalfOfTheRoomToTheOthers) {
  Journal journal(state());
  const EntryField text = {"text", std::string(4000, 'x')};
  const auto put_all = [&](Kind kind) {
    std::int64_t kept = 0;
    for (; journal.note({.kind = kind, .fields = {text}}); ++kept) {
    }
    return kept;
  };
  std::int64_t sightings = 0;
  std::int64_t others = 0;
  {
    auto other = database();
    SQLite::Transaction transaction(other, SQLite::TransactionBehavior::EXCLUSIVE);
    sightings = put_all(Kind::sighting);
    EXPECT_FALSE(journal.has_room_for_sightings());
    others = put_all(Kind::opening);
  }
  EXPECT_GT(sightings, 100);
  EXPECT_NEAR(static_cast<double>(sightings), static_cast<double>(others), 2);
  wait_for(journal, sightings + others + 1);
  EXPECT_TRUE(journal.has_room_for_sightings());
  const auto found = entries({.kinds = {Kind::gap}});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].entry.fields.at(0), EntryField("lost", std::int64_t{2})) << "one of each";
}

TEST_F(JournalTest, SightingsThatFindNoRoomAreNotTheTrouble) {
  Journal journal(state());
  std::string told;
  journal.on_trouble([&](const std::string& text) { told += text; });
  {
    auto other = database();
    SQLite::Transaction transaction(other, SQLite::TransactionBehavior::EXCLUSIVE);
    while (journal.note({.kind = Kind::sighting, .fields = {{"text", std::string(4000, 'x')}}})) {
    }
    while (journal.is_writable()) {
      journal.wait_beyond(0, milliseconds(10));
    }
    journal.look();
  }
  journal.seal();
  EXPECT_THAT(told, testing::HasSubstr("what happens waits in memory"));
  EXPECT_THAT(told, testing::Not(testing::HasSubstr("lost")));
}

TEST_F(JournalTest, TheOldestGoBeyondTheNumberAndAnEntrySaysWhich) {
  {
    Journal journal(state());
    for (int i = 0; i < 2500; ++i) {
      journal.note(kAlarm);
      if (i % 1000 == 0) {
        wait_for(journal, i + 1);
      }
    }
  }
  {
    Journal journal(state());
    journal.retain([] { return JournalRetention{.keep = 1000, .oldest = 0}; });
    for (int i = 0; i < 600; ++i) {
      journal.note(kAlarm);
    }
    wait_for(journal, 3101);  // the one that says it
  }
  const auto all = entries();
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.back().number - all.front().number + 1, static_cast<std::int64_t>(all.size())) << "no hole";
  EXPECT_LE(all.size(), 1101U);
  EXPECT_GE(all.size(), 1000U);
  const auto said = entries({.kinds = {Kind::retention}});
  ASSERT_EQ(said.size(), 1U);
  EXPECT_EQ(said[0].entry.fields,
            std::vector<EntryField>({{"first", std::int64_t{1}}, {"last", all.front().number - 1}}));
  EXPECT_TRUE(Journal::inspect(state()).faults.empty());
}

TEST_F(JournalTest, WhatIsTooOldGoesOnlyByAClockThatIsRight) {
  constexpr auto kFuture = std::numeric_limits<std::int64_t>::max();
  std::atomic<bool> knows_ages = false;
  Journal journal(state());
  journal.retain([&] { return JournalRetention{.keep = 0, .oldest = kFuture, .knows_ages = knows_ages}; });
  for (int i = 0; i < 1000; ++i) {
    journal.note(kAlarm);
  }
  wait_for(journal, 1000);
  for (int i = 0; i < 500; ++i) {
    journal.note(kAlarm);
  }
  wait_for(journal, 1500);
  EXPECT_EQ(numbers().front(), 1);
  knows_ages = true;
  for (int i = 0; i < 500; ++i) {
    journal.note(kAlarm);
  }
  wait_for(journal, 2001);
  EXPECT_GE(numbers().front(), 2000);
}

TEST_F(JournalTest, KnowsARunThatHadNoEnd) {
  const auto was_unended = [&](const std::vector<Kind>& kinds) {
    Journal journal(state());
    for (const auto kind : kinds) {
      journal.note({.kind = kind});
    }
    return journal.found_unended_run();
  };
  EXPECT_FALSE(was_unended({Kind::start, Kind::alarm, Kind::end}));
  EXPECT_FALSE(was_unended({Kind::start, Kind::alarm}));
  EXPECT_TRUE(was_unended({Kind::alarm})) << "as of a command between two runs";
  EXPECT_TRUE(was_unended({Kind::start, Kind::end}));
  EXPECT_FALSE(was_unended({}));
}

TEST_F(JournalTest, AnEntryThatWasChangedOrTakenOutShows) {
  {
    Journal journal(state());
    for (int i = 0; i < 10; ++i) {
      journal.note(kAlarm);
    }
  }
  EXPECT_EQ(Journal::inspect(state()).content, "10 entries, numbers 1 to 10");
  database().exec("UPDATE entries SET user = 8 WHERE number = 3; DELETE FROM entries WHERE number IN (5, 10)");
  EXPECT_THAT(Journal::inspect(state()).faults,
              testing::ElementsAre("entry 3 is not as it was written: its checksum is wrong", "entry 5 is missing",
                                   "entry 10 is missing"));
  refhost::log::set_threshold(refhost::log::Level::off);
  EXPECT_EQ(Journal(state()).faults().size(), 3U) << "a start tells too";
  refhost::log::set_threshold(refhost::log::Level::warning);
}

TEST_F(JournalTest, FindsEntriesByEachOfTheirSides) {
  {
    Journal journal(state());
    for (int i = 1; i <= 1200; ++i) {
      Entry entry = {.kind = i % 2 == 0 ? Kind::opening : Kind::identification};
      if (i % 3 == 0) {
        entry.user = i % 5;
      }
      if (i % 4 == 0) {
        entry.card = static_cast<std::uint64_t>(i % 7);
      }
      journal.note(entry);
    }
  }
  database().exec("UPDATE entries SET at = number * 1000");
  const auto expect = [&](const JournalQuery& query, const std::function<bool(std::int64_t)>& is_such) {
    std::vector<std::int64_t> expected;
    for (std::int64_t i = 1; i <= 1200; ++i) {
      if (is_such(i)) {
        expected.push_back(i);
      }
    }
    if (query.last.has_value() && static_cast<std::int64_t>(expected.size()) > *query.last) {
      expected.erase(expected.begin(), expected.end() - *query.last);
    }
    EXPECT_EQ(numbers(query), expected);
  };
  expect({}, [](auto) { return true; });
  expect({.kinds = {Kind::opening}}, [](auto i) { return i % 2 == 0; });
  expect({.kinds = {Kind::opening, Kind::identification}}, [](auto) { return true; });
  expect({.kinds = {Kind::alarm}}, [](auto) { return false; });
  expect({.user = 2}, [](auto i) { return i % 3 == 0 && i % 5 == 2; });
  expect({.card = 6}, [](auto i) { return i % 4 == 0 && i % 7 == 6; });
  expect({.user = 2, .card = 6}, [](auto i) { return i % 12 == 0 && i % 5 == 2 && i % 7 == 6; });
  expect({.since = 700'000}, [](auto i) { return i >= 700; });
  expect({.since = 2'000'000}, [](auto) { return false; });
  expect({.until = 700'000}, [](auto i) { return i < 700; });
  expect({.until = 0}, [](auto) { return false; });
  expect({.since = 100'000, .until = 700'000}, [](auto i) { return i >= 100 && i < 700; });
  expect({.after = 600}, [](auto i) { return i > 600; });
  expect({.after = 1200}, [](auto) { return false; });
  expect({.last = 10}, [](auto) { return true; });
  expect({.last = 0}, [](auto) { return false; });
  expect({.last = 10'000}, [](auto) { return true; });
  expect({.kinds = {Kind::opening}, .last = 3}, [](auto i) { return i % 2 == 0; });
  expect({.user = 2, .since = 100'000, .until = 700'000, .last = 5},
         [](auto i) { return i % 3 == 0 && i % 5 == 2 && i >= 100 && i < 700; });
  expect({.until = 500'000, .last = 5}, [](auto i) { return i < 500; });
  expect({.until = 500'000, .after = 498, .last = 5}, [](auto i) { return i < 500 && i > 498; });
}

TEST_F(JournalTest, ATimeIsFoundAlsoWhereTheClockWasSetBack) {
  {
    Journal journal(state());
    for (int i = 0; i < 6; ++i) {
      journal.note(kAlarm);
    }
  }
  database().exec("UPDATE entries SET at = CASE WHEN number <= 3 THEN 1000 + number ELSE number END");
  EXPECT_EQ(numbers({.since = 1000}), std::vector<std::int64_t>({1, 2, 3}));
  EXPECT_EQ(numbers({.until = 1000}), std::vector<std::int64_t>({4, 5, 6}));
}

TEST_F(JournalTest, TellsHowFarItLookedSoThatTheNextQuestionBeginsThere) {
  Journal journal(state());
  journal.note(kAlarm);
  wait_for(journal, 1);
  const auto nothing = [](const JournalEntry&) {};
  EXPECT_EQ(Journal::read(state(), {.kinds = {Kind::opening}}, nothing), 1);
  EXPECT_EQ(Journal::read(state(), {.after = 1}, nothing), 1);
  EXPECT_EQ(Journal::read(state() / "none", {.after = 5}, nothing), 5);
}

TEST_F(JournalTest, AReaderWhoTakesHisTimeSeesWhatWasThereWhenHeBegan) {
  Journal journal(state());
  for (int i = 0; i < 1100; ++i) {
    journal.note(kAlarm);
  }
  wait_for(journal, 1100);
  std::vector<std::int64_t> seen;
  Journal::read(state(), {}, [&](const JournalEntry& entry) {
    if (seen.empty()) {
      journal.note(kAlarm);
      wait_for(journal, 1101);
    }
    seen.push_back(entry.number);
  });
  EXPECT_EQ(seen.size(), 1100U);
}

TEST_F(JournalTest, IsReadInPartsThatEndWhereTheFirstWouldHaveEnded) {
  Journal journal(state());
  for (int i = 0; i < 20; ++i) {
    journal.note(i % 2 == 0 ? kAlarm : Entry{.kind = Kind::closing});
  }
  wait_for(journal, 20);
  std::vector<std::int64_t> seen;
  JournalQuery query{.kinds = {kAlarm.kind}, .since = 0, .last = 6};
  for (JournalReach reach{.after = 0, .to = 1}; reach.after < reach.to;
       query.after = reach.after, query.to = reach.to) {
    int left = 4;
    reach = Journal::read_part(state(), query, [&](const JournalEntry& entry) {
      seen.push_back(entry.number);
      return --left > 0;
    });
    journal.note(kAlarm);
    wait_for(journal, 21);
    query.last.reset();
  }
  EXPECT_EQ(seen, std::vector<std::int64_t>({9, 11, 13, 15, 17, 19}));
}

TEST_F(JournalTest, AfterItsEndAnEntryIsRefused) {
  Journal journal(state());
  journal.seal();
  EXPECT_FALSE(journal.note(kAlarm));
}

}  // namespace
}  // namespace achost::test
