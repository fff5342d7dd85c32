// What looking on at a poll with so many tags in the field allocates, the sightings that are told meanwhile with it.
// Under callgrind, with --collect-atstart=no --toggle-collect=measured, also what the thousand polls execute. The polls
// are made before, and time is a parameter, so that both are the same in every run.
//
//   uhf-bench-witness kTags
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <span>
#include <stdexcept>
#include <vector>

#include "allocations.h"
#include "door/why/sighting.h"
#include "door/why/witness.h"
#include "notice.h"

namespace {

using achost::Milliseconds;
using achost::why::Card;
using achost::why::Time;
using std::chrono::milliseconds;

constexpr int kWarmUp = 300;  // more than a sighting lasts
constexpr int kPolls = 1000;
constexpr int kPollsAPass = 10;
constexpr milliseconds kBetweenPolls{104};  // what 50 tags take at 115,200 baud
constexpr milliseconds kAfterPoll{1};       // an announcement

achost::why::WitnessSettings usual_settings() {
  return {.rules = {.trigger_timeout = milliseconds(5000),
                    .read_interval = milliseconds(3000),
                    .read_interval_diff_tags = milliseconds(500)},
          .probe_interval = milliseconds(10),
          .identification_bits = 32,
          .reader_type = "msb"};
}

// A poll, and what is announced of it.
struct Story {
  line::Exchange exchange;
  std::optional<Card> announced;
};

// The tags come in another order each time, as from a reader.
class Plot {
 public:
  explicit Plot(int tags) : tags_(static_cast<std::size_t>(tags)) { std::iota(tags_.begin(), tags_.end(), 1); }

  Story next() {
    now_ += kBetweenPolls;
    std::ranges::shuffle(tags_, chance_);
    Story story;
    story.exchange.code = line::Code::inventory;
    for (const int tag : tags_) {
      const auto bytes = notice(tag);
      story.exchange.bytes.insert(story.exchange.bytes.end(), bytes.begin(), bytes.end());
    }
    story.exchange.answer = line::answer_of(line::Code::inventory, story.exchange.bytes);
    story.exchange.asked = now_ - kBetweenPolls / 2;
    story.exchange.last_byte = now_;
    story.announced = announced();
    return story;
  }

 private:
  std::optional<Card> announced() {
    const auto rules = usual_settings().rules;
    for (std::size_t i = tags_.size() / 2; i < tags_.size() && now_ >= last_ + rules.read_interval_diff_tags; ++i) {
      if (auto& before = announced_[tags_[i]]; now_ + kAfterPoll >= before + rules.read_interval) {
        last_ = before = now_ + kAfterPoll;
        return static_cast<Card>(tags_[i]);
      }
    }
    return std::nullopt;
  }

  std::vector<int> tags_;
  std::mt19937 chance_{1};
  Time now_{std::chrono::hours(1)};
  Time last_{};
  std::map<int, Time> announced_;
};

std::vector<Story> stories_of(Plot& plot, int count) {
  std::vector<Story> stories;
  std::generate_n(std::back_inserter(stories), count, [&] { return plot.next(); });
  return stories;
}

void look_on(achost::why::Witness& witness, const std::vector<Story>& stories) {
  int polls = 0;
  for (const Story& story : stories) {
    const Time at = story.exchange.last_byte;
    witness.saw(story.exchange);
    if (story.announced.has_value()) {
      witness.announced(*story.announced, at + kAfterPoll);
    }
    if (++polls % kPollsAPass == 0) {
      witness.pass(at);
    }
  }
}

}  // namespace

// By this name the profiler knows what to count.
extern "C" [[gnu::noinline]] void measured(achost::why::Witness& witness, const std::vector<Story>& stories) {
  look_on(witness, stories);
}

namespace {

Milliseconds wall_time(Time time) {
  return std::chrono::floor<milliseconds>(Milliseconds::clock::time_point(time.time_since_epoch()));
}

void look_on(int tags) {
  std::size_t told = 0;
  achost::why::Witness witness(
      usual_settings(), Time(std::chrono::hours(1)),
      [&](const achost::why::Sighting& sighting) {
        told += entry_of(achost::why::told(sighting, wall_time)).fields.empty() ? 0 : 1;
      },
      [](const achost::why::Disagreement&) { throw std::runtime_error("the bench announces against the rules"); });
  Plot plot(tags);
  look_on(witness, stories_of(plot, kWarmUp));
  const auto stories = stories_of(plot, kPolls);
  const auto told_before = told;
  const auto allocations_before = allocations;
  measured(witness, stories);
  std::printf("%.0f allocations, %zu sightings told in %d polls\n",
              static_cast<double>(allocations - allocations_before) / kPolls, told - told_before, kPolls);
}

}  // namespace

int main(int argc, char** argv) {
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (arguments.size() != 2) {
    std::fputs("usage: uhf-bench-witness TAGS\n", stderr);
    return 2;
  }
  look_on(std::atoi(arguments[1]));
  return 0;
}
