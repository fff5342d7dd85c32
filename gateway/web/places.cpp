#include "gateway/web/places.h"

#include <algorithm>

namespace web {

bool Places::make_room() {
  if (places_.size() < most_) {
    return true;
  }
  for (const bool is_known : {false, true}) {
    const auto found = std::ranges::find_if(
        places_, [is_known](const Place& place) { return place.waits && place.end && place.is_known == is_known; });
    if (found != places_.end()) {
      std::exchange(found->end, nullptr)();
      return true;
    }
  }
  return false;
}

void Places::wait(Handle place) {
  place->waits = true;
  places_.splice(places_.end(), places_, place);
}

}  // namespace web
