// What the journal hears from the bus.
#pragma once

#include <functional>

#include "door/journal/entry.h"
#include "refhost/subscriber.h"

namespace achost {

// Notes closings of the door, what its contact tells, its modes, exit requests, outcomes of enrollments, states of the
// reader, alarms and the numbers of audit records as the bus tells them. What has to be noted before it happens comes
// from those who do it (bookkeeping.h).
class JournalFeed {
 public:
  // note must outlive it.
  explicit JournalFeed(std::function<void(const Entry&)> note);

 private:
  const std::function<void(const Entry&)> note_;
  const refhost::Subscriber subscriber_;
};

}  // namespace achost
