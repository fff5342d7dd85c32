#include "onlooker.h"

#include "recording.h"

namespace uhfctl {

Onlooker::Onlooker(const Door& door) : connection_(door.connect()) { connection_.ask({{"command", "look_on"}}); }

std::optional<SeenPiece> Onlooker::next(std::chrono::milliseconds time) {
  const auto line = connection_.next(time);
  if (!line.has_value()) {
    return std::nullopt;
  }
  left_out_ += line->value("left_out", std::uint64_t{0});
  // The door's clock is ours: both count from the start of the machine.
  const std::chrono::duration<double> at(line->value("at", 0.0));
  return SeenPiece{.at = Clock::time_point(std::chrono::duration_cast<Clock::duration>(at)),
                   .direction = line->value("direction", "<") == ">" ? Direction::to_reader : Direction::from_reader,
                   .bytes = parse_hex(line->value("bytes", ""), "the door")};
}

}  // namespace uhfctl
