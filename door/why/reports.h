// What the plug-in makes of an answer to an inventory.
#pragma once

#include <optional>
#include <vector>

#include "door/why/reasons.h"
#include "line/conversation.h"

namespace achost::why {

// A tag's report in an answer.
struct Report {
  const line::Tag* tag = nullptr;  // of the exchange
  std::optional<Reason> unused{};  // why the plug-in does not use it; nothing: it does
  std::size_t number = 0;          // among the frames of the answer, from 1,
  std::size_t count = 0;           // of so many
  const char* flaw = "";           // of kBadFrame: which
};

// All reports of an answer, in the order of their arrival. The tags are the exchange's.
std::vector<Report> reports_of(const line::Exchange& exchange);

}  // namespace achost::why
