#include "door/why/reasons.h"

#include <algorithm>

namespace achost::why {

namespace {

constexpr bool is_in_order() {
  std::size_t place = 0;
  return std::ranges::all_of(kReasons,
                             [&place](const auto& row) { return static_cast<std::size_t>(row.reason) == place++; });
}
static_assert(is_in_order(), "row_of() takes a reason for its place");

}  // namespace

std::optional<Reason> reason_of(std::string_view name) {
  const auto* const row = std::ranges::find(kReasons, name, &ReasonRow::name);
  return row == kReasons.end() ? std::nullopt : std::optional(row->reason);
}

std::string sentence(Reason reason, const Facts& facts) {
  return sentence_of(reason, [&](std::string_view name) {
    const auto fact = facts.find(name);
    return fact == facts.end() ? std::nullopt : std::optional(fact->second);
  });
}

std::string sentence_of(Reason reason, const FactTeller& tell) {
  std::string text;
  auto rest = row_of(reason).sentence;
  for (auto brace = rest.find('{'); brace != rest.npos; brace = rest.find('{')) {
    const auto end = rest.find('}', brace);
    text += rest.substr(0, brace);
    text += tell(rest.substr(brace + 1, end - brace - 1)).value_or("?");
    rest.remove_prefix(end + 1);
  }
  return text.append(rest);
}

}  // namespace achost::why
