#include "door/services/event.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <ctime>
#include <limits>

#include "door/run/printer.h"
#include "refhost/tests/support.h"

namespace achost {
namespace {

// 2026-01-02 03:04:05.006 UTC
const auto kTime = std::chrono::system_clock::time_point(std::chrono::milliseconds(1767323045006));

class EventTest : public testing::Test {
 protected:
  EventTest() { set_zone("UTC"); }
  ~EventTest() override { unsetenv("TZ"); }

  static void set_zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  static std::string line(const ac::Message& message) { return Event::from(message, kTime).value().line(false, true); }
  static std::string json(const ac::Message& message) { return Event::from(message, kTime).value().json(); }

  // The decision about a card.
  static void decide(ac::Message& message, std::uint64_t card, const std::string& outcome) {
    message.add_int64("value", static_cast<std::int64_t>(card));
    message.add_int64("device_id", 7);
    message.add_string("uuid", "a-uuid");
    message.add_string("outcome", outcome);
  }
};

TEST_F(EventTest, AKnownCardIsWelcome) {
  ac::Message message("identifier_decision");
  decide(message, 33, "opens");
  message.add_int64("user_id", 4);
  EXPECT_EQ(line(message), "03:04:05.006  card 33 (0x21)                welcome, user 4");
  EXPECT_EQ(json(message),
            R"({"event":"identification","time":"2026-01-02T03:04:05.006+00:00","card":33,"card_hex":"0x21",)"
            R"("device_id":7,"uuid":"a-uuid","outcome":"opens","user_id":4})");
}

TEST_F(EventTest, AUserWithANameIsSaidByIt) {
  const std::vector<std::pair<std::string, std::string>> outcomes = {
      {"opens", "welcome, Ana\\n (4)"},
      {"blocked", "refused, Ana\\n (4) is blocked"},
      {"not_yet_valid", "refused, the time of Ana\\n (4) has not come"},
      {"no_longer_valid", "refused, the time of Ana\\n (4) is over"}};
  for (const auto& [outcome, words] : outcomes) {
    ac::Message message("identifier_decision");
    decide(message, 33, outcome);
    message.add_int64("user_id", 4);
    message.add_string("user_name", "Ana\n");
    EXPECT_TRUE(line(message).ends_with("  " + words)) << line(message);
    EXPECT_NE(json(message).find(R"("user_id":4,"user_name":"Ana\n"})"), std::string::npos) << json(message);
  }
}

TEST_F(EventTest, WhatTheDoorDoesAndItsModeAreSaid) {
  ac::Message contact("door_contact");
  contact.add_int("id", 1);
  contact.add_string("state", "forced");
  EXPECT_EQ(line(contact), "03:04:05.006  door 1                        was forced: opened without a release");
  EXPECT_EQ(json(contact),
            R"({"event":"door_contact","time":"2026-01-02T03:04:05.006+00:00","door":1,"state":"forced"})");
  ac::Message mode("door_mode");
  mode.add_int("id", 1);
  mode.add_string("mode", "unlocked");
  mode.add_string("by", "input");
  EXPECT_EQ(line(mode), "03:04:05.006  door 1                        is in mode unlocked, by the mode switch");
  EXPECT_EQ(json(mode),
            R"({"event":"door_mode","time":"2026-01-02T03:04:05.006+00:00","door":1,"mode":"unlocked","by":"input"})");
}

TEST_F(EventTest, TheOtherOutcomesAreSaid) {
  const std::vector<std::pair<std::string, std::string>> outcomes = {
      {"unknown", "refused, nobody's card"},
      {"held_back", "held back, a card is being enrolled"},
      {"failed", "refused, the users cannot be read"},
      {"door_locked", "refused, the door is locked"},
      {"new\n", "new\\n"}};
  for (const auto& [outcome, words] : outcomes) {
    ac::Message message("identifier_decision");
    decide(message, 33, outcome);
    EXPECT_TRUE(line(message).ends_with("  " + words)) << line(message);
  }
}

TEST_F(EventTest, CardsOfAllBitsAreUnsigned) {
  ac::Message message("identifier_decision");
  decide(message, std::numeric_limits<std::uint64_t>::max(), "unknown");
  EXPECT_NE(json(message).find(R"("card":18446744073709551615,"card_hex":"0xffffffffffffffff")"), std::string::npos);
  EXPECT_NE(line(message).find("card 18446744073709551615 (0xffffffffffffffff) refused"), std::string::npos);
}

TEST_F(EventTest, ADoorOpensWithItsReason) {
  for (const auto& [reason, words] :
       std::vector<std::pair<int, std::string>>{{0, "identification"}, {1, "exit request"}, {5, "reason 5"}}) {
    ac::Message message("door_state");
    message.add_int("id", 1);
    message.add_int("open", 1);
    message.add_int("reason", reason);
    EXPECT_EQ(line(message), "03:04:05.006  door 1                        opens: " + words);
    EXPECT_EQ(json(message),
              R"({"event":"door_open","time":"2026-01-02T03:04:05.006+00:00","door":1,"reason":")" + words + "\"}");
  }
}

TEST_F(EventTest, AClosingDoorIsNoEvent) {
  ac::Message message("door_state");
  message.add_int("id", 1);
  message.add_int("open", 0);
  EXPECT_EQ(Event::from(message, kTime), std::nullopt);
}

TEST_F(EventTest, AnEnrollmentIsFollowed) {
  ac::Message begun("enroller_waits");
  begun.add_int64("user_id", 2);
  EXPECT_EQ(line(begun), "03:04:05.006  enrollment                    waits for a card of user 2");
  ac::Message done("enroll_rfid_successful");
  done.add_int64("user_card", 33);
  done.add_int64("user_id", 2);
  EXPECT_EQ(line(done), "03:04:05.006  enrollment                    card 33 (0x21) is now of user 2");
  EXPECT_NE(json(done).find(R"("state":"done","card":33,"card_hex":"0x21","user_id":2)"), std::string::npos);
  EXPECT_TRUE(line(ac::Message("enroll_timeout")).ends_with("no card came in time"));
  for (const auto& [error, words] : std::vector<std::pair<int, std::string>>{
           {1, "the card is somebody's already"}, {9, "another enrollment runs"}, {0, "error 0"}}) {
    ac::Message failed("enroller_error");
    failed.add_int("error", error);
    EXPECT_TRUE(line(failed).ends_with("failed: " + words)) << line(failed);
  }
}

TEST_F(EventTest, AnEnrollmentSaysTheNameOfItsUser) {
  const std::vector<std::pair<std::string, std::string>> words = {
      {"enroller_waits", "waits for a card of Ana\\n (2)"},
      {"enroll_rfid_successful", "card 0 (0x0) is now of Ana\\n (2)"},
      {"enroll_timeout", "no card came in time for Ana\\n (2)"},
      {"enroller_error", "failed for Ana\\n (2): error 0"}};
  for (const auto& [type, text] : words) {
    ac::Message message(type);
    message.add_int64("user_id", 2);
    message.add_string("user_name", "Ana\n");
    EXPECT_TRUE(line(message).ends_with("  " + text)) << line(message);
    EXPECT_NE(json(message).find(R"("user_id":2,"user_name":"Ana\n"})"), std::string::npos) << json(message);
  }
  ac::Message given_up("enroll_timeout");
  given_up.add_int64("user_id", 2);
  given_up.add_string("reason", "gone");
  EXPECT_TRUE(line(given_up).ends_with("  given up for user 2: gone")) << line(given_up);
}

TEST_F(EventTest, TheReasonOfAFailedEnrollmentIsToldInWords) {
  ac::Message failed("enroller_error");
  failed.add_int("error", 0);
  failed.add_string("reason", "users.db: database or disk is full\n");
  EXPECT_TRUE(line(failed).ends_with("failed: users.db: database or disk is full\\n")) << line(failed);
  EXPECT_NE(json(failed).find(R"("reason":"users.db: database or disk is full\n")"), std::string::npos);
}

TEST_F(EventTest, ACardThatIsNotShownHasItsLastFourDigits) {
  const auto masked = [](const ac::Message& message) { return Event::from(message, kTime).value().line(false, false); };
  ac::Message message("identifier_decision");
  decide(message, 305419896, "unknown");
  EXPECT_EQ(line(message), "03:04:05.006  card 305419896 (0x12345678)   refused, nobody's card");
  EXPECT_EQ(masked(message), "03:04:05.006  card *****9896                refused, nobody's card");
  ac::Message done("enroll_rfid_successful");
  done.add_int64("user_card", 305419896);
  done.add_int64("user_id", 2);
  EXPECT_EQ(masked(done), "03:04:05.006  enrollment                    card *****9896 is now of user 2");
}

TEST_F(EventTest, ALineOfARelayIsTheRelay) {
  ac::Message relay("gpio_notified");
  relay.add_int("gpio", 18);
  relay.add_int("value", 1);
  EXPECT_EQ(line(relay), "03:04:05.006  relay 2                       on");
  EXPECT_NE(json(relay).find(R"("event":"relay")"), std::string::npos);
  EXPECT_NE(json(relay).find(R"("relay":2,"on":true,"gpio":18)"), std::string::npos);
  for (const int line_number : {1, 16, 25}) {
    ac::Message input("gpio_notified");
    input.add_int("gpio", line_number);
    input.add_int("value", 0);
    EXPECT_NE(json(input).find(R"("event":"gpio")"), std::string::npos) << line_number;
  }
}

TEST_F(EventTest, AChangedSettingHasBothValues) {
  ac::Message message("config_param_set");
  message.add_string("module", "uhf");
  message.add_string("param", "read_interval");
  message.add_string("value", "500");
  message.add_string("previous_value", "3000");
  EXPECT_EQ(line(message), "03:04:05.006  setting uhf.read_interval     3000 becomes 500");
  EXPECT_EQ(line(ac::Message("config_param_set")).find("setting system."), 14U) << "no module";
}

TEST_F(EventTest, AnAuditRecordHasItsLabel) {
  ac::Message message("audit_log_created");
  message.add_int64("id", 12);
  message.add_int("type", 8);
  message.add_string("details", "Device boot\noccurred");
  EXPECT_EQ(line(message), "03:04:05.006  audit record 12               boot: Device boot\\noccurred");
  ac::Message odd("audit_log_created");
  odd.add_int("type", -1);
  EXPECT_NE(line(odd).find("?: "), std::string::npos);
}

TEST_F(EventTest, AnAlarmIsSaidWhenItStandsAndWhenItIsOver) {
  for (const bool stands : {true, false}) {
    ac::Message message("alarm");
    message.add_string("name", "disk");
    message.add_string("text", "full\n");
    message.add_int("standing", stands ? 1 : 0);
    EXPECT_EQ(line(message),
              std::string("03:04:05.006  alarm disk                    ") + (stands ? "full\\n" : "over: full\\n"));
    EXPECT_TRUE(json(message).ends_with(R"("name":"disk","text":"full\n","standing":)" +
                                        std::string(stands ? "true}" : "false}")))
        << json(message);
  }
}

TEST_F(EventTest, MessagesWithoutFieldsAreEventsAllTheSame) {
  for (const std::string& type : Event::message_types()) {
    const auto event = Event::from(ac::Message(type), kTime);
    EXPECT_EQ(event.has_value(), type != "door_state") << type;
    EXPECT_TRUE(!event.has_value() || nlohmann::json::accept(event->json())) << type;
  }
}

TEST_F(EventTest, ColouredLineIsTheSameOtherwise) {
  ac::Message message("identifier_decision");
  decide(message, 33, "unknown");
  std::string coloured = Event::from(message, kTime).value().line(true, true);
  EXPECT_EQ(coloured.find("\x1b[1;31m"), 14U);
  coloured.erase(14, 7);
  EXPECT_EQ(coloured, line(message) + "\x1b[0m");
}

TEST_F(EventTest, JsonStaysOneLineOfValidTextWhateverTheTexts) {
  ac::Message message("config_param_set");
  message.add_string("module", "a\n\"\xff");
  message.add_string("value", "\xff\x01");
  EXPECT_EQ(json(message).find('\n'), std::string::npos);
  EXPECT_TRUE(nlohmann::json::accept(json(message))) << json(message);
}

TEST_F(EventTest, JsonTimeHasTheZone) {
  set_zone("XXX+3:30");  // as POSIX has it: west of Greenwich
  EXPECT_NE(json(ac::Message("enroll_timeout")).find("\"2026-01-01T23:34:05.006-03:30\""), std::string::npos);
}

TEST(Summary, CountsIdentificationsCardsAndOpenings) {
  EXPECT_EQ(summary_text(12.04, 7, 4, 100, 3), "12.0 s: 7 identifications of 4 cards, the door opened 3 times");
  EXPECT_EQ(summary_text(0.5, 1, 1, 100, 1), "0.5 s: 1 identification of 1 card, the door opened 1 time");
  EXPECT_EQ(summary_text(1, 0, 0, 100, 0), "1.0 s: 0 identifications of 0 cards, the door opened 0 times");
  EXPECT_EQ(summary_text(1, 500, 100, 100, 0),
            "1.0 s: 500 identifications of at least 100 cards, the door opened 0 times");
}

}  // namespace
}  // namespace achost
