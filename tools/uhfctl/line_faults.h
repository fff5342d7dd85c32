// What can be wrong with an answer, and how often it was.
#pragma once

#include <array>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace uhfctl {

// The worst last: an answer with several has that.
enum class LineFault {
  none,
  junk,            // bytes that are no frame
  out_of_step,     // an answer to another question
  cut_off,         // an answer whose end is missing
  wrong_checksum,  // a frame that was damaged on its way
  echo,            // the question itself
  flood,           // an answer that does not end
};
inline constexpr std::size_t kLineFaults = 7;

// What stands behind it most often, and the way out, for a person.
struct FaultAdvice {
  const char* finding;
  const char* way_out;
};
FaultAdvice advice_on(LineFault fault);

// The polls of a command, by what was wrong with them.
class PollFaults {
 public:
  void add(LineFault fault) { ++counts_[static_cast<std::size_t>(fault)]; }

  PollFaults& operator+=(const PollFaults& other);

  int polls() const;
  int bad() const { return polls() - counts_[0]; }
  bool noisy() const { return bad() * 20 > polls(); }  // more than 5 %

  // The one seen most often; none when there was none.
  LineFault commonest() const;

  // "7 of 100 polls bad (7 %): 5 wrong checksum, 2 cut off".
  std::string text() const;
  // The same by name.
  nlohmann::ordered_json as_object() const;

 private:
  std::array<int, kLineFaults> counts_{};
};

}  // namespace uhfctl
