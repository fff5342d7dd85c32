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
  std::string text;
  auto rest = row_of(reason).sentence;
  for (auto brace = rest.find('{'); brace != rest.npos; brace = rest.find('{')) {
    const auto end = rest.find('}', brace);
    const auto fact = facts.find(rest.substr(brace + 1, end - brace - 1));
    text += rest.substr(0, brace);
    text += fact == facts.end() ? "?" : fact->second;
    rest.remove_prefix(end + 1);
  }
  return text.append(rest);
}

}  // namespace achost::why
