// The driver on a line that suffers every fault there is, many thousand times: it never crashes, never reports a
// tag whose report did not arrive with a right checksum, and reads again within two passes once the faults are over and
// what they have left on the line is read.
//
// The environment variable FAULT_ROUNDS gives their number.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <set>

#include "ac/exception.h"
#include "memory_line.h"
#include "second_host.h"
#include "t640.h"
#include "uhfsim/faults.h"
#include "uhfsim/reader.h"

using second_host::host;
using std::chrono::milliseconds;
using uhfsim::Bytes;
using uhfsim::ByteView;

namespace {

constexpr milliseconds kTimeout(100);
constexpr milliseconds kProbeInterval(50);

// The simulated reader's engine and its faults on a line whose time passes when somebody waits.
class FaultyLine : public memory_line::Line {
 public:
  explicit FaultyLine(std::uint64_t seed) : faults(seed), engine_(field, {.seed = seed}) {}

  uhfsim::Field field;
  uhfsim::FaultInjector faults;

  bool write(ByteView bytes) override {
    if (hung_up_) {
      return false;
    }
    for (Bytes& reply : engine_.feed(bytes)) {
      for (uhfsim::Sending& sending : faults.intercept(std::move(reply), bytes)) {
        free_ = std::max(free_, now_) + sending.pause;
        coming_.push_back({std::move(sending.bytes), free_, sending.hang_up});
      }
    }
    return true;
  }

  Bytes read(std::size_t most, milliseconds timeout) override {
    const milliseconds deadline = now_ + timeout;
    Bytes bytes = take(most);
    while (bytes.empty() && !coming_.empty() && coming_.front().due <= deadline) {
      now_ = coming_.front().due;
      bytes = take(most);
    }
    if (bytes.empty()) {
      now_ = deadline;
    }
    delivered.insert(delivered.end(), bytes.begin(), bytes.end());
    return bytes;
  }

  void pass(milliseconds time) { now_ += time; }

  // Until all that was late has come, a hang-up included.
  void wait_until_quiet() {
    now_ = std::max(now_, free_);
    hung_up_ = hung_up_ || std::ranges::any_of(coming_, &Coming::hang_up);
  }

  bool hung_up() const { return hung_up_; }

  // Bytes that wait to be read.
  std::size_t unread() const {
    std::size_t bytes = 0;
    for (const Coming& part : coming_) {
      bytes += part.bytes.size();
    }
    return bytes;
  }

  // What was on its way is lost.
  void come_back() {
    hung_up_ = false;
    coming_.clear();
    free_ = now_;
  }

  Bytes delivered;  // since somebody cleared it

 private:
  struct Coming {
    Bytes bytes;
    milliseconds due;
    bool hang_up;
  };

  // What is there now.
  Bytes take(std::size_t most) {
    Bytes bytes;
    while (!coming_.empty() && coming_.front().due <= now_ && bytes.size() < most) {
      Coming& first = coming_.front();
      const auto count = static_cast<std::ptrdiff_t>(std::min(most - bytes.size(), first.bytes.size()));
      bytes.insert(bytes.end(), first.bytes.begin(), first.bytes.begin() + count);
      first.bytes.erase(first.bytes.begin(), first.bytes.begin() + count);
      if (!first.bytes.empty()) {
        break;
      }
      hung_up_ = first.hang_up;
      coming_.pop_front();
      if (hung_up_) {
        coming_.clear();
      }
    }
    return bytes;
  }

