// What the plug-in makes of an answer to an inventory.
#pragma once

#include <optional>
#include <vector>

#include "door/why/reasons.h"
#include "line/conversation.h"

namespace achost::why {

// A tag's report in an answer.
struct Report {
  line::ByteView epc{};            // of the exchange's bytes
  int rssi = 0;                    // as the reader says it, 0 to 255
  std::optional<Reason> unused{};  // why the plug-in does not use it; nothing: it does
  std::size_t number = 0;          // among the frames of the answer, from 1,
  std::size_t count = 0;           // of so many
  const char* flaw = "";           // of kBadFrame: which
};

// All reports of an answer, in the order of their arrival, as long as the exchange stays where it is.
std::vector<Report> reports_of(const line::Exchange& exchange);

}  // namespace achost::why
