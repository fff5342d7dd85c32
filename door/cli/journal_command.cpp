#include "door/cli/journal_command.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/base/time_of.h"
#include "door/cli/card_argument.h"
#include "door/cli/journal_lines.h"
#include "door/cli/request.h"
#include "door/control/journal_commands.h"

namespace achost {
namespace {

// Nobody reads any more.
struct NobodyReads {};

JournalQuery query_of(const JournalOptions& options) {
  // Whoever follows wants to see what comes, and the end of what was.
  constexpr std::int64_t kLastOfFollowing = 10;
  JournalQuery query{.user = options.user, .after = options.after, .last = options.last};
  std::ranges::transform(options.kinds, std::back_inserter(query.kinds), journal_kind_of);
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

// The entries, and the names of their users, as their owner tells them.
class Printing {
 public:
  Printing(const JournalOptions& options, StoreOwner& owner)
      : owner_(owner), lines_(style_of(options, [this](std::int64_t user) { return name_of(user); })) {
    write(lines_.heading());
  }

  // In pieces: a call of the system for each entry would take longer than the entry. Returns how far it has looked.
  std::int64_t print_entries(const Json& request) {
    const auto last = ask_for_parts(owner_, request, [this](const Json& answer, std::string_view bytes) {
      names_ = names_in(answer);
      std::string piece;
      unpack_journal(answer, bytes, [&](const JournalEntry& entry) { lines_.append(piece, entry); });
      write(piece);
    });
    return last.at("to");
  }

 private:
  std::string name_of(std::int64_t user) const {
    const auto found = names_.find(user);
    return found == names_.end() ? "" : found->second;
  }

  static void write(const std::string& text) {
    if (!print(text)) {
      throw NobodyReads();
    }
  }

  StoreOwner& owner_;
  std::map<std::int64_t, std::string> names_;
  JournalLines lines_;
};

[[noreturn]] void follow(Printing& printing, Json request, std::int64_t after) {
  request.erase("last");
  request.erase("since");
  request["wait"] = true;
  for (;;) {
    request["after"] = after;
    after = printing.print_entries(request);
    pollfd output{.fd = STDOUT_FILENO, .events = 0, .revents = 0};
    if (poll(&output, 1, 0) > 0 && (output.revents & (POLLERR | POLLHUP)) != 0) {
      throw NobodyReads();
    }
  }
}

}  // namespace

void print_journal(const JournalOptions& options) {
  const auto request = journal_request(query_of(options));
  StoreOwner owner(existing_state(options.state));
  try {
    Printing printing(options, owner);
    const auto looked = printing.print_entries(request);
    if (options.follows) {
      follow(printing, request, looked);
    }
  } catch (const NobodyReads&) {
  }
}

}  // namespace achost
