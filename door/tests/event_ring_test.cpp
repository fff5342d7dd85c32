// The latest messages of the bus as they are kept, numbered.
#include "door/control/event_ring.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "refhost/bus_view.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr milliseconds kAtOnce(0);

// What a message takes in the ring besides its text.
constexpr std::size_t kRest = 16 + 1 + 8 + 4;  // the ring's head, "t", the field's head, "text"

void note(EventRing& ring, const std::string& text) {
  ac::Message message("t");
  message.add_string("text", text);
  ring.note(message);
}

struct Taken {
  std::int64_t number;
  std::string text;
};

// All that there is behind a number, and which numbers are missing: "2-5".
struct All {
  std::vector<Taken> events;
  std::vector<std::string> gaps;
};

All all_behind(EventRing& ring, std::int64_t after) {
  All all;
  EventRing::Part part;
  for (const std::int64_t newest = ring.newest(); after < newest; after = part.last()) {
    ring.take(after, part, kAtOnce);
    if (part.first() > after + 1) {
      all.gaps.push_back(std::to_string(after + 1) + "-" + std::to_string(part.first() - 1));
    }
    part.for_each([&](const EventRing::Event& event) {
      all.events.push_back({event.number, refhost::fields_of(event.fields).at("text")});
    });
  }
  return all;
}

std::vector<std::int64_t> numbers_of(const All& all) {
  std::vector<std::int64_t> numbers;
  for (const auto& event : all.events) {
    numbers.push_back(event.number);
  }
  return numbers;
}

TEST(EventRing, KeepsAMessageAsItWas) {
  EventRing ring;
  ac::Message message("a.type");
  message.add_int("one", -1);
  message.add_int64("two", INT64_MIN);
  message.add_string("three", "\n\xff");
  const auto before = std::chrono::floor<milliseconds>(std::chrono::system_clock::now());
  ring.note(message);
  EventRing::Part part;
  ring.take(0, part, kAtOnce);
  int count = 0;
  part.for_each([&](const EventRing::Event& event) {
    ++count;
    EXPECT_EQ(event.number, 1);
    EXPECT_GE(event.time, before);
    EXPECT_EQ(event.type, "a.type");
    EXPECT_EQ(refhost::fields_of(event.fields), refhost::fields_of(message));
  });
  EXPECT_EQ(count, 1);
}

