// The plug-in and the model of its rules in random stories: each announcement is expected, and none is left out.
//
// The environment variables STORIES and STORY_SEED give their number and the seed of the first.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "reading_story.h"

using namespace reading_story;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using Random = std::mt19937_64;

namespace {

template <typename Values>
auto one_of(Random& random, const Values& values) {
  return *(std::begin(values) + static_cast<std::ptrdiff_t>(random() % std::size(values)));
}

std::int64_t value_of(Random& random, int setting) {
  switch (static_cast<why::Setting>(setting)) {
    case why::Setting::kOperationMode:
      return static_cast<std::int64_t>(random() % kModes.size());
    case why::Setting::kTrigIdle:
      return one_of(random, std::array{0, 1, 7});
    case why::Setting::kTriggerTimeout:
      return one_of(random, std::array{-1, 0, 1, 100, 250, 1000});
    case why::Setting::kReadInterval:
      return one_of(random, std::array{-50, 0, 100, 249, 250, 251, 300, 1000});
    case why::Setting::kReadIntervalDiffTags:
      return one_of(random, std::array{0, 50, 99, 100, 101, 250, 400, 1000});
  }
  return 0;
}

Start some_start(Random& random) {
  Start start;
  start.clock =
      one_of(random, std::array<nanoseconds, 3>{std::chrono::hours(1000), milliseconds(50), milliseconds(900)});
  for (int setting = 0; setting < 5; ++setting) {
    start.settings[static_cast<std::size_t>(setting)] = value_of(random, setting);
  }
  start.level = static_cast<int>(random() % 3);
  start.read_before =
      one_of(random, std::array<nanoseconds, 4>{nanoseconds(0), nanoseconds(0), nanoseconds(1), milliseconds(5)});
  return start;
}

// Until a time at which something ends, or an instant or a millisecond beside it; else some milliseconds.
std::int64_t some_time(Random& random, const View& view) {
  constexpr std::array kBeside{0, 0, 1, -1, 1'000'000, -1'000'000};
  if (!view.marks.empty() && random() % 2 == 0) {
    const auto until = one_of(random, view.marks) - view.now + nanoseconds(one_of(random, kBeside));
    if (until.count() >= 0) {
      return until.count();
    }
  }
  return one_of(random, std::array{0, 0, 1, 10, 30, 50, 99, 100, 150, 249, 250, 1000}) * 1'000'000LL;
}

// Mostly one, as several that are expected leave the choice to the plug-in.
int some_tags(Random& random) {
  return static_cast<int>(random() % 4 == 0 ? random() % (1U << kTags.size()) : 1U << random() % kTags.size());
}

Step some_step(Random& random, const View& view) {
  const auto what = static_cast<int>(random() % 5);
  const auto kind = random() % 40;
  if (kind < 14) {
    return {kind == 0 ? Kind::kMissedPass : Kind::kPass, some_tags(random), some_time(random, view)};
  }
  if (kind < 28) {
    return {Kind::kRound};
  }
  switch (kind) {
    case 28:
    case 29:
    case 30:
      return {Kind::kInput, 0, static_cast<std::int64_t>(random() % 3)};
    case 31:
      return {Kind::kAnswer, 0, static_cast<std::int64_t>(random() % 4) - 1};
    case 32:
      return {Kind::kNotify, 0, static_cast<std::int64_t>(random() % 3)};
    case 33:
      return {Kind::kStore, what, value_of(random, what)};
    case 34:
      return {Kind::kTake, what};
    case 35:
      return random() % 12 == 0 ? Step{Kind::kLoseMode} : Step{Kind::kTake};
    case 36:
      return {Kind::kBits, 0, one_of(random, std::array{0, 16, 24, 32, 64, 96})};
    case 37:
      return {Kind::kType, 0, static_cast<std::int64_t>(random() % kReaderTypes.size())};
    default:
      return {Kind::kTime, 0, some_time(random, view)};
  }
}

// The steps without which nothing disagrees any more.
std::vector<Step> least(std::vector<Step> steps, const std::function<bool(const std::vector<Step>&)>& fails) {
  for (auto size = steps.size() / 2; size > 0; size /= 2) {
    for (std::size_t at = 0; at + size <= steps.size();) {
      auto fewer = steps;
      fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(at),
                  fewer.begin() + static_cast<std::ptrdiff_t>(at + size));
      if (fails(fewer)) {
        steps = std::move(fewer);
      } else {
        at += size;
      }
    }
  }
  return steps;
}

