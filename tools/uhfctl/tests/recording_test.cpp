// Recording a line, and playing it.
#include "recording.h"

#include <signal.h>

#include "run.h"

namespace uhfctl::testing {
namespace {

using ::testing::HasSubstr;

class Recording : public WithReader {};

TEST_F(Recording, HoldsEveryByteWithItsDirection) {
  const auto [status, out, err] = uhfctl({"record", file("r"), "--seconds", "0.2"});
  ASSERT_EQ(status, 0) << err;
  std::size_t to_reader = 0;
  std::size_t from_reader = 0;
  std::chrono::microseconds last{0};
  for (const auto& piece : read_recording(file("r"))) {
    (piece.direction == Direction::to_reader ? to_reader : from_reader) += piece.bytes.size();
    EXPECT_GE(piece.at, last);
    last = piece.at;
  }
  // Beside the question for the power that comes first, and what was under way at the end.
  EXPECT_EQ(to_reader + 7, reader.counters().bytes_in);
  EXPECT_LE(from_reader + 9, reader.counters().bytes_out);
  EXPECT_GT(from_reader, 0U);
}

TEST_F(Recording, IsNotWrittenOverAnother) {
  std::ofstream(file("r")) << "mine";
  const auto [status, out, err] = uhfctl({"record", file("r"), "--seconds", "0.1"});
  EXPECT_EQ(status, 1);
  EXPECT_THAT(err, HasSubstr("is there already"));
  EXPECT_EQ(content_of(file("r")), "mine");
}

TEST_F(Recording, IsNotWrittenThroughALink) {
  std::filesystem::create_symlink(file("elsewhere"), file("r"));
  EXPECT_EQ(uhfctl({"record", file("r"), "--seconds", "0.1"}).status, 1);
  EXPECT_FALSE(std::filesystem::exists(file("elsewhere")));
}

TEST_F(Recording, ATimeThatNoClockCountsIsRefused) {
  std::ofstream(file("r")) << "# uhf recording 1\n1e13 > 7F\n";
  const auto [status, out, err] = uhfctl({"decode", file("r")});
  EXPECT_EQ(status, 2);
  EXPECT_EQ(err, "uhfctl: " + file("r") + ":2: a recording is no longer than 1000000000 seconds\n");
}

TEST_F(Recording, IsPlayedAsAReader) {
  ASSERT_EQ(uhfctl({"record", file("r"), "--seconds", "0.3"}).status, 0);
  // The question that every command begins with is no part of it: put it in.
  auto text = content_of(file("r"));
  text.insert(text.find('\n') + 1, "0.0 > 7F00B70000B77E\n0.0 < 7F01B700020A28EC7E\n");
  std::ofstream(file("r")) << text;
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto port = player.read_line();
  const auto tags = objects_of(run({"--port", port, "inventory", "--seconds", "0.3", "--json"}).out);
  const auto tag = std::ranges::find(tags, "E2000001", [](const auto& one) { return one["epc"]; });
  ASSERT_NE(tag, tags.end());
  EXPECT_EQ((*tag)["rssi"], 180);
  player.signal(SIGINT);
  EXPECT_EQ(player.wait(), 0);
}

TEST_F(Recording, ACommandThatWasGivenAgainGetsItsNextAnswer) {
  const std::string ask = " > 7F00220000227E\n";
  std::ofstream(file("r")) << "# uhf recording 1\n0 > 7F00B70000B77E\n0 < 7F01B700020A28EC7E\n0.1" << ask
                           << "0.101 < 7F02220007C80800ABCD951D257E\n0.2" << ask
                           << "0.201 < 7F02220007C80800AB01951D597E\n";
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto port = player.read_line();
  const auto out = run({"--port", port, "--timeout", "200", "inventory", "--count", "2", "--seconds", "10"}).out;
  EXPECT_THAT(out, HasSubstr("ABCD"));
  EXPECT_THAT(out, HasSubstr("AB01"));
}

// A reader that takes another power than it is told, as one does whose range ends before.
TEST_F(Recording, APowerThatTheReaderDoesNotTakeIsAFailure) {
  std::ofstream(file("r")) << "# uhf recording 1\n0 > 7F00B70000B77E\n0 < 7F01B700020A28EC7E\n"
                              "1 > 7F00B600020BB8 7B7E\n1 < 7F01B6000100B87E\n";
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto [status, out, err] = run({"--port", player.read_line(), "--timeout", "200", "power", "set", "3000"});
  EXPECT_EQ(status, 1);
  EXPECT_THAT(err, HasSubstr("was told the power 30.00 dBm and has 26.00 dBm"));
}

TEST_F(Recording, ACommandThatWasNotRecordedIsSaidAndAnsweredAsAPlainReaderDoes) {
  std::ofstream(file("r")) << "# uhf recording 1\n0.0 > 7F00220000227E\n0.001 < 7F01FF000115167E\n";
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto port = player.read_line();
  EXPECT_EQ(run({"--port", port, "power", "get"}).out, "2600  (26.00 dBm)\n");
  EXPECT_EQ(player.read_error_line(),
            "uhfctl: not in the recording, answered as a plain reader does: get power command");
  EXPECT_EQ(run({"--port", port, "power", "set", "2100"}).status, 0);
  EXPECT_EQ(run({"--port", port, "power", "get"}).out, "2100  (21.00 dBm)\n") << "it keeps what it is told";
  for (const std::vector<std::string>& command : {std::vector<std::string>{"region", "set", "EUROPE"},
                                                  {"channels", "set", "0-5"},
                                                  {"sensitivity", "set", "3", "5", "300"}}) {
    auto words = command;
    words.insert(words.begin(), {"--port", port});
    EXPECT_EQ(run(words).status, 0) << command.front();
  }
}

TEST_F(Recording, InfoAndDoctorWorkOnWhatRecordMade) {
  ASSERT_EQ(uhfctl({"record", file("r"), "--seconds", "0.3"}).status, 0);
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto port = player.read_line();
  EXPECT_EQ(run({"--port", port, "info"}).status, 0);
  const auto doctor = run({"--port", port, "doctor"});
  EXPECT_EQ(doctor.status, 0) << doctor.out;
  EXPECT_THAT(doctor.out, HasSubstr("E2000001"));
}

TEST_F(Recording, WhatWasToldSinceIsNewerThanARecordedAnswer) {
  std::ofstream(file("r")) << "# uhf recording 1\n0 > 7F00B70000B77E\n0 < 7F01B700020A28EC7E\n";
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto port = player.read_line();
  EXPECT_EQ(run({"--port", port, "power", "get"}).out, "2600  (26.00 dBm)\n");
  EXPECT_EQ(run({"--port", port, "power", "set", "2100"}).out, "2100  (21.00 dBm), before 2600\n");
}

TEST_F(Recording, AnAnswerThatTheRecordingDoesNotHoldAnyMoreIsNoSilence) {
  std::ofstream(file("r")) << "# uhf recording 1\n0 > 7F00B70000B77E\n";
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  EXPECT_EQ(run({"--port", player.read_line(), "power", "get"}).status, 0);
}

TEST_F(Recording, JunkOfACommandHidesNoLaterOne) {
  std::ofstream(file("r")) << "# uhf recording 1\n";
  uhfsim::testing::Process player(UHFCTL, {"replay", file("r")});
  const auto port = player.read_line();
  std::ofstream(port) << "\x7F\x01\x02\xFF\xFF" << std::flush;
  EXPECT_THAT(player.read_error_line(), HasSubstr("no command, left unanswered: 7F (cut off"));
  EXPECT_EQ(run({"--port", port, "power", "get"}).status, 0);
}

TEST_F(Recording, AnAnswerThatIsLongInComingHoldsNoEndUp) {
  std::ofstream(file("r")) << "# uhf recording 1\n0 > 7F00B70000B77E\n1000 < 7F01B700020A28EC7E\n";
  for (const bool by_time : {true, false}) {
    uhfsim::testing::Process player(UHFCTL, {"replay", file("r"), "--seconds", by_time ? "0.5" : "0"});
    EXPECT_EQ(run({"--port", player.read_line(), "--timeout", "100", "power", "get"}).status, 3);
    if (!by_time) {
      player.signal(SIGINT);
    }
    EXPECT_EQ(player.wait(), 0);
  }
}

TEST_F(Recording, AnErrorNamesFileAndLine) {
  std::ofstream(file("r")) << "# uhf recording 1\n0.5 > 7F00\n0.6 ? 11\n";
  EXPECT_THAT(run({"decode", file("r")}).err, HasSubstr(file("r") + ":3: expected SECONDS, < or >"));
  std::ofstream(file("r")) << "# uhf recording 1\n0.5 > 7F0\n";
  EXPECT_THAT(run({"decode", file("r")}).err, HasSubstr(file("r") + ":2: an odd number of hexadecimal digits"));
  EXPECT_EQ(run({"replay", file("missing")}).status, 2);
}

}  // namespace
}  // namespace uhfctl::testing
