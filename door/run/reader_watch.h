// What the line says about the reader, told to everybody else.
#pragma once

#include <functional>
#include <string>

#include "door/run/fault_recordings.h"
#include "door/run/reader.h"
#include "door/run/supervisor.h"
#include "refhost/bus_view.h"

namespace achost {

// Sends "reader_state" {string "state", string "cause", string "way_out"} when the reader's state changes, and
// "reader_recovery" {string "text"} for whatever is done to bring it back; tells the supervisor; notes the messages of
// the bus in the line's recording, and keeps that of each fault.
class ReaderWatch {
 public:
  // give_up: called with one line, on the line's thread, when the reader does not come back. A reader without a line is
  // not watched.
  ReaderWatch(Reader& reader, const Supervisor& supervisor, const std::filesystem::path& state,
              std::function<void(const std::string&)> give_up);
  ~ReaderWatch();
  ReaderWatch(const ReaderWatch&) = delete;
  ReaderWatch& operator=(const ReaderWatch&) = delete;

 private:
  void tell(const line::Event& event) const;

  Reader& reader_;
  const Supervisor& supervisor_;
  const std::function<void(const std::string&)> give_up_;
  std::optional<FaultRecordings> recordings_;
  std::optional<refhost::BusTap> tap_;
};

}  // namespace achost