  uhfsim::Reader engine_;
  std::deque<Coming> coming_;
  milliseconds now_{0};
  milliseconds free_{0};
  bool hung_up_ = false;
};

// The EPCs of every whole tag report with a right checksum, wherever it begins.
std::set<Bytes> reported(const Bytes& line) {
  std::set<Bytes> epcs;
  for (std::size_t start = 0; start + 12 <= line.size(); ++start) {
    if (line[start] != 0x7F || line[start + 1] != 0x02 || line[start + 2] != 0x22) {
      continue;
    }
    const std::size_t length = static_cast<std::size_t>(line[start + 3] << 8 | line[start + 4]);
    const std::size_t end = start + 5 + length + 1;
    if (length < 5 || end >= line.size() || line[end] != 0x7E) {
      continue;
    }
    unsigned sum = 0;
    for (std::size_t i = start + 1; i < end - 1; ++i) {
      sum += line[i];
    }
    if (static_cast<unsigned char>(sum) == line[end - 1]) {
      const auto epc = line.begin() + static_cast<std::ptrdiff_t>(start) + 8;
      epcs.emplace(epc, epc + static_cast<std::ptrdiff_t>(length) - 5);
    }
  }
  return epcs;
}

class Rounds {
 public:
  void play(std::uint64_t seed) {
    host().reset();
    uhfsim::Random random(seed);
    FaultyLine line(seed);
    memory_line::connect(&line);
    fill_field(line.field, random);
    driver_ = std::make_unique<ac::UHF::T640>(memory_line::kPath, kTimeout);
    const auto names = uhfsim::FaultInjector::names();
    for (std::size_t i = 1 + random.below(3); i > 0; --i) {
      const auto name = names[random.below(names.size())];
      line.faults.set(name, 0.25 + 0.75 * random.unit());
    }
    for (std::size_t i = 1 + random.below(3); i > 0; --i) {
      pass(line);
    }
    line.faults.clear();
    line.wait_until_quiet();
    if (line.hung_up()) {
      start_again(line);
    }
    EXPECT_TRUE(reads_again(line)) << "reads nothing in two passes without a fault";
    driver_ = nullptr;
    memory_line::connect(nullptr);
  }

  std::uint64_t tags = 0;
  std::uint64_t strangers = 0;  // tags that were not in the field
  std::uint64_t lost_passes = 0;
  std::uint64_t hang_ups = 0;
  std::uint64_t crowded_passes = 0;  // spent on what a fault left on the line

 private:
  // What a pass finds out of step it drops, 1,024 bytes at a time: one that leaves bytes unread is none of the two.
  bool reads_again(FaultyLine& line) {
    for (int left = 2; left > 0;) {
      if (pass(line)) {
        return true;
      }
      const bool is_line_read = line.unread() == 0;
      left -= is_line_read ? 1 : 0;
      crowded_passes += is_line_read ? 0 : 1;
    }
    return false;
  }

  void fill_field(uhfsim::Field& field, uhfsim::Random& random) {
    epcs_.clear();
    for (std::size_t i = 1 + random.below(8); i > 0; --i) {
      Bytes epc(2 + 2 * random.below(31));
      for (auto& byte : epc) {
        byte = static_cast<unsigned char>(random.below(256));
      }
      epcs_.insert(epc);
      field.add({.epc = epc});
    }
  }

  // Whether tags were read.
  bool pass(FaultyLine& line) {
    line.pass(kProbeInterval);
    line.delivered.clear();
    try {
      const auto [succeeded, read] = driver_->inventoryCard();
      check(read, reported(line.delivered));
      lost_passes += succeeded ? 0 : 1;
      return succeeded;
    } catch (const ac::ac_exception& failure) {
      EXPECT_TRUE(line.hung_up()) << failure.what();
      start_again(line);
      return false;
    }
  }

  // A hang-up ends the process, which its supervisor starts again.
  void start_again(FaultyLine& line) {
    ++hang_ups;
    line.come_back();
    driver_ = nullptr;
    driver_ = std::make_unique<ac::UHF::T640>(memory_line::kPath, kTimeout);
  }

  void check(const std::vector<ac::UHF::InventoryCardInfo>& read, const std::set<Bytes>& valid) {
    for (const auto& tag : read) {
      EXPECT_TRUE(valid.contains(tag.epc)) << "a tag that no report with a right checksum has told";
      strangers += epcs_.contains(tag.epc) ? 0 : 1;
    }
    tags += read.size();
  }

  std::set<Bytes> epcs_;
  std::unique_ptr<ac::UHF::T640> driver_;
};

}  // namespace

TEST(FaultRounds, NeverCrashNorInventACardAndReadAgainWithinTwoPasses) {
  const char* const wanted = std::getenv("FAULT_ROUNDS");
  const std::uint64_t count = wanted == nullptr ? USUAL_FAULT_ROUNDS : std::strtoull(wanted, nullptr, 10);
  Rounds rounds;
  for (std::uint64_t seed = 1; seed <= count; ++seed) {
    rounds.play(seed);
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed;
  }
  std::cout << count << " rounds: " << rounds.tags << " tags read, " << rounds.lost_passes << " passes lost, "
            << rounds.hang_ups << " hang-ups, " << rounds.crowded_passes << " passes on a crowded line, "
            << rounds.strangers << " tags that were not in the field, though their checksum was right\n";
  EXPECT_GT(rounds.tags, count);
  EXPECT_GT(rounds.lost_passes, count / 10);
  EXPECT_GT(rounds.hang_ups, count / 100);
}
