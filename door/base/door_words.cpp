#include "door/base/door_words.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace achost {
namespace {

using Words = std::pair<std::string_view, std::string_view>;

constexpr Words kContactWords[] = {{"closed", "is shut"},
                                   {"opened", "is open"},
                                   {"forced", "was forced: opened without a release"},
                                   {"held_warning", "stands open"},
                                   {"held_alarm", "has been left open"},
                                   {"not_used", "was released, and nobody opened it"}};

constexpr Words kGiverWords[] = {
    {"command", ", by command"}, {"input", ", by the mode switch"}, {"schedule", ", by its schedule"}, {"nobody", ""}};

template <std::size_t size>
std::string words_of(const Words (&table)[size], std::string_view name) {
  const auto* const found = std::ranges::find(table, name, &Words::first);
  return std::string(found == std::end(table) ? name : found->second);
}

}  // namespace

std::string contact_words(std::string_view state) { return words_of(kContactWords, state); }

std::string mode_words(std::string_view mode, std::string_view by) {
  return "is in mode " + std::string(mode) + words_of(kGiverWords, by);
}

}  // namespace achost
