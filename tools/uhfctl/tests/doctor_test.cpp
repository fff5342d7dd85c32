// What can be wrong between a port and its tags.
#include <map>

#include "run.h"

namespace uhfctl::testing {
namespace {

using ::testing::HasSubstr;

class Doctor : public WithReader {
 protected:
  // Verdict and finding of each check, by its name.
  static std::map<std::string, std::string> verdicts(const Result& result) {
    std::map<std::string, std::string> all;
    for (const auto& check : objects_of(result.out)) {
      all[check["check"]] = check["verdict"];
    }
    return all;
  }
};

TEST_F(Doctor, AHealthyReaderIsGoodThroughout) {
  const auto result = uhfctl({"doctor", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto all = verdicts(result);
  EXPECT_EQ(all.size(), 8U);
  for (const auto& [check, verdict] : all) {
    EXPECT_EQ(verdict, "good") << check;
  }
  EXPECT_THAT(uhfctl({"doctor"}).out, HasSubstr("power        good      26.00 dBm; BRAZIL allows 30.00 dBm"));
}

TEST_F(Doctor, AnEmptyFieldAndTooMuchPowerAreDoubtful) {
  reader.field().clear();
  ASSERT_EQ(uhfctl({"power", "set", "3100", "--force"}).status, 0);
  const auto result = uhfctl({"doctor", "--json"});
  EXPECT_EQ(result.status, 0);
  const auto all = verdicts(result);
  EXPECT_EQ(all.at("tags"), "doubtful");
  EXPECT_EQ(all.at("power"), "doubtful");
  EXPECT_THAT(uhfctl({"doctor"}).out, HasSubstr("`uhfctl power set 3000`"));
}

TEST_F(Doctor, ARegionThatIsNoneIsRefusedBeforeTheReaderIsAsked) {
  const auto result = uhfctl({"doctor", "--region", "BRASIL"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "uhfctl: there is no region \"BRASIL\": one of BRAZIL, CHINA_900MHZ, CHINA_800MHZ, AMERICA, EUROPE, "
            "KOREA\n");
}

TEST_F(Doctor, ANoisyLineIsTold) {
  reader.faults().set("corrupt-checksum", 0.2);
  // Now and then the first question is among the damaged ones, which then is what is wrong.
  for (int attempt = 0; attempt < 20; ++attempt) {
    const auto result = uhfctl({"--timeout", "100", "doctor", "--json"});
    const auto all = verdicts(result);
    if (all.at("answer") == "good") {
      EXPECT_EQ(all.at("polls"), "bad");
      EXPECT_THAT(result.out, HasSubstr(" wrong checksum\""));
      EXPECT_EQ(result.status, 1);
      return;
    }
  }
  FAIL() << "no first question was answered";
}

// What it says of a reader that answers always so.
struct Told {
  const char* fault;
  const char* finding;
  const char* way_out;
};

class DoctorTells : public Doctor, public ::testing::WithParamInterface<Told> {};

TEST_P(DoctorTells, WhatIsWrongWithTheAnswers) {
  const auto& [fault, finding, way_out] = GetParam();
  reader.faults().set(fault, 1);
  const auto result = uhfctl({"--timeout", "100", "doctor", "--json"});
  EXPECT_EQ(result.status, 3) << result.out;
  const auto checks = objects_of(result.out);
  EXPECT_EQ(checks.back()["check"], "answer");
  EXPECT_EQ(checks.back()["finding"], finding);
  EXPECT_THAT(checks.back()["way_out"].get<std::string>(), HasSubstr(way_out));
}

INSTANTIATE_TEST_SUITE_P(Each, DoctorTells,
                         ::testing::Values(Told{"silence", "nothing answers", "TX and RX (crossed?)"},
                                           Told{"echo", "what is sent comes back", "switch its echo off"},
                                           Told{"flood", "bytes come without end", "power off and on"},
                                           Told{"corrupt-checksum", "the answers are damaged", "shorten the cable"}),
                         [](const auto& test) { return std::to_string(test.index); });

TEST_F(Doctor, AnswersThatAreCutOffAreTold) {
  reader.faults().set("truncate", 0.6);
  // Now and then chance leaves whole answers to the first questions.
  for (int attempt = 0; attempt < 20; ++attempt) {
    const auto result = uhfctl({"--timeout", "100", "doctor"});
    if (result.out.find("cut off") != std::string::npos) {
      EXPECT_THAT(result.out, HasSubstr("which sags while it transmits"));
      return;
    }
  }
  FAIL() << "nothing was cut off";
}

TEST_F(Doctor, ASilentReaderEndsItThere) {
  reader.faults().set("silence", 1);
  const auto result = uhfctl({"--timeout", "100", "doctor", "--json"});
  EXPECT_EQ(result.status, 3);
  const auto all = verdicts(result);
  EXPECT_EQ(all.at("answer"), "bad");
  EXPECT_EQ(all.count("polls"), 0U);
}

TEST_F(Doctor, AMissingPortSaysWhatToDo) {
  const auto [status, out, err] = run({"--port", "/dev/nothing", "doctor"});
  EXPECT_EQ(status, 3);
  EXPECT_THAT(out, HasSubstr("port         bad       there is no /dev/nothing"));
  EXPECT_THAT(out, HasSubstr("ls /dev/serial/by-id"));
}

TEST_F(Doctor, AFileIsNoPort) {
  std::ofstream(file("f")) << "x";
  EXPECT_THAT(run({"--port", file("f"), "doctor"}).out, HasSubstr("is no device"));
}

TEST_F(Doctor, ABusyPortIsNamed) {
  uhfsim::testing::Process other("/bin/sh", {"-c", "exec 3<>" + reader.path() + "; echo open; read line"});
  ASSERT_EQ(other.read_line(), "open");
  const auto [status, out, err] = uhfctl({"doctor"});
  EXPECT_EQ(status, 5);
  EXPECT_THAT(out, HasSubstr("is in use by process "));
}

}  // namespace
}  // namespace uhfctl::testing
