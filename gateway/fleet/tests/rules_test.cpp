// The rules that the package gives mosquitto, tried by strangers' clients.
#include "gateway/fleet/tests/fleet_fixture.h"

namespace fleet::test {
namespace {

using testing::IsEmpty;

class Rules : public Fleet {
 protected:
  bool may_write(const std::string& name, const std::string& topic, std::vector<std::string> more = {}) const {
    more.insert(more.end(), {"-t", topic, "-m", "x"});
    const auto result = broker_.stranger("mosquitto_pub", name, more);
    const bool is_refused = result.err.find("Not authorized") != std::string::npos;
    EXPECT_TRUE(is_refused || result.err.empty()) << result.err;
    return !is_refused && result.status == 0;
  }

  // Something is retained there, and whether the one can read it. mark: where he can read in any case; the broker sends
  // him what is retained in the order in which he asks for it.
  bool may_read(const std::string& name, const std::string& writer, const std::string& topic, const std::string& mark,
                const std::string& client = "somebody") const {
    const std::string marks = mark.starts_with("provision/") || mark.ends_with("/desired") ? "centre" : "gate-2";
    EXPECT_TRUE(may_write(marks, mark, {"-r"})) << mark;
    EXPECT_TRUE(may_write(writer, topic, {"-r"})) << writer << " " << topic;
    const auto result =
        broker_.stranger("mosquitto_sub", name, {"-t", topic, "-t", mark, "-C", "1", "-v", "-W", "60", "-i", client});
    EXPECT_FALSE(result.out.empty()) << result.err;
    return result.out.starts_with(topic + " ");
  }
};

TEST_F(Rules, ADoorTellsOfItselfAlone) {
  for (const char* const rest :
       {"state", "health", "figures", "journal/opening", "live/opening", "answer/open", "desired/answer"}) {
    EXPECT_TRUE(may_write("gate-1", mqtt::topics::of("gate-1", rest))) << rest;
    EXPECT_FALSE(may_write("gate-1", mqtt::topics::of("gate-2", rest))) << rest;
  }
  EXPECT_TRUE(may_write("gate-1", "homeassistant/lock/gate-1/lock/config"));
  EXPECT_FALSE(may_write("gate-1", "homeassistant/lock/gate-2/lock/config"));
}

TEST_F(Rules, ADoorDoesNotSayWhatItIsToDo) {
  for (const char* const rest : {"cmd/open", "desired", "desired/parts/00"}) {
    EXPECT_FALSE(may_write("gate-1", mqtt::topics::of("gate-1", rest))) << rest;
  }
}

TEST_F(Rules, ADoorReadsWhatIsForItAlone) {
  const std::string mark = "doors/gate-1/desired";
  EXPECT_TRUE(may_read("gate-1", "centre", "doors/gate-1/desired/parts/00", mark));
  EXPECT_FALSE(may_read("gate-1", "centre", "doors/gate-2/desired", mark));
  EXPECT_FALSE(may_read("gate-1", "gate-2", "doors/gate-2/state", mark));
  EXPECT_FALSE(may_read("gate-1", "centre", "doors/gate-2/desired/parts/00", mark));
}

TEST_F(Rules, ADoorAnswersInItsOwnNameAlone) {
  EXPECT_TRUE(may_write("gate-1", "centre/operator/somebody/answer/gate-1"));
  EXPECT_FALSE(may_write("gate-1", "centre/operator/somebody/answer/gate-2"));
  EXPECT_FALSE(may_write("gate-1", "centre/operator/somebody/mark"));
}

TEST_F(Rules, AnAnswerIsForWhoAskedAlone) {
  const std::string mark = "doors/gate-2/state";
  const std::string answer = "centre/operator/desk/answer/gate-1";
  EXPECT_TRUE(may_read("operator", "gate-1", answer, mark, "desk"));
  EXPECT_FALSE(may_read("operator", "gate-1", answer, mark, "other"));
  EXPECT_FALSE(may_read("centre", "gate-1", answer, mark, "desk")) << "who takes his client id";
}

TEST_F(Rules, AnOperatorLooksAtAllAndCommandsAndWritesNothingElse) {
  EXPECT_TRUE(may_read("operator", "gate-1", "doors/gate-1/state", "doors/gate-2/state"));
  EXPECT_TRUE(may_write("operator", "doors/gate-1/cmd/open"));
  for (const char* const rest : {"state", "journal/opening", "desired", "desired/parts/00", "desired/answer"}) {
    EXPECT_FALSE(may_write("operator", mqtt::topics::of("gate-1", rest))) << rest;
  }
  EXPECT_FALSE(may_write("operator", "provision/new-1/answer"));
}

TEST_F(Rules, ThePushingCentreWritesNoJournalEither) {
  EXPECT_TRUE(may_write("centre", "doors/gate-1/desired"));
  EXPECT_TRUE(may_write("centre", "provision/new-1/answer"));
  EXPECT_FALSE(may_write("centre", "doors/gate-1/journal/opening"));
  EXPECT_FALSE(may_write("centre", "doors/gate-1/state"));
}

TEST_F(Rules, AStrangerAsksForItselfAlone) {
  EXPECT_TRUE(may_write("", "provision/new-1/request", {"-i", "new-1"}));
  EXPECT_FALSE(may_write("", "provision/new-2/request", {"-i", "new-1"}));
  EXPECT_FALSE(may_write("", "provision/new-1/answer", {"-i", "new-1"}));
  EXPECT_TRUE(may_read("", "centre", "provision/new-1/answer", "provision/new-1/answer", "new-1"));
  EXPECT_FALSE(may_read("", "centre", "provision/new-1/answer", "provision/new-2/answer", "new-2"));
}

TEST_F(Rules, AStrangerIsNobodyElseByCallingHimselfSo) {
  EXPECT_FALSE(may_write("", "doors/gate-1/cmd/open", {"-i", "new-1", "-u", "operator", "-P", "x"}));
  EXPECT_FALSE(may_write("", "doors/gate-1/state", {"-i", "new-1", "-u", "gate-1", "-P", "x"}));
}

TEST_F(Rules, WithoutACertificateNobodyComesInWhereDoorsAre) {
  const auto result = achost::test::run_program("/usr/bin/mosquitto_pub",
                                                {"-h", "localhost", "-p", std::to_string(broker_.port()), "--cafile",
                                                 broker_.file("ca.pem"), "-t", "doors/gate-1/state", "-m", "x"});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(retained("doors/#"), IsEmpty());
}

}  // namespace
}  // namespace fleet::test
