#include "door/cli/journal_command.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>

#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/base/time_of.h"
#include "door/cli/card_argument.h"
#include "door/cli/journal_lines.h"
#include "door/journal/journal.h"
#include "door/services/user_store.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

// Nobody reads any more.
struct NobodyReads {};

Kind asked_kind(const std::string& name) {
  if (const auto kind = kind_of(name)) {
    return *kind;
  }
  std::string all;
  for (const auto& known : kKinds) {
    all += (all.empty() ? "" : ", ") + std::string(known.name);
  }
  throw Failure(kUsage, "there is no kind \"" + refhost::log::escape(name) + "\": there are " + all);
}

JournalQuery query_of(const JournalOptions& options) {
  // Whoever follows wants to see what comes, and the end of what was.
  constexpr std::int64_t kLastOfFollowing = 10;
  JournalQuery query{.user = options.user, .after = options.after, .last = options.last};
  std::ranges::transform(options.kinds, std::back_inserter(query.kinds), asked_kind);
  if (!options.card.empty()) {
    query.card = asked_card(options.card);
  }
  if (!options.since.empty()) {
    query.since = time_of(options.since);
  }
  if (!options.until.empty()) {
    query.until = time_of(options.until);
  }
  if (options.follows && !query.last.has_value() && !query.since.has_value() && !query.after.has_value()) {
    query.last = kLastOfFollowing;
  }
  return query;
}

// Names of users, each asked for once.
class Names {
 public:
  explicit Names(const std::filesystem::path& state) : users_(state, UserStore::Access::read_only) {}

  std::string operator()(std::int64_t user) {
    const auto [found, is_new] = names_.try_emplace(user);
    if (is_new) {
      found->second = users_.name_of(user);
    }
    return found->second;
  }

 private:
  UserStore users_;
  std::map<std::int64_t, std::string> names_;
};

JournalStyle style_of(const JournalOptions& options, std::function<std::string(std::int64_t)> name_of) {
  const bool is_terminal = isatty(STDOUT_FILENO) != 0;
  return {.form = options.json  ? JournalForm::json
                  : options.csv ? JournalForm::csv
                  : is_terminal ? JournalForm::diary
                                : JournalForm::lines,
          .shows_cards = options.shows_cards || options.csv || is_terminal,
          .has_colour = wants_colour(),
          .name_of = std::move(name_of)};
}

// In pieces: a call of the system for each entry would take longer than the entry. Returns how far it has looked.
std::int64_t print_entries(const std::filesystem::path& state, const JournalQuery& query, JournalLines& lines) {
  constexpr std::size_t kLongestPiece = 64UL * 1024;
  std::string piece;
  const auto flush = [&piece] {
    if (!print(piece)) {
      throw NobodyReads();
    }
    piece.clear();
  };
  const auto looked = Journal::read(state, query, [&](const JournalEntry& entry) {
    lines.append(piece, entry);
    if (piece.size() >= kLongestPiece) {
      flush();
    }
  });
  flush();
  return looked;
}

// Whether the journal may have been written since the last look. The time of a file goes in ticks, so what was written
// lately may have been written again.
class Changes {
 public:
  explicit Changes(const std::filesystem::path& state) : log_(state / "journal.db-wal") {}

  bool look() {
    std::error_code none;
    const auto time = std::filesystem::last_write_time(log_, none);
    const bool is_new =
        none || time != seen_ || std::filesystem::file_time_type::clock::now() - time < std::chrono::seconds(1);
    seen_ = none ? std::filesystem::file_time_type() : time;
    return is_new;
  }

 private:
  const std::filesystem::path log_;
  std::filesystem::file_time_type seen_;
};

[[noreturn]] void follow(const std::filesystem::path& state, JournalQuery query, JournalLines& lines) {
  constexpr int kPeriod = 100;  // ms
  query.last.reset();
  query.since.reset();
  Changes changes(state);
  for (;;) {
    if (changes.look()) {
      query.after = print_entries(state, query, lines);
    }
    pollfd output{.fd = STDOUT_FILENO, .events = 0, .revents = 0};
    if (poll(&output, 1, kPeriod) > 0 && (output.revents & (POLLERR | POLLHUP)) != 0) {
      throw NobodyReads();
    }
  }
}

}  // namespace

void print_journal(const JournalOptions& options) {
  const auto state = existing_state(options.state);
  auto query = query_of(options);
  Names names(state);
  JournalLines lines(style_of(options, [&names](std::int64_t user) { return names(user); }));
  try {
    if (!print(lines.heading())) {
      return;
    }
    const auto looked = print_entries(state, query, lines);
    if (options.follows) {
      query.after = looked;
      follow(state, query, lines);
    }
  } catch (const NobodyReads&) {
  }
}

}  // namespace achost
