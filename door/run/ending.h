// Waiting for the end of a run.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "door/base/failure.h"

namespace achost {

// Brings together all that can end a run: a signal, a thread's request, the time, a reader of standard output that
// went away. One for the process: it takes the handlers of SIGINT, SIGTERM, SIGHUP and SIGPIPE.
class Ending {
 public:
  struct Outcome {
    Status status = kDone;
    std::string reason;        // one line for standard error; empty: none
    bool output_gone = false;  // nobody reads standard output any more
    bool starts_anew = false;  // the same run begins again, in this process
  };

  // A second SIGINT, SIGTERM or SIGHUP ends the process by itself, should the first not get through. Throws
  // std::system_error.
  Ending();

  // End the run. The first request counts. Any thread may call.
  void request(Outcome outcome);

  // Wait for the end, for the deadline at the latest.
  Outcome wait(std::optional<std::chrono::steady_clock::time_point> deadline);

 private:
  Outcome outcome();

  std::mutex mutex_;  // guards requested_
  std::optional<Outcome> requested_;
};

}  // namespace achost
