// Why a card opened the door, or did not.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "door/control/control.h"
#include "door/why/explain.h"

namespace achost {

// Where the answers come from.
struct WhySources {
  std::filesystem::path state;
  why::NameOf name_of;
  // The cards in the field and those that have just left; empty when no daemon runs, or its plug-in has the port
  // itself.
  std::function<std::vector<why::ToldSighting>()> live = nullptr;
};

// "why" {"card": text, or "epc": text; "from", "to", and "at" where a time is asked for: ms since 1970 UTC}: answers as
// why::json_of() has it, with "text" for a person; a card is decimal.
ControlCommand why_command(WhySources sources);

// "why_now" {}: {"sightings": [as why::json_of()], "text"} of the cards that lie in the field.
Json explain_now(const WhySources& sources);

}  // namespace achost
