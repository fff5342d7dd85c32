// What a scenario does to the host beside the simulated reader.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "door/base/assignment.h"
#include "door/control/control.h"
#include "door/services/user_store.h"

namespace achost {

// What the lines of a story are done with; all outlive it.
struct StoryHost {
  ControlTable commands;
  UserStore& users;
  std::function<void(const std::string& text)> say;
};

// The lines of a scenario that begin with "host":
//
//   say TEXT...                        a heading in the output for a person
//   given [SECTION.]KEY VALUE          a setting of this run, from its beginning
//   card CARD USER|nobody              whose card it is
//   config set [SECTION.]KEY VALUE     as achost config set
//   gpio set LINE VALUE                as achost gpio set
//   rex                                as achost rex
//   enroll USER                        as achost enroll
class Story {
 public:
  // Whether a line is one of these. Remembers what is given. Throws uhfsim::CommandError.
  void check(const std::string& line);

  // What the checked lines give.
  const std::vector<Assignment>& givens() const { return givens_; }

  // A line whose time has come; it is done as soon as the story has begun. Returns at once. Any thread may call.
  void tell(const std::string& line);

  // Begin to do the lines, one after the other, on a thread of its own, which ends with the process. Once.
  void begin(StoryHost host);

 private:
  void run(StoryHost& host);

  std::vector<Assignment> givens_;  // complete before the story begins
  std::mutex mutex_;                // guards lines_
  std::condition_variable told_;
  std::deque<std::string> lines_;
};

}  // namespace achost
