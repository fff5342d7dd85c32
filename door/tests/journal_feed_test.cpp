#include "door/journal/journal_feed.h"

#include <gmock/gmock.h>

#include "door/journal/entry_code.h"
#include "refhost/send.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

class JournalFeedTest : public testing::Test {
 protected:
  // What comes of the message, as text; the next entry is of it when it is one.
  std::vector<std::string> noted(std::size_t count) { return entries_.wait_for(count); }

 private:
  static std::string text_of(const Entry& entry) {
    return std::string(name_of(entry.kind)) + " " + (entry.user ? std::to_string(*entry.user) : "-") + " " +
           (entry.card ? std::to_string(*entry.card) : "-") + " " + json_of_fields(entry.fields);
  }

  Recorder<std::string> entries_;
  const JournalFeed feed_{[this](const Entry& entry) { entries_.add(text_of(entry)); }};
};

TEST_F(JournalFeedTest, NotesWhatTheBusTellsAndNothingElse) {
  using refhost::send;
  constexpr std::int64_t kUser = 7;
  send("door_state", {{"id", 1}, {"open", 1}, {"reason", 0}});  // the door notes that itself
  send("door_state", {{"id", 1}, {"open", 0}, {"reason", 0}});
  send("sec_box_rex_changed", {{"active", 0}});
  send("sec_box_rex_changed", {{"active", 1}});
  send("sec_box_rex_changed");
  send("enroll_rfid_successful", {{"user_card", std::int64_t{-1}}, {"user_id", kUser}});
  send("enroll_timeout", {{"user_id", kUser}});
  send("enroll_timeout", {{"user_id", kUser}, {"reason", "gone"}});
  send("enroller_error", {{"error", 9}, {"user_id", kUser}, {"reason", "another runs"}});
  send("reader_state", {{"state", "silent"}, {"cause", "no answer"}, {"way_out", "look"}});
  send("door_contact", {{"id", 1}, {"state", "forced"}});
  send("door_mode", {{"id", 1}, {"mode", "locked"}, {"by", "input"}});
  send("alarm", {{"name", "disk"}, {"text", "full"}, {"standing", 1}});
  send("alarm", {{"name", "disk"}, {"text", "full"}, {"standing", 0}});
  send("audit_log_created", {{"id", std::int64_t{12}}, {"time", "t"}, {"type", 1}, {"details", "d"}});
  send("audit_log_created", {{"id", std::int64_t{13}}, {"time", "t"}, {"type", 99}, {"details", "d"}});
  EXPECT_THAT(
      noted(13),
      testing::ElementsAre(
          R"(closing - - {"door":1})", "exit_request - - {}", R"(enrollment 7 18446744073709551615 {"outcome":"done"})",
          R"(enrollment 7 - {"outcome":"timeout"})", R"(enrollment 7 - {"outcome":"given_up","reason":"gone"})",
          R"(enrollment 7 - {"outcome":"failed","reason":"another runs","error":9})",
          R"(reader_state - - {"state":"silent","cause":"no answer"})", R"(contact - - {"state":"forced"})",
          R"(mode - - {"mode":"locked","asked":"input"})",
          R"(alarm - - {"name":"disk","state":"stands","text":"full"})",
          R"(alarm - - {"name":"disk","state":"over","text":"full"})", R"(audit - - {"audit":12,"type":"config"})",
          R"(audit - - {"audit":13,"type":"?"})"));
}

}  // namespace
}  // namespace achost::test
