// Why a card did not open the door, or did: the closed set of reasons. docs/reasons.md publishes it.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace achost::why {

enum class Reason : std::uint8_t {
  // What the line tells.
  kNeverInField,
  kReaderSilent,
  kReaderNoisy,
  kReaderGone,
  kReaderLent,
  kNotRunning,
  kBadFrame,
  kAnswerEnded,
  kAnswerInPieces,
  kHalfNotUsed,
  // What the rules on readings tell (suppression.h).
  kModeUnknown,
  kInhibitActive,
  kInhibitUnanswered,
  kDeadTime,
  kNeverTriggered,
  kWindowClosed,
  kReadBeforeTrigger,
  kReadBeforeStart,
  kOtherCardTooSoon,
  kSameCardTooSoon,
  kLostTurn,
  kAnnounced,
  kUnexplained,
  kSettingsUnknown,
  // What became of the announcement.
  kNobodysCard,
  kUserBlocked,
  kNotYetValid,
  kNoLongerValid,
  kHeldByEnrollment,
  kUsersUnreadable,
  kModeAwaited,
  kRelayOfDetector,
  kJournalUnwritable,
  kRelayOn,
  kDoorLocked,
  kDoorOpened,
  kDoorNotUsed,
  kStillHere,
  kOutsideSchedule,
  kTooSoonAfterEntry,
  kClockUntrusted,
};

enum class Stage : std::uint8_t { kLine, kRules, kDoor };  // who tells it

struct ReasonRow {
  Reason reason;
  std::string_view name;  // for programs; never changes
  Stage stage;
  std::string_view sentence;  // for people; the facts stand in braces
};

