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
      EXPECT_EQ(all.at("checksums"), "bad");
      EXPECT_EQ(result.status, 1);
      return;
    }
  }
  FAIL() << "no first question was answered";
}

TEST_F(Doctor, ASilentReaderEndsItThere) {
  reader.faults().set("silence", 1);
  const auto result = uhfctl({"--timeout", "100", "doctor", "--json"});
  EXPECT_EQ(result.status, 3);
  const auto all = verdicts(result);
  EXPECT_EQ(all.at("answer"), "bad");
  EXPECT_EQ(all.count("checksums"), 0U);
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
