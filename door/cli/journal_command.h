// What is asked of the journal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace achost {

struct JournalOptions {
  std::string state;
  std::string since;  // as time_of() takes it; empty: from the beginning
  std::string until;
  std::vector<std::string> kinds;
  std::optional<std::int64_t> user;
  std::string card;  // 33 or 0x21; empty: any
  std::optional<std::int64_t> last;
  std::optional<std::int64_t> after;
  bool follows = false;
  bool json = false;
  bool csv = false;
  bool shows_cards = false;
};

// Print the entries, and with `follows` those that come, until nobody reads any more. Throws Failure, or
// ac::ac_exception when the journal cannot be read.
void print_journal(const JournalOptions& options);

}  // namespace achost