// By reason.
inline constexpr std::array<ReasonRow, 41> kReasons{{
    {Reason::kNeverInField, "never_in_field", Stage::kLine, "it was not in the field: no answer of the reader has it"},
    {Reason::kReaderSilent, "reader_silent", Stage::kLine, "the reader was silent from {since} on"},
    {Reason::kReaderNoisy, "reader_noisy", Stage::kLine, "the reader's answers were not good from {since} on: {text}"},
    {Reason::kReaderGone, "reader_gone", Stage::kLine, "the reader's port was gone from {since} on"},
    {Reason::kReaderLent, "reader_lent", Stage::kLine, "the reader was lent to {text} from {since} on"},
    {Reason::kNotRunning, "not_running", Stage::kLine, "the door daemon did not run from {since} to {until}"},
    {Reason::kBadFrame, "bad_frame", Stage::kLine,
     "a frame of the answer was bad ({text}), and what comes after one is not used"},
    {Reason::kAnswerEnded, "answer_ended", Stage::kLine,
     "something else than a tag's report stood in the half of the answer that counts, so nothing of it was used"},
    {Reason::kAnswerInPieces, "answer_in_pieces", Stage::kLine,
     "the answer came in pieces, and the plug-in may have taken the first of them for all of it"},
    {Reason::kHalfNotUsed, "half_not_used", Stage::kLine,
     "it was report {index} of {count} in the answer, of which only the last half is used, rounded up"},
    {Reason::kModeUnknown, "mode_unknown", Stage::kRules,
     "the operation mode is none that is known: no reading is used"},
    {Reason::kInhibitActive, "inhibit_active", Stage::kRules, "the inhibit input was active from {since} on"},
    {Reason::kInhibitUnanswered, "inhibit_unanswered", Stage::kRules,
     "nobody told the level of the inhibit input from {since} on, which counts as active"},
    {Reason::kDeadTime, "dead_time", Stage::kRules,
     "the inhibit input went idle {ago} before, and trigger_timeout is {value}"},
    {Reason::kNeverTriggered, "never_triggered", Stage::kRules, "the trigger input has not been active yet"},
    {Reason::kWindowClosed, "window_closed", Stage::kRules,
     "the trigger input went active {ago} before, and trigger_timeout is {value}"},
    {Reason::kReadBeforeTrigger, "read_before_trigger", Stage::kRules,
     "it was read before the trigger input went active at {since}"},
    {Reason::kReadBeforeStart, "read_before_start", Stage::kRules,
     "it was read before the plug-in had begun to look at readings at {since}"},
    {Reason::kOtherCardTooSoon, "other_card_too_soon", Stage::kRules,
     "card {card} was announced {ago} before, and read_interval_diff_tags was {value}"},
    {Reason::kSameCardTooSoon, "same_card_too_soon", Stage::kRules,
     "the same card was announced {ago} before, and read_interval is {value}"},
    {Reason::kLostTurn, "lost_turn", Stage::kRules, "card {card} was read at the same time and had the turn"},
    {Reason::kAnnounced, "announced", Stage::kRules, "it was announced at {since}"},
    {Reason::kUnexplained, "unexplained", Stage::kRules, "no rule held it back, and it was not announced"},
    {Reason::kSettingsUnknown, "settings_unknown", Stage::kRules,
     "what the settings were then is not recorded, and so not what the rules made of it"},
    {Reason::kNobodysCard, "nobodys_card", Stage::kDoor, "it is nobody's card"},
    {Reason::kUserBlocked, "user_blocked", Stage::kDoor, "its user {user} is blocked"},
    {Reason::kNotYetValid, "not_yet_valid", Stage::kDoor, "its user {user} is valid from {since} on"},
    {Reason::kNoLongerValid, "no_longer_valid", Stage::kDoor, "its user {user} was valid until {until}"},
    {Reason::kHeldByEnrollment, "held_by_enrollment", Stage::kDoor,
     "a card was being enrolled, and no card opened the door"},
    {Reason::kUsersUnreadable, "users_unreadable", Stage::kDoor, "the users could not be read: {text}"},
    {Reason::kModeAwaited, "mode_awaited", Stage::kDoor,
     "the plug-in had not taken the operation_mode that is stored, and no card opened the door"},
    {Reason::kRelayOfDetector, "relay_of_detector", Stage::kDoor, "the door's relay belongs to the tag detector"},
    {Reason::kJournalUnwritable, "journal_unwritable", Stage::kDoor,
     "the journal could not be written, and host.journal_required is on"},
    {Reason::kRelayOn, "relay_on", Stage::kDoor, "the relay was on from {since} to {until}"},
    {Reason::kDoorLocked, "door_locked", Stage::kDoor, "the door was in mode locked, and no card opened it"},
    {Reason::kDoorOpened, "door_opened", Stage::kDoor, "the door itself was opened at {since}"},
    {Reason::kDoorNotUsed, "door_not_used", Stage::kDoor, "the door itself was not opened then"},
    {Reason::kStillHere, "still_here", Stage::kDoor,
     "it had opened the door at {since} and had not left since: host.away_time is {value}"},
    {Reason::kOutsideSchedule, "outside_schedule", Stage::kDoor,
     "schedule {text} of its user {user} was shut, and opens next at {since}"},
    {Reason::kTooSoonAfterEntry, "too_soon_after_entry", Stage::kDoor,
     "its user {user} had come in already, and could again from {since} on"},
    {Reason::kClockUntrusted, "clock_untrusted", Stage::kDoor,
     "its user {user} has a rule of time, and the clock, which had shown {since} before, was not to be trusted"},
}};

constexpr const ReasonRow& row_of(Reason reason) { return kReasons[static_cast<std::size_t>(reason)]; }

// Nothing for a name that is none.
std::optional<Reason> reason_of(std::string_view name);

// The values of the facts of a sentence, by name, such as "since": "08:02:11.204".
using Facts = std::map<std::string_view, std::string>;

// Tells one of them when it is asked for it; nothing: it is not known.
using FactTeller = std::function<std::optional<std::string>(std::string_view name)>;

// The reason as a sentence. A fact that is not known is "?".
std::string sentence(Reason reason, const Facts& facts);
std::string sentence_of(Reason reason, const FactTeller& tell);

}  // namespace achost::why
