// Enrollments at a small door.
#include <signal.h>

#include "tests/device_fixture.h"

namespace device_test {

using testing::HasSubstr;

TEST_F(Device, AnEnrollmentMakesACardKnown) {
  start({"--set", "read_interval=250"});
  Achost enrolling({"enroll", "--user", "9", "--registration", "r-9", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("state"), "started");
  output({"field", "add", kUnknown});
  const auto result = enrolling.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "card 33 (0x21) is of user 9\n");
  EXPECT_EQ(next_event("enrollment").at("state"), "done");
  EXPECT_EQ(next_event("door_open").at("reason"), "identification") << "when it is announced again";
  const auto card = json::parse(output({"card", "list", "--json"}));
  EXPECT_EQ(card.at("user"), 9);
  EXPECT_EQ(card.at("registration"), "r-9");
}

TEST_F(Device, ACardIdentifiedShortlyBeforeAnEnrollmentIsTakenOnlyAfterItsInterval) {
  start({"--set", "read_interval=1500"});
  const auto before = std::chrono::steady_clock::now();
  output({"field", "add", kUnknown});
  EXPECT_EQ(next_event("identification").at("outcome"), "unknown");
  EXPECT_EQ(output({"enroll", "--user", "9"}), "card 33 (0x21) is of user 9\n");
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1500));
}

TEST_F(Device, AnEnrollmentIsToldWithTheNameOfTheUser) {
  start();
  output({"user", "put", "9", "--name", "Ana"});
  Achost enrolling({"enroll", "--user", "9", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("user_name"), "Ana");
  EXPECT_THAT(command({"enroll", "--user", "9"}).err, HasSubstr("achost: enrollment of Ana (9): failed: another"));
  output({"field", "add", kUnknown});
  EXPECT_EQ(enrolling.wait().out, "card 33 (0x21) is of Ana (9)\n");
}

TEST_F(Device, AnEnrollmentWhileAnotherRunsIsRefusedAndTheFirstGoesOn) {
  start();
  Achost first({"enroll", "--user", "7", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("user_id"), 7);
  const auto second = command({"enroll", "--user", "8"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("achost: enrollment of user 8: failed: another enrollment runs\n"));
  output({"field", "add", kUnknown});
  EXPECT_EQ(first.wait().out, "card 33 (0x21) is of user 7\n");
}

TEST_F(Device, AnEnrollmentEndsWithWhoeverAskedForIt) {
  start({"--set", "read_interval=250"});
  for (const int number : {SIGKILL, SIGINT}) {
    Achost asking({"enroll", "--user", "7", "--state", state()});
    EXPECT_EQ(next_event("enrollment").at("state"), "started");
    asking.signal(number);
    asking.wait();
    output({"field", "add", kUnknown});
    const auto events = next_events({"enrollment", "identification"});
    EXPECT_EQ(events.at("enrollment").at("state"), "given_up") << "signal " << number;
    EXPECT_EQ(events.at("enrollment").value("reason", ""), "whoever asked for it has gone");
    EXPECT_NE(events.at("identification").at("outcome"), "opens") << "signal " << number;
    EXPECT_EQ(output({"card", "list", "--json"}), "");
    output({"field", "clear"});
  }
  Achost next({"enroll", "--user", "8", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("state"), "started");
  output({"field", "add", kUnknown});
  EXPECT_EQ(next.wait().out, "card 33 (0x21) is of user 8\n") << "the next one is not disturbed";
}

TEST_F(Device, ASecondEnrollmentOfTheSameUserIsRefusedAndTheFirstHasItsOwnOutcome) {
  start();
  Achost first({"enroll", "--user", "7", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("user_id"), 7);
  const auto second = command({"enroll", "--user", "7"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("achost: enrollment of user 7: failed: another enrollment runs\n"));
  output({"field", "add", kUnknown});
  const auto result = first.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "card 33 (0x21) is of user 7\n");
}

TEST_F(Device, AnEnrollmentWithoutACardTimesOut) {
  start({"--set", "host.enroll_timeout=1000"});
  const auto result = command({"enroll", "--user", "7"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("enrollment of user 7: no card came in time\n"));
  EXPECT_THAT(end().err, HasSubstr("Falha ao cadastrar o cart\xC3\xA3o: timeout\n")) << "the plug-in's own words";
}

}  // namespace device_test
