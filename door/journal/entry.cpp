#include "door/journal/entry.h"

#include <algorithm>

namespace achost {

std::optional<Kind> kind_of(std::string_view name) {
  const auto* const found = std::ranges::find(kKinds, name, &KindName::name);
  return found == kKinds.end() ? std::nullopt : std::optional(found->kind);
}

}  // namespace achost