TEST(EventRing, NumbersRiseByOne) {
  EventRing ring;
  EXPECT_EQ(ring.newest(), 0);
  for (int i = 1; i <= 5; ++i) {
    note(ring, std::to_string(i));
    EXPECT_EQ(ring.newest(), i);
  }
  EXPECT_THAT(numbers_of(all_behind(ring, 0)), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(numbers_of(all_behind(ring, 3)), ElementsAre(4, 5));
  EXPECT_THAT(numbers_of(all_behind(ring, 5)), ElementsAre());
}

TEST(EventRing, EachRunIsAnother) {
  EXPECT_NE(EventRing().run(), EventRing().run());
  EXPECT_FALSE(EventRing().run().empty());
}

TEST(EventRing, KeepsSoManyAndNoMore) {
  EventRing ring;
  constexpr auto kMost = static_cast<std::int64_t>(EventRing::kMostEvents);
  for (int i = 1; i <= kMost; ++i) {
    note(ring, "");
  }
  EXPECT_THAT(all_behind(ring, 0).gaps, ElementsAre());
  EXPECT_EQ(all_behind(ring, 0).events.size(), EventRing::kMostEvents);
  note(ring, "");
  note(ring, "");
  const auto all = all_behind(ring, 0);
  EXPECT_THAT(all.gaps, ElementsAre("1-2"));
  EXPECT_EQ(all.events.size(), EventRing::kMostEvents);
  EXPECT_EQ(all.events.front().number, 3);
  EXPECT_EQ(all.events.back().number, kMost + 2);
  EXPECT_THAT(all_behind(ring, 2).gaps, ElementsAre()) << "nothing is missing behind 2";
}

TEST(EventRing, KeepsSoManyBytesAndNoMore) {
  EventRing ring;
  const std::string text(EventRing::kMostBytes / 16 - kRest, 'x');
  for (int i = 1; i <= 16; ++i) {
    note(ring, text);
  }
  EXPECT_THAT(all_behind(ring, 0).gaps, ElementsAre()) << "it is exactly full";
  note(ring, "");
  EXPECT_THAT(all_behind(ring, 0).gaps, ElementsAre("1-1"));
  note(ring, text);
  EXPECT_THAT(all_behind(ring, 0).gaps, ElementsAre("1-2"));
  EXPECT_EQ(all_behind(ring, 0).events.back().text, text);
}

TEST(EventRing, OneThatIsTooLongHasANumberAndIsMissing) {
  EventRing ring;
  note(ring, "first");
  note(ring, std::string(EventRing::kLongest - kRest + 1, 'x'));
  EXPECT_THAT(all_behind(ring, 1).gaps, ElementsAre("2-2")) << "also while there is nothing behind it";
  note(ring, std::string(EventRing::kLongest - kRest, 'y'));
  note(ring, "last");
  const auto all = all_behind(ring, 0);
  EXPECT_THAT(all.gaps, ElementsAre("2-2"));
  EXPECT_THAT(numbers_of(all), ElementsAre(1, 3, 4));
  EXPECT_EQ(all.events[1].text.size(), EventRing::kLongest - kRest);
}

// Each has its own length, so that its end meets that of the memory everywhere in the long run.
TEST(EventRing, WhatGoesOverTheEndOfTheMemoryIsWhole) {
  EventRing ring;
  const auto text_of = [](std::int64_t number) {
    return std::to_string(number) + std::string(static_cast<std::size_t>(number * 7919 % 3001), 'a');
  };
  std::int64_t seen = 0;
  for (std::int64_t i = 1; i <= 5000; ++i) {
    note(ring, text_of(i));
    const auto all = all_behind(ring, i - 1);
    ASSERT_EQ(all.events.size(), 1U) << i;
    ASSERT_EQ(all.events[0].text, text_of(i));
    ++seen;
  }
  EXPECT_EQ(seen, 5000);
  const auto kept = all_behind(ring, 0).events;
  EXPECT_GT(kept.size(), 200U);
  for (const auto& event : kept) {
    EXPECT_EQ(event.text, text_of(event.number));
  }
}

TEST(EventRing, APartIsWaitedForNoLongerThanItIsTold) {
  EventRing ring;
  EventRing::Part part;
  ring.take(0, part, milliseconds(1));
  EXPECT_EQ(part.last(), 0);
}

TEST(EventRing, WhoWaitsGetsWhatComesAtOnce) {
  EventRing ring;
  std::atomic<int> rounds = 0;
  constexpr int kRounds = 50;
  const std::jthread follower([&](const std::stop_token& end) {
    EventRing::Part part;
    for (; rounds < kRounds && !end.stop_requested(); ++rounds) {
      ring.take(ring.newest(), part, 2 * kPatience);
    }
  });
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (rounds < kRounds && std::chrono::steady_clock::now() < end) {
    note(ring, "");
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_EQ(rounds, kRounds);
}

TEST(EventRing, ManySendAndManyFollowAndNothingIsLostUnsaid) {
  EventRing ring;
  constexpr int kSenders = 4;
  constexpr int kEach = 10'000;
  std::vector<std::thread> threads;
  for (int follower = 0; follower < 3; ++follower) {
    threads.emplace_back([&] {
      EventRing::Part part;
      std::array<int, kSenders> last{};
      std::int64_t missing = 0;
      std::int64_t told = 0;
      for (std::int64_t after = 0; after < kSenders * kEach; after = part.last()) {
        ring.take(after, part, kPatience);
        missing += part.first() - 1 - after;
        std::int64_t number = part.first();
        part.for_each([&](const EventRing::Event& event) {
          ASSERT_EQ(event.number, number++);
          const auto fields = refhost::fields_of(event.fields);
          int& before = last.at(fields.at("sender").get<std::size_t>());
          ASSERT_GT(fields.at("count").get<int>(), before) << "each sender's stay in their order";
          before = fields.at("count");
          ++told;
        });
      }
      EXPECT_EQ(told + missing, kSenders * kEach);
    });
  }
  for (int sender = 0; sender < kSenders; ++sender) {
    threads.emplace_back([&, sender] {
      for (int i = 1; i <= kEach; ++i) {
        ac::Message message("t");
        message.add_int("sender", sender);
        message.add_int("count", i);
        ring.note(message);
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace achost::test
