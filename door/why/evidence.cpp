#include "door/why/evidence.h"

#include <algorithm>
#include <exception>
#include <iterator>

#include "door/journal/journal.h"
#include "refhost/log.h"

namespace achost::why {
namespace {

constexpr std::int64_t kMinute = 60'000;  // ms

// What belongs to the time asked for may be written as long before or after it: the door may stand open for as long,
// and a sighting is written when it ends, or after a minute.
constexpr std::int64_t kAround = 2 * kMinute;

void add_last(const std::filesystem::path& state, std::vector<Kind> kinds, std::int64_t before, Evidence& evidence) {
  Journal::read(state, {.kinds = std::move(kinds), .until = before, .last = 1},
                [&](const JournalEntry& entry) { evidence.entries.push_back(entry); });
}

}  // namespace

Evidence evidence_of(const std::filesystem::path& state, const Question& question) {
  Evidence evidence;
  const auto since = question.from - kAround;
  const auto until = question.to + kAround;
  // How things stood before.
  add_last(state, {Kind::reader_state}, since, evidence);
  add_last(state, {Kind::start, Kind::end}, since, evidence);
  Journal::read(state,
                {.kinds = {Kind::identification, Kind::opening, Kind::closing, Kind::refusal, Kind::reader_state,
                           Kind::start, Kind::end, Kind::contact, Kind::mode},
                 .since = since,
                 .until = until},
                [&](const JournalEntry& entry) { evidence.entries.push_back(entry); });
  std::ranges::sort(evidence.entries, {}, &JournalEntry::number);
  Journal::read(state, {.kinds = {Kind::sighting}, .card = question.card, .since = since, .until = until},
                [&](const JournalEntry& entry) {
                  try {
                    evidence.sightings.push_back(sighting_of(entry.entry));
                  } catch (const std::exception& failure) {
                    refhost::log::warning("why: entry " + std::to_string(entry.number) +
                                          " of the journal is no sighting: " + failure.what());
                  }
                });
  return evidence;
}

}  // namespace achost::why
