// The driver on a real pseudo-terminal, and the frames that its tests are about.
#pragma once

#include "t640.h"

#include <gmock/gmock.h>

#include <future>
#include <numeric>

#include "failure.h"
#include "hex.h"
#include "reader_peer.h"
#include "second_host.h"

namespace t640_test {

using namespace ac::UHF;
using second_host::host;
using std::chrono::milliseconds;
using testing::ElementsAre;

inline const auto INVENTORY = hex("7F 00 22 00 00 22 7E");
inline const auto GET_POWER = hex("7F 00 B7 00 00 B7 7E");
inline const auto POWER_2600 = hex("7F 01 B7 00 02 0A 28 EC 7E");
inline const auto SET_POWER_DONE = hex("7F 01 B6 00 01 00 B8 7E");
inline const auto CRC_ERROR = hex("7F 01 FF 00 01 17 18 7E");

using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// A frame that has its checksum and its end still to come.
inline Bytes complete(Bytes frame) {
  frame.push_back(static_cast<unsigned char>(std::accumulate(frame.begin() + 1, frame.end(), 0U)));
  frame.push_back(0x7E);
  return frame;
}

// A valid notice of a tag whose EPC is one byte.
inline Bytes notice(unsigned char epc) { return complete(hex("7F 02 22 00 06 C8 08 00") + Bytes{epc} + hex("5A 3C")); }

class T640Test : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }

  // The EPCs of an inventory's tags, which are of one byte here.
  static Bytes epcs(const std::vector<InventoryCardInfo>& tags) {
    Bytes first;
    for (const auto& tag : tags) {
      first.push_back(tag.epc.at(0));
    }
    return first;
  }

  // An inventory answered by these bytes, which are all there when it is made.
  std::pair<bool, Bytes> inventory(const Bytes& answer) {
    peer.write(answer);
    const auto [succeeded, tags] = driver.inventoryCard();
    EXPECT_EQ(peer.read(INVENTORY.size()), INVENTORY);
    return {succeeded, epcs(tags)};
  }

  // The outcome of an operation while the peer gives these chunks, each once the one before was read.
  template <class Operation>
  auto whileAnswering(const std::vector<Bytes>& chunks, Operation operation) {
    auto result = std::async(std::launch::async, operation);
    for (const auto& chunk : chunks) {
      peer.write(chunk);
      EXPECT_TRUE(peer.wait_until_read());
    }
    return result.get();
  }

  // What an operation ends with when the line hangs up once its command, of so many bytes, has come.
  template <class Operation>
  static std::string failureWhileWaiting(Operation operation, std::size_t size) {
    std::string seen;
    // A line that hangs up just before the read begins is no failure but an end: once more, then.
    for (int attempt = 0; seen.empty() && attempt < 50; ++attempt) {
      ReaderPeer other;
      const T640 patient(other.path(), milliseconds(25500));
      auto failure = std::async(std::launch::async, [&] { return failure_of([&] { operation(patient); }); });
      EXPECT_EQ(other.read(size).size(), size);
      other.hang_up();
      seen = failure.get();
    }
    return seen;
  }

  static void expectDebugLine(const std::string& text, const std::string& source, const std::string& function,
                              int line) {
    const auto lines = host().debug_lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, text);
    EXPECT_EQ(lines[0].source, source);
    EXPECT_EQ(lines[0].function, function);
    EXPECT_EQ(lines[0].line, line);
  }

  ReaderPeer peer;
  T640 driver{peer.path(), milliseconds(200)};
};

}  // namespace t640_test
