// The driver on a line that suffers every fault there is, many thousand times: it never crashes, never reports a
// tag whose report did not arrive with a right checksum, and reads again within two passes once the faults are over and
// what they have left on the line is read.
//
// The environment variable FAULT_ROUNDS gives their number.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>

#include "ac/exception.h"
#include "faulty_line.h"
#include "second_host.h"
#include "t640.h"

using second_host::host;
using std::chrono::milliseconds;
using uhfsim::Bytes;
using uhfsim::ByteView;

namespace {

constexpr milliseconds kTimeout(100);
constexpr milliseconds kProbeInterval(50);

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
  // Returns how many tags were read. Place: where the driver is, faulty::Port or faulty::Terminal.
  template <typename Place>
  std::uint64_t play(std::uint64_t seed) {
    host().reset();
    const auto tags_before = tags;
    uhfsim::Random random(seed);
    Place line(seed);
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
    if (line.hung_up() && line.outlives_hang_up()) {
      line.come_back();
    } else if (line.hung_up()) {
      start_again(line);
    }
    EXPECT_TRUE(reads_again(line)) << "reads nothing in two passes without a fault";
    driver_ = nullptr;
    memory_line::connect(nullptr);
    kept_back += line.kept_back;
    return tags - tags_before;
  }

  std::uint64_t tags = 0;
  std::uint64_t strangers = 0;  // tags that were not in the field
  std::uint64_t lost_passes = 0;
  std::uint64_t hang_ups = 0;
  std::uint64_t kept_back = 0;       // bytes, by the line
  std::uint64_t crowded_passes = 0;  // spent on what a fault left on the line

 private:
  // What a pass finds out of step it drops, 1,024 bytes at a time: one that leaves bytes unread is none of the two.
  bool reads_again(faulty::Port& line) {
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
  bool pass(faulty::Port& line) {
    line.pass(kProbeInterval);
    line.delivered.clear();
    try {
      const auto [succeeded, read] = driver_->inventoryCard();
      check(read, reported(line.delivered));
      lost_passes += succeeded ? 0 : 1;
      if (!succeeded && line.hung_up() && line.outlives_hang_up()) {
        ++hang_ups;
        line.come_back();
      }
      return succeeded;
    } catch (const ac::ac_exception& failure) {
      EXPECT_TRUE(line.hung_up()) << failure.what();
      start_again(line);
      return false;
    }
  }

  // A hang-up ends the process, which its supervisor starts again.
  void start_again(faulty::Port& line) {
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

namespace {

std::uint64_t wanted_rounds() {
  const char* const wanted = std::getenv("FAULT_ROUNDS");
  return wanted == nullptr ? USUAL_FAULT_ROUNDS : std::strtoull(wanted, nullptr, 10);
}

}  // namespace

TEST(FaultRounds, NeverCrashNorInventACardAndReadAgainWithinTwoPasses) {
  const std::uint64_t count = wanted_rounds();
  Rounds rounds;
  for (std::uint64_t seed = 1; seed <= count; ++seed) {
    rounds.play<faulty::Port>(seed);
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed;
  }
  std::cout << count << " rounds: " << rounds.tags << " tags read, " << rounds.lost_passes << " passes lost, "
            << rounds.hang_ups << " hang-ups, " << rounds.crowded_passes << " passes on a crowded line, "
            << rounds.strangers << " tags that were not in the field, though their checksum was right\n";
  EXPECT_GT(rounds.tags, count);
  EXPECT_GT(rounds.lost_passes, count / 10);
  EXPECT_GT(rounds.hang_ups, count / 100);
}

// The same rounds behind the line's rules. A round may read fewer: at the port a pass takes a report that was held back
// for seconds for the answer to its own question, which the line keeps back; and a hang-up costs the process at the
// port, and the next pass with it, so that other passes meet the faults.
TEST(FaultRounds, ThroughTheLineTheSameRoundsReadTheSameTagsOrMore) {
  const std::uint64_t count = wanted_rounds();
  Rounds direct;
  Rounds through;
  std::uint64_t fewer = 0;
  std::uint64_t more = 0;
  for (std::uint64_t seed = 1; seed <= count; ++seed) {
    const auto at_port = direct.play<faulty::Port>(seed);
    const auto kept_back = through.kept_back;
    const auto hang_ups = through.hang_ups;
    const auto at_terminal = through.play<faulty::Terminal>(seed);
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed;
    fewer += at_terminal < at_port ? 1 : 0;
    more += at_terminal > at_port ? 1 : 0;
    EXPECT_TRUE(at_terminal >= at_port || through.kept_back > kept_back || through.hang_ups > hang_ups)
        << "seed " << seed;
  }
  std::cout << count << " rounds: " << direct.tags << " tags read at the port, " << through.tags
            << " through the line; fewer in " << fewer << " rounds, more in " << more << "\n";
  EXPECT_GE(through.tags, direct.tags);
}
