#include "door/services/enroller_service.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include "door/tests/service_fixture.h"
#include "refhost/tests/captured_log.h"

namespace achost::test {
namespace {

using Texts = std::vector<std::string>;

class Enroller : public Services {
 protected:
  Enroller() {
    watch({{"enroll_rfid_successful", {"user_card", "user_id"}},
           {"enroll_timeout", {}},
           {"enroller_error", {"error", "reason"}}});
  }

  static void order(std::int64_t user, int remote = 0, const std::string& registration = "", int state = 1) {
    refhost::send("enroll_card",
                  {{"state", state}, {"user_id", user}, {"remote", remote}, {"registration", registration}});
  }
  static void present(std::int64_t card) { refhost::send("identifier_new_card", {{"value", card}}); }

  UserStore users{directory(), UserStore::Access::read_write};
  EnrollerService enroller{users};
};

TEST_F(Enroller, TheNextCardIsTheUsers) {
  order(7, 0, "r-1");
  present(33);
  present(34);
  EXPECT_EQ(seen(1), Texts({"enroll_rfid_successful user_card=33 user_id=7"}));
  ASSERT_EQ(users.cards().size(), 1U) << "one card an enrollment";
  EXPECT_EQ(users.cards()[0].value, 33U);
  EXPECT_EQ(users.cards()[0].user, 7);
  EXPECT_EQ(users.cards()[0].registration, "r-1");
}

TEST_F(Enroller, EachMessageHasTheNameOfTheUser) {
  watch({{"enroller_waits", {"user_id", "user_name"}},
         {"enroll_rfid_successful", {"user_name"}},
         {"enroll_timeout", {"user_name"}},
         {"enroller_error", {"user_name"}}});
  users.put({.id = 7, .name = "Ana"});
  order(7);
  present(33);
  order(7);
  order(7);
  order(7, 0, "", 0);
  order(8);
  EXPECT_EQ(seen(6), Texts({"enroller_waits user_id=7 user_name=Ana", "enroll_rfid_successful user_name=Ana",
                            "enroller_waits user_id=7 user_name=Ana", "enroller_error user_name=Ana",
                            "enroll_timeout user_name=Ana", "enroller_waits user_id=8"}))
      << "who is refused waits for nothing";
}

TEST_F(Enroller, ACardBeforeTheOrderIsNotTaken) {
  present(32);
  order(7);
  present(33);
  EXPECT_EQ(seen(1), Texts({"enroll_rfid_successful user_card=33 user_id=7"}));
}

TEST_F(Enroller, WithRemoteTheAskerKeepsTheCard) {
  order(7, 1);
  present(33);
  EXPECT_EQ(seen(1), Texts({"enroll_rfid_successful user_card=33 user_id=7"}));
  EXPECT_TRUE(users.cards().empty());
}

TEST_F(Enroller, ACardThatIsSomebodysIsRefused) {
  users.bind(33, 8, "");
  for (const int remote : {0, 1}) {
    order(7, remote);
    present(33);
    EXPECT_EQ(seen(static_cast<std::size_t>(remote) + 1).back(),
              "enroller_error error=1 reason=the card is somebody's already");
  }
  EXPECT_EQ(users.owner_of(33), 8);
}

TEST_F(Enroller, WithoutACardItTimesOut) {
  set("enroll_timeout", 1000);
  order(7);
  EXPECT_EQ(seen(1), Texts({"enroll_timeout"}));
  present(33);
  set("enroll_timeout", 600000);
  order(8);
  present(34);
  EXPECT_EQ(seen(2).back(), "enroll_rfid_successful user_card=34 user_id=8") << "33 came too late";
}

TEST_F(Enroller, StateZeroEndsIt) {
  order(7, 0, "", 0);  // of nothing
  order(7);
  order(7, 0, "", 0);
  present(33);
  EXPECT_EQ(seen(1), Texts({"enroll_timeout"}));
  order(8);
  present(34);
  EXPECT_EQ(seen(2).back(), "enroll_rfid_successful user_card=34 user_id=8");
}

TEST_F(Enroller, ASecondOneIsRefusedAndTheFirstGoesOn) {
  order(7);
  order(8);
  present(33);
  EXPECT_EQ(seen(2), Texts({"enroller_error error=9 reason=another enrollment runs",
                            "enroll_rfid_successful user_card=33 user_id=7"}));
}

TEST_F(Enroller, AReservationHasTheOutcomeAndIsAlone) {
  auto reservation = enroller.reserve(7, nullptr);
  EXPECT_THROW(enroller.reserve(7, nullptr), EnrollerBusy);
  EXPECT_THROW(enroller.reserve(8, nullptr), EnrollerBusy);
  present(32);  // before the plug-in has ordered anything
  order(8);     // somebody else's
  order(7);
  present(33);
  EXPECT_EQ(reservation.outcome.get().card, 33U);
  EXPECT_EQ(seen(2), Texts({"enroller_error error=9 reason=another enrollment runs",
                            "enroll_rfid_successful user_card=33 user_id=7"}));
  EXPECT_NO_THROW(enroller.reserve(7, nullptr));
}

TEST_F(Enroller, AReservationGivenUpBindsNoCardThatComesLater) {
  auto running = enroller.reserve(7, nullptr);
  order(7);
  order(0);  // refused: the order before it has been taken by then
  EXPECT_THAT(seen(1).back(), testing::StartsWith("enroller_error error=0"));
  enroller.give_up(running.id);
  EXPECT_EQ(running.outcome.get().failure, "given up: whoever asked for it has gone");
  present(33);
  EXPECT_EQ(seen(2).back(), "enroll_timeout") << "so that actions are allowed again";

  auto asked = enroller.reserve(7, nullptr);
  enroller.give_up(asked.id);
  EXPECT_THROW(enroller.reserve(7, nullptr), EnrollerBusy) << "the next order would be the old one";
  order(7);
  present(34);
  EXPECT_EQ(seen(3).back(), "enroll_timeout");
  EXPECT_TRUE(users.cards().empty());
  auto next = enroller.reserve(7, nullptr);
  order(7);
  present(35);
  EXPECT_EQ(next.outcome.get().card, 35U);
}

TEST_F(Enroller, ACardThatComesWhenTheAskerHasGoneIsNobodys) {
  auto reservation = enroller.reserve(7, [] { return false; });
  order(7);
  present(33);
  EXPECT_EQ(reservation.outcome.get().failure, "given up: whoever asked for it has gone");
  EXPECT_TRUE(users.cards().empty());
}

TEST_F(Enroller, AReservationThatThePluginDoesNotTakeUpEnds) {
  set("enroll_timeout", 1000);
  auto reservation = enroller.reserve(7, nullptr);
  EXPECT_EQ(reservation.outcome.get().failure, "given up: the plug-in has not taken it up");
}

TEST_F(Enroller, AnOrderThatIsNoneIsRefused) {
  refhost::test::capture_log();
  order(0);
  order(-3);
  refhost::send("enroll_card", {{"state", 1}, {"user_id", 7}});  // an int is no int64
  refhost::send("enroll_card", {{"user_id", std::int64_t{7}}});
  order(7, 0, std::string(257, 'x'));
  EXPECT_THAT(seen(5), testing::Each(testing::StartsWith("enroller_error error=0 reason=")));
  const std::string log = refhost::test::captured_log();
  EXPECT_NE(log.find("without an int64 \"user_id\" of 1 or more"), std::string::npos) << log;
  EXPECT_NE(log.find("a registration of 257 bytes: at most 256 are taken"), std::string::npos) << log;
  order(7, 0, std::string(256, 'x'));
  present(33);
  EXPECT_EQ(seen(6).back(), "enroll_rfid_successful user_card=33 user_id=7");
}

TEST_F(Enroller, ACardThatCannotBeStoredIsAnError) {
  SQLite::Database(directory() / "users.db", SQLite::OPEN_READWRITE).exec("DROP TABLE cards");
  refhost::test::capture_log();
  order(7);
  present(33);
  EXPECT_THAT(seen(1),
              testing::ElementsAre(testing::AllOf(
                  testing::StartsWith("enroller_error error=0 reason=the card is not stored: "),
                  testing::HasSubstr((directory() / "users.db").string()), testing::HasSubstr("no such table"))));
  EXPECT_NE(refhost::test::captured_log().find("the card is not stored"), std::string::npos);
}

}  // namespace
}  // namespace achost::test
