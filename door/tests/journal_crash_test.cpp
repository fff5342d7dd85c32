// Power failures while several threads note in the journal: what it had in memory is gone, and of what it wrote what
// was not synced. What was noted more than 50 ms before is there.
//
// The environment variable POWER_CUTS gives how many; without it, what a busy machine takes is allowed too.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

#include "door/journal/journal.h"
#include "door/tests/disk_recorder.h"
#include "door/tests/journal_fixture.h"
#include "refhost/log.h"

namespace achost::test {
namespace {

using NoteClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kNoters = 4;
constexpr milliseconds kLife(700);        // of a journal in the story, which has three
constexpr milliseconds kSync(5);          // what the disk takes
constexpr milliseconds kLongestPause(4);  // of who notes
constexpr std::int64_t kNotesKept = 1500;
constexpr milliseconds kPromised(50);
constexpr milliseconds kOnABusyMachine(1000);
constexpr int kCutsOfAStory = 100;
constexpr const char* kNoter = "noter";
constexpr const char* kCount = "count";

// When each noter's first, second, … note() had returned.
using NoteTimes = std::array<std::vector<NoteClock::time_point>, kNoters>;

// What the threads note while journals come and go, and what reaches the disk.
class NotingStory {
 public:
  explicit NotingStory(unsigned seed) : seed_(seed) {
    for (unsigned life = 0; life < 3; ++life) {
      live(life);
    }
  }

  const NoteTimes& times() const { return times_; }

  // Of an instant of the story: how much had been done by then.
  struct Cut {
    NoteClock::time_point at;
    std::size_t operations;
  };
  Cut cut(std::mt19937& random) const {
    const auto& all = recorder_.operations();
    const auto length = all.back().at - all.front().at;
    const auto at = all.front().at + std::chrono::nanoseconds(static_cast<std::int64_t>(
                                         std::uniform_real_distribution(0.0, 1.0)(random) *
                                         static_cast<double>(std::chrono::nanoseconds(length).count())));
    const auto done = std::ranges::upper_bound(all, at, {}, &DiskOperation::at);
    return {.at = at, .operations = static_cast<std::size_t>(done - all.begin())};
  }

  std::map<std::string, std::string> files_after(const Cut& cut, std::mt19937& random, Syncs syncs) const {
    return crash_state(recorder_.operations(), cut.operations, random, syncs);
  }

 private:
  void live(unsigned life) {
    Journal journal(directory_.path());
    journal.retain([] { return JournalRetention{.keep = kNotesKept}; });
    const auto end = NoteClock::now() + kLife;
    std::vector<std::jthread> threads;
    for (std::size_t noter = 0; noter < kNoters; ++noter) {
      threads.emplace_back([&, noter, random = std::mt19937(seed_ * 100 + life * 10 + unsigned(noter))]() mutable {
        while (NoteClock::now() < end) {
          note(journal, noter);
          std::this_thread::sleep_for(
              std::chrono::microseconds(random() % (kLongestPause / std::chrono::microseconds(1))));
        }
      });
    }
  }

  void note(Journal& journal, std::size_t noter) {
    auto& times = times_[noter];
    const bool is_noted = journal.note(
        {.kind = Kind::identification,
         .card = 33,
         .fields = {{kNoter, static_cast<std::int64_t>(noter)}, {kCount, static_cast<std::int64_t>(times.size())}}});
    if (!is_noted) {
      throw std::runtime_error("the spool is full");
    }
    times.push_back(NoteClock::now());
  }

  const unsigned seed_;
  const refhost::test::TemporaryDirectory directory_;
  const DiskRecorder recorder_{directory_.path(), kSync};
  NoteTimes times_;  // each noter has its own; read when they have ended
};

std::int64_t number_of_field(const Entry& entry, std::string_view name) {
  const auto found = std::ranges::find(entry.fields, name, &EntryField::first);
  return found == entry.fields.end() ? -1 : std::get<std::int64_t>(found->second);
}

// What a journal makes of the files that a power failure has left.
class AfterThePowerFailure {
 public:
  AfterThePowerFailure(const NotingStory& story, const NotingStory::Cut& cut,
                       const std::map<std::string, std::string>& files)
      : story_(story), cut_(cut) {
    for (const auto& [name, content] : files) {
      std::ofstream(directory_.path() / name, std::ios::binary) << content;
    }
    try {
      {
        const Journal journal(directory_.path());
        faults_ = journal.faults();
      }
      std::ranges::copy(Journal::inspect(directory_.path()).faults, std::back_inserter(faults_));
      read();
    } catch (const std::exception& failure) {
      faults_.emplace_back(failure.what());
    }
  }

