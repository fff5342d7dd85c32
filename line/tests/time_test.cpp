// How soon a silent reader is said, and how soon one that comes back is read again. Many times, on several lines at
// once.
//
// The environment variable LINE_TRIALS gives how often.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "line/tests/line_fixture.h"

namespace line::test {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t kLines = 8;

// Each line's own trials, all lines at the same time; what they return, in order of size.
template <typename Trial>
std::vector<double> times_of(const Trial& trial) {
  const char* const wanted = std::getenv("LINE_TRIALS");
  const std::size_t trials = wanted == nullptr ? 2 * kLines : std::strtoul(wanted, nullptr, 10);
  std::vector<double> times;
  std::mutex mutex;  // guards times
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < kLines; ++number) {
    threads.emplace_back([&, number] {
      Place place;
      place.open();
      for (std::size_t i = number; i < trials; i += kLines) {
        const double time = Milliseconds(trial(place, i)).count();
        const std::lock_guard lock(mutex);
        times.push_back(time);
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  std::ranges::sort(times);
  std::cout << times.size() << " times: median " << times[times.size() / 2] << " ms, 99 of 100 "
            << times[(times.size() * 99 + 99) / 100 - 1] << " ms, longest " << times.back() << " ms\n";
  return times;
}

TEST(LineTime, ASilentReaderIsSaidWithinTwoSeconds) {
  const auto times = times_of([](Place& place, std::size_t number) {
    EXPECT_TRUE(place.poll_until_state(State::answering));
    const auto phase = Clock::now() + milliseconds(37 * number % 300);
    while (Clock::now() < phase) {
      place.poll();
    }
    const auto before = place.events_.count();
    place.reader_->faults().set("silence", 1);
    const auto begin = Clock::now();
    EXPECT_TRUE(place.poll_until_state(State::silent));
    EXPECT_TRUE(place.events_.state(State::silent, before).has_value());
    place.reader_->faults().clear();
    return place.events_.time_of(State::silent, before) - begin;
  });
  EXPECT_LE(times.back(), 2000);
}

TEST(LineTime, APortThatIsBackIsReadWithinASecondWithItsSettings) {
  const auto times = times_of([](Place& place, std::size_t number) {
    EXPECT_TRUE(place.driver().setWorkArea(ac::UHF::Region::EUROPE));
    EXPECT_TRUE(place.driver().setTransmitPower(1750));
    EXPECT_TRUE(place.driver().setWorkChannel({1, 2, 3}));
    EXPECT_TRUE(place.poll_until_state(State::answering));
    const auto before = place.events_.count();
    place.pull_out();
    EXPECT_TRUE(place.events_.state(State::gone, before).has_value());
    const auto away = Clock::now() + milliseconds(41 * number % 450);
    while (Clock::now() < away) {
      place.poll();
    }
    place.plug_in({.baud = 115200}, {place.kTag});
    const auto begin = Clock::now();
    EXPECT_TRUE(place.poll_until([&place] { return place.poll() == std::vector<Bytes>{place.kTag}; }));
    const auto time = Clock::now() - begin;
    const auto state = place.reader_->state();
    EXPECT_EQ(state.region, 3);
    EXPECT_EQ(state.power, 1750);
    EXPECT_EQ(state.channels, (std::vector<std::uint8_t>{1, 2, 3}));
    return time;
  });
  EXPECT_LE(times[(times.size() * 99 + 99) / 100 - 1], 1000);
}

}  // namespace
}  // namespace line::test