std::uint64_t number_from(const char* name, std::uint64_t usual) {
  const char* const given = std::getenv(name);
  return given == nullptr ? usual : std::stoull(given);
}

// Tells the story of a seed; on a disagreement, the least story that still has one.
void tell(std::uint64_t seed, Telling telling, Count& count) {
  constexpr std::size_t kLength = 80;
  Random random(seed);
  auto start = some_start(random);
  if (telling == Telling::kBesideADoor) {
    start.read_before = nanoseconds(0);  // nobody was there
  }
  std::vector<Step> steps;
  const auto failure = play(
      start,
      [&](const View& view) -> std::optional<Step> {
        if (steps.size() == kLength) {
          return std::nullopt;
        }
        steps.push_back(some_step(random, view));
        return steps.back();
      },
      count, telling, seed);
  if (failure.empty()) {
    return;
  }
  const auto again = [&](const std::vector<Step>& fewer) { return play(start, fewer, telling, seed); };
  const auto shortest = least(steps, [&](const auto& fewer) { return !again(fewer).empty(); });
  FAIL() << "STORY_SEED=" << seed << ": " << failure << "\nthe shortest story: " << again(shortest) << '\n'
         << text_of(start, shortest);
}

Count tell_all(Telling telling) {
  const auto first = number_from("STORY_SEED", 1);
  const auto stories = number_from("STORIES", USUAL_STORIES);
  Count count;
  for (auto seed = first; seed < first + stories && !testing::Test::HasFailure(); ++seed) {
    tell(seed, telling, count);
  }
  std::cout << stories << " stories: " << count.rounds << " rounds, " << count.announced << " announced, "
            << count.chosen << " of several, " << count.at_boundary << " at a boundary\n";
  for (const auto& [reason, times] : count.refused) {
    std::cout << "  " << why::row_of(reason).name << ' ' << times << '\n';
  }
  return count;
}

}  // namespace

TEST(SuppressionStories, EachAnnouncementIsExpectedAndNoOtherIsMade) {
  const auto count = tell_all(Telling::kExactly);
  EXPECT_GT(count.announced, count.rounds / 100) << "stories in which something happens";
  EXPECT_GT(count.chosen, 0U);
  for (const auto& row : why::kReasons) {
    // The model always knows the settings; only a recording may lack them.
    const bool is_of_the_model = row.stage == why::Stage::kRules && row.reason != why::Reason::kUnexplained &&
                                 row.reason != why::Reason::kSettingsUnknown;
    EXPECT_EQ(count.refused.contains(row.reason), is_of_the_model) << row.name;
  }
}

TEST(SuppressionStories, TimesThatAreOffByAMillisecondMatterAtABoundaryOnly) {
  const auto count = tell_all(Telling::kNearly);
  EXPECT_GT(count.at_boundary, 0U);
  EXPECT_LT(count.at_boundary, count.rounds / 20) << "most rounds are far from one";
}

TEST(SuppressionStories, ToldFromAfarTheSecondOpinionIsAnotherOneAtABoundaryOnly) {
  const auto count = tell_all(Telling::kFromAfar);
  EXPECT_GT(count.announced, 0U);
  EXPECT_LT(count.at_boundary, count.rounds / 20) << "most rounds are far from one";
}

TEST(SuppressionStories, BesideADoorTheWitnessNeverDisagrees) {
  const auto count = tell_all(Telling::kBesideADoor);
  EXPECT_GT(count.announced, count.rounds / 100) << "stories in which something happens";
}