  // What is wrong with it, but for what is lost: damage, a hole, what nobody had noted.
  const std::vector<std::string>& faults() const { return faults_; }

  // How long before the power failure the oldest note that is lost was made; none is lost: nothing.
  std::optional<milliseconds> oldest_lost() const {
    std::optional<milliseconds> oldest;
    for (std::size_t noter = 0; noter < kNoters; ++noter) {
      const auto& times = story_.times()[noter];
      const auto next = static_cast<std::size_t>(next_[noter]);
      if (next < times.size() && times[next] <= cut_.at) {
        oldest =
            std::max(oldest.value_or(milliseconds(0)), std::chrono::duration_cast<milliseconds>(cut_.at - times[next]));
      }
    }
    return oldest;
  }

 private:
  void read() {
    std::int64_t first = 0;
    std::array<bool, kNoters> has_begun{};
    Journal::read(directory_.path(), {.kinds = {Kind::identification}}, [&](const JournalEntry& entry) {
      first = first == 0 ? entry.number : first;
      const auto noter = static_cast<std::size_t>(number_of_field(entry.entry, kNoter));
      const auto count = number_of_field(entry.entry, kCount);
      const bool is_first = !std::exchange(has_begun.at(noter), true);
      const bool may_begin_there = count == 0 || first > 1;  // those before it have gone in their time
      if (is_first ? !may_begin_there : count != next_[noter]) {
        faults_.push_back("note " + std::to_string(count) + " of " + std::to_string(noter) + ", not " +
                          std::to_string(next_[noter]));
      }
      next_[noter] = count + 1;
    });
  }

  const NotingStory& story_;
  const NotingStory::Cut cut_;
  const refhost::test::TemporaryDirectory directory_;
  std::vector<std::string> faults_;
  std::array<std::int64_t, kNoters> next_{};  // behind the last that is there
};

class JournalCrash : public JournalFixture {
 protected:
  JournalCrash() { refhost::log::set_threshold(refhost::log::Level::off); }
  ~JournalCrash() override { refhost::log::set_threshold(refhost::log::Level::warning); }
};

TEST_F(JournalCrash, LosesNothingThatWasNotedMoreThan50MillisecondsBefore) {
  const char* const wanted = std::getenv("POWER_CUTS");
  const int cuts = wanted == nullptr ? USUAL_CUTS : std::atoi(wanted);
  const auto allowed = wanted == nullptr ? kOnABusyMachine : kPromised;
  std::mt19937 random(1);
  std::optional<NotingStory> story;
  std::size_t notes = 0;
  int losing = 0;
  milliseconds oldest(0);
  for (int i = 0; i < cuts; ++i) {
    if (i % kCutsOfAStory == 0) {
      story.reset();
      story.emplace(static_cast<unsigned>(i));
      for (const auto& times : story->times()) {
        notes += times.size();
      }
    }
    const auto cut = story->cut(random);
    const AfterThePowerFailure found(*story, cut, story->files_after(cut, random, Syncs::kept));
    ASSERT_THAT(found.faults(), testing::IsEmpty()) << "cut " << i;
    const auto lost = found.oldest_lost();
    losing += lost.has_value() ? 1 : 0;
    oldest = std::max(oldest, lost.value_or(milliseconds(0)));
    ASSERT_LE(oldest, allowed) << "cut " << i;
  }
  std::cout << cuts << " power cuts while " << notes << " entries were noted: " << losing
            << " took what was just noted, the oldest of it " << oldest.count() << " ms old\n";
  EXPECT_GT(losing, 0) << "else nothing was cut";
}

// The same with a disk that does not do what it is told: it must show.
TEST_F(JournalCrash, OfADiskThatIgnoresSyncsLosesMore) {
  constexpr int kCuts = 50;
  const NotingStory story(1);
  std::mt19937 random(1);
  int caught = 0;
  for (int i = 0; i < kCuts; ++i) {
    const auto cut = story.cut(random);
    const AfterThePowerFailure found(story, cut, story.files_after(cut, random, Syncs::ignored));
    caught += !found.faults().empty() || found.oldest_lost() > kOnABusyMachine / 5 ? 1 : 0;
  }
  EXPECT_GT(caught, kCuts / 2);
}

}  // namespace
}  // namespace achost::test
