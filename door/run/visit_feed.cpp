#include "door/run/visit_feed.h"

#include <chrono>
#include <new>

#include "door/why/card_value.h"
#include "refhost/send.h"

namespace achost {

void VisitFeed::saw(const line::Exchange& exchange) {
  if (exchange.code != line::Code::inventory || exchange.answer.tags.empty() || visits_.is_empty()) {
    return;
  }
  try {
    const int bits = settings_.get_int("uhf", "identification_bits").value_or(0);
    const auto reader_type = settings_.get("uhf", "reader_type").value_or("");
    for (const auto& tag : exchange.answer.tags) {
      const auto epc = exchange.epc_of(tag);
      cards_.push_back(why::card_value({epc.data(), epc.size()}, bits, reader_type));
    }
    visits_.read(cards_, exchange.last_byte);
  } catch (const std::bad_alloc&) {  // the line goes on; the cards' announcements tell of them, too
  }
  cards_.clear();
}

void VisitFeed::tell_of_departures() {
  for (const auto& [card, begin, last, told] : visits_.take_over(std::chrono::steady_clock::now())) {
    const auto stay = std::chrono::duration_cast<std::chrono::seconds>(last - begin).count();
    refhost::send("card_left", {{"value", static_cast<std::int64_t>(card)}, {"seconds", std::int64_t{stay}}});
  }
}

}  // namespace achost
