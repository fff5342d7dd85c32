// What is in bytes.
#include "run.h"

namespace uhfctl::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Decode : public WithReader {};

TEST_F(Decode, TakesDigits) {
  const auto [status, out, err] = run({"decode", "7F 00 B7 00 00 B7 7E FF"});
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out, "     0  7 bytes   get power command\n     7  1 byte    no frame, no header 7F\n");
}

TEST_F(Decode, TakesAFileAndStandardInput) {
  std::ofstream(file("bytes")) << "7F01B700020A28\nEC7E\n";
  EXPECT_EQ(run({"decode", file("bytes")}).out, "     0  9 bytes   get power response: power 2600\n");
  uhfsim::testing::Process process(UHFCTL, {"decode", "-", "--json"});
  process.write("7F00B70000B77E\n");
  process.close_input();
  EXPECT_EQ(objects_of(process.read_all()).at(0)["frame"], "get power");
  EXPECT_EQ(process.wait(), 0);
}

TEST_F(Decode, TellsARecordingWithTimesAndPlaces) {
  std::ofstream(file("r")) << "# uhf recording 1\n0.5 > 7F00B70000B77E\n0.501 < 7F01B700\n0.502 < 020A28EC7E\n"
                              "0.6 > 7F00B70000B77E\n0.7 < 00\n";
  EXPECT_EQ(run({"decode", file("r")}).out,
            "  0.500000 >      0  7 bytes   get power command\n"
            "  0.501000 <      0  9 bytes   get power response: power 2600\n"
            "  0.600000 >      7  7 bytes   get power command\n"
            "  0.700000 <      9  1 byte    no frame, no header 7F\n");
}

TEST_F(Decode, ADirectoryIsNoRecording) {
  const auto [status, out, err] = run({"decode", directory});
  EXPECT_EQ(status, 2);
  EXPECT_EQ(err, "uhfctl: " + directory.string() + " is a directory: give a file\n");
}

TEST_F(Decode, WhatIsNoDigitIsNamed) {
  const auto [status, out, err] = run({"decode", "7Fxx"});
  EXPECT_EQ(status, 2);
  EXPECT_THAT(err, HasSubstr("\"x\" is no hexadecimal digit"));
}

TEST_F(Decode, AFileThatIsNotThereIsNamed) {
  for (const std::string name : {"nofile", "./feed", "face.txt"}) {
    const auto [status, out, err] = run({"decode", name});
    EXPECT_EQ(status, 2);
    EXPECT_EQ(err, "uhfctl: " + name + ": No such file or directory, and no hexadecimal digits either\n");
  }
}

TEST_F(Decode, ACommandThatIsNoneIsNamedWithTheNearest) {
  const auto [status, out, err] = run({"inventorry"});
  EXPECT_EQ(status, 2);
  EXPECT_EQ(err, "uhfctl: there is no command \"inventorry\": did you mean \"inventory\"?; see uhfctl --help\n");
}

TEST_F(Decode, KnowsEveryFrameOfTheProtocol) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(UHFCTL_VECTORS)) {
    if (entry.path().extension() != ".txt") {
      continue;
    }
    std::istringstream lines(content_of(entry.path()));
    for (std::string line; std::getline(lines, line);) {
      const auto bytes = line.find("7F");
      if (line.empty() || line.front() == '#' || bytes == std::string::npos) {
        continue;
      }
      const auto [status, out, err] =
          run({"decode", line.substr(bytes, std::min(line.find('#'), line.size()) - bytes)});
      EXPECT_EQ(status, 0) << line << err;
      EXPECT_THAT(out, Not(HasSubstr("no frame"))) << line;
      ++files;
    }
  }
  EXPECT_GT(files, 5);
}

}  // namespace
}  // namespace uhfctl::testing
