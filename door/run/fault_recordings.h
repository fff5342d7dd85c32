// Recordings of the line that are kept when something goes wrong.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "line/recorder.h"
#include "refhost/subscriber.h"

namespace achost {

// Writes the line's latest bytes to STATE/recordings when the reader falls silent, goes, or gets noisy: the newest few
// are kept, and no two of one minute. On a delivery thread of its own, which a disk may hold up.
class FaultRecordings {
 public:
  static constexpr std::size_t kMost = 8;               // files
  static constexpr std::size_t kLatest = 256UL * 1024;  // bytes of the recorder's memory; about twice that in the file

  // The recorder must outlive it.
  FaultRecordings(const std::filesystem::path& state, const line::Recorder& recorder);

 private:
  void keep(const std::string& reader_state);

  const std::filesystem::path directory_;
  const line::Recorder& recorder_;
  std::chrono::steady_clock::time_point next_{};  // the delivery thread's
  const refhost::Subscriber subscriber_;          // last: it uses the others
};

}  // namespace achost
