#include "door/control/journal_follow.h"

#include <algorithm>
#include <chrono>

#include "door/control/answer_parts.h"
#include "door/control/journal_commands.h"
#include "door/control/journal_rows.h"
#include "door/journal/journal.h"

namespace achost {
namespace {

using Type = ControlField::Type;

// Then it is looked whether the client has gone.
constexpr std::chrono::milliseconds kWaitForEntries(500);

// Where the stream begins.
struct Place {
  std::int64_t after = 0;
  bool is_restored = false;  // the client's number is another journal's
};

Place place_of(const Json& request, const JournalExtent& now) {
  const auto after = number_in(request, "after");
  if (!after.has_value()) {
    return {.after = std::max<std::int64_t>(now.last - number_in(request, "last").value_or(0), now.first - 1)};
  }
  const bool is_another = request.contains("journal") && request["journal"] != now.id;
  const bool is_of_another_run = request.contains("boot") && now.boot.has_value() && request["boot"] != *now.boot;
  if (is_another || is_of_another_run || *after > now.last) {
    return {.after = std::min({*after, now.parted, now.last}), .is_restored = true};
  }
  return {.after = *after};
}

class Following {
 public:
  Following(Stores& stores, const Json& request, ControlStream& stream)
      : stores_(stores), stream_(stream), query_{.after = number_in(request, "after")} {
    if (query_.after.value_or(0) < 0 || number_in(request, "last").value_or(0) < 0) {
      throw RequestError("\"after\" and \"last\" are numbers from 0 on");
    }
    for (const auto& kind : request.value("kinds", Json::array())) {
      query_.kinds.push_back(journal_kind_of(kind));
    }
    const auto extent = Journal::extent(stores_.directory(), query_.after);
    const auto [after, is_restored] = place_of(request, extent);
    query_.after = after;
    is_read_ = stream_.send({{"following", true}, {"journal", extent.id}, {"after", after}}) &&
               (!is_restored || stream_.send({{"gap", {{"reason", "restored"}, {"after", after}}}}));
  }

  void run() {
    for (bool is_told = false; is_read_ && !stream_.is_over();) {
      is_read_ = send_part();
      if (is_read_ && !std::exchange(is_told, is_told || is_live_) && is_live_) {
        is_read_ = stream_.send({{"live", true}});
      }
      if (is_live_) {
        stores_.wait_for_entries(*query_.after, kWaitForEntries);
      }
    }
  }

 private:
  // What is gone is looked for after the reading: an entry that went before it was read is within.
  bool send_part() {
    std::vector<JournalEntry> entries;
    const auto reach = Journal::read_part(stores_.directory(), query_, [&](const JournalEntry& entry) {
      entries.push_back(entry);
      return entries.size() < kEntriesInAPart;
    });
    const auto first = Journal::extent(stores_.directory()).first;
    if (first > *query_.after + 1 &&
        !stream_.send({{"gap", {{"reason", "gone"}, {"first", *query_.after + 1}, {"last", first - 1}}}})) {
      return false;
    }
    query_.after = reach.after;
    is_live_ = reach.after >= reach.to;
    return send_entries(entries, stores_.users(), stream_) &&
           (is_live_ || stream_.send({{"behind", reach.to - reach.after}}));
  }

  Stores& stores_;
  ControlStream& stream_;
  JournalQuery query_;
  bool is_read_ = true;
  bool is_live_ = false;
};

}  // namespace

ControlCommand journal_follow_command(Stores& stores) {
  return {"journal_follow",
          {{"after", Type::integer, false},
           {"last", Type::integer, false},
           {"journal", Type::text, false},
           {"boot", Type::text, false},
           {"kinds", Type::texts, false}},
          [&stores](const Json& request, ControlStream& stream) {
            Following(stores, request, stream).run();
            return Json::object();
          }};
}

}  // namespace achost
