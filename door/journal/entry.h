// What the journal holds.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace achost {

// The kinds of entries. A number that was given once is not given to another kind: it is what the file holds.
enum class Kind : int {
  identification = 1,
  opening = 2,
  closing = 3,
  exit_request = 4,
  enrollment = 5,
  user_change = 6,
  card_change = 7,
  setting_change = 8,
  reader_state = 9,
  alarm = 10,
  start = 11,
  end = 12,
  clock_jump = 13,
  gap = 14,
  retention = 15,
  sighting = 16,
  audit = 17,
  refusal = 18,
  disagreement = 19,
  contact = 20,
  mode = 21,
  command = 22,
  schedule_change = 23,
};

struct KindName {
  Kind kind;
  std::string_view name;
  std::string_view meaning;  // for a person
};

// All kinds, in the order of their numbers.
inline constexpr auto kKinds = std::to_array<KindName>({
    {Kind::identification, "identification", "a card was held to the reader, and what became of it"},
    {Kind::opening, "opening", "the door is opened; written before its relay moves"},
    {Kind::closing, "closing", "the door is closed"},
    {Kind::exit_request, "exit_request", "somebody inside wants to leave"},
    {Kind::enrollment, "enrollment", "what became of an enrollment"},
    {Kind::user_change, "user_change", "a user was made, changed or removed"},
    {Kind::card_change, "card_change", "a card was given to a user or taken from one"},
    {Kind::setting_change, "setting_change", "a setting has another value"},
    {Kind::reader_state, "reader_state", "the reader answers, is silent, is gone, is lent"},
    {Kind::alarm, "alarm", "an alarm stands, or is over"},
    {Kind::start, "start", "the daemon begins; and what the one before it came to"},
    {Kind::end, "end", "the daemon ends, and why"},
    {Kind::clock_jump, "clock_jump", "the machine's clock was set, or the machine slept"},
    {Kind::gap, "gap", "entries are missing here, and why"},
    {Kind::retention, "retention", "the oldest entries have gone, as the settings say"},
    {Kind::sighting, "sighting", "a card was in the reader's field, from when to when"},
    {Kind::audit, "audit", "the audit log has a record of that number"},
    {Kind::refusal, "refusal", "the door was to open, and could not"},
    {Kind::disagreement, "disagreement", "the plug-in has announced, or not, what the rules on readings say otherwise"},
    {Kind::contact, "contact", "the door was opened, forced, left open, not used after a release, or shut"},
    {Kind::mode, "mode", "the door is in another mode, and who asks for it"},
    {Kind::command, "command", "somebody has told the door, its lines or its reader to do something"},
    {Kind::schedule_change, "schedule_change", "a schedule or a holiday was made, changed or removed"},
});

static_assert([] {
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    if (static_cast<std::size_t>(kKinds.at(i).kind) != i + 1) {
      return false;
    }
  }
  return true;
}());

constexpr std::string_view name_of(Kind kind) { return kKinds.at(static_cast<std::size_t>(kind) - 1).name; }

// The kind of that name; nothing when there is none.
std::optional<Kind> kind_of(std::string_view name);

// Of a field, in bytes; a longer one is cut.
inline constexpr std::size_t kLongestText = 4096;

using EntryField = std::pair<std::string, std::variant<std::int64_t, std::string>>;

// What happened, as whoever notes it tells it.
struct Entry {
  Kind kind = Kind::alarm;
  std::optional<std::int64_t> user = {};
  std::optional<std::uint64_t> card = {};
  std::vector<EntryField> fields = {};  // what else there is to say, in the order in which it is shown

  bool operator==(const Entry&) const = default;
};

// When it was.
struct EntryTime {
  std::int64_t wall = 0;       // ms since 1970 UTC, by the machine's clock
  std::int64_t offset = 0;     // of the local time, in seconds east of UTC
  std::int64_t monotonic = 0;  // ms since the machine's start
  bool is_trusted = false;     // something kept the clock right

  bool operator==(const EntryTime&) const = default;
};

// An entry of the journal.
struct JournalEntry {
  std::int64_t number = 0;  // counted from 1; never given twice
  EntryTime time = {};
  std::string boot = {};  // of the machine: the kernel's random id of it; empty: not known
  Entry entry = {};

  bool operator==(const JournalEntry&) const = default;
};

}  // namespace achost
