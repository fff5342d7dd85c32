// The simulator is held to the wire bytes that the codec is held to, so that a mistake in one does not cancel itself
// out in the other: each command of a file that an answer follows must be answered with just those bytes.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "hex.h"
#include "uhfsim/reader.h"
#include "uhfsim/text.h"

namespace uhfsim::testing {
namespace {

namespace fs = std::filesystem;

struct Vector {
  std::string kind;
  Bytes bytes;
};

std::vector<Vector> vectors_of(const fs::path& path) {
  std::ifstream file(path);
  std::vector<Vector> vectors;
  for (std::string line; std::getline(file, line);) {
    const auto words = words_of(line);
    if (words.size() < 3) continue;
    std::string bytes;
    for (std::size_t i = 2; i < words.size(); ++i) bytes += words[i];
    vectors.push_back({std::string(words[0]), hex(bytes)});
  }
  return vectors;
}

// The tag that a notice speaks of: behind five bytes of frame stand RSSI, PC and EPC; CRC, checksum and end follow.
Tag tag_of(const Bytes& notice) {
  const auto pc = static_cast<std::uint16_t>(notice.at(6) << 8 | notice.at(7));
  return {.epc = Bytes(notice.begin() + 8, notice.end() - 4), .rssi = notice.at(5), .pc = pc};
}

// How many commands of the file were answered; a wrong answer fails the test.
int check_file(const fs::path& path) {
  Field field;
  Reader reader(field, {});
  int answered = 0;
  const auto vectors = vectors_of(path);
  EXPECT_FALSE(vectors.empty()) << path;
  for (std::size_t i = 0; i + 1 < vectors.size(); ++i) {
    const Vector& answer = vectors[i + 1];
    if (vectors[i].kind != "command" || answer.kind == "command") continue;
    if (answer.kind == "notice") field.add(tag_of(answer.bytes));
    EXPECT_THAT(reader.feed(vectors[i].bytes), ::testing::ElementsAre(answer.bytes)) << path;
    ++answered;
  }
  return answered;
}

TEST(Vectors, EveryCommandIsAnsweredWithJustTheseBytes) {
  int answered = 0;
  for (const auto& entry : fs::directory_iterator(UHFSIM_VECTORS)) {
    if (entry.path().extension() == ".txt") answered += check_file(entry.path());
  }
  EXPECT_GE(answered, 7) << "there are seven commands";
}

}  // namespace
}  // namespace uhfsim::testing
