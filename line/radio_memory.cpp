#include "line/radio_memory.h"

namespace line {
namespace {

// As readers say that an inventory read nothing.
constexpr std::uint8_t kNoTag = 0x17;
constexpr std::uint8_t kDone = 0x00;

bool is_setter(Code code) {
  return code == Code::set_region || code == Code::set_channels || code == Code::set_power ||
         code == Code::set_sensitivity;
}

Bytes two_bytes(int value) { return {static_cast<std::uint8_t>(value / 256), static_cast<std::uint8_t>(value)}; }

}  // namespace

void RadioMemory::will_set(const Frame& command) {
  // One with more parameters than mean something has another checksum: it could not be said again.
  const auto again = frame_of(FrameType::command, command.code, command.parameters);
  if (pieces_of(again).frames.size() != 1) {
    return;
  }
  parameters_[command.code] = Bytes(command.parameters.begin(), command.parameters.end());
  if (command.code == Code::set_power) {
    power_ = power_of(command.parameters);
  }
}

void RadioMemory::saw(const Exchange& exchange) {
  if (!is_good(exchange.answer.outcome)) {
    return;
  }
  if (is_setter(exchange.code)) {
    will_set(pieces_of(exchange.question).frames.back());
  }
  if (exchange.code == Code::get_power) {
    for (const Frame& frame : pieces_of(exchange.bytes).frames) {
      if (frame.type == FrameType::response && frame.code == Code::get_power) {
        power_ = power_of(frame.parameters);
        parameters_[Code::set_power] = two_bytes(*power_);
      }
    }
  }
}

std::vector<Bytes> RadioMemory::commands() const {
  std::vector<Bytes> result;
  for (const Code code : {Code::set_region, Code::set_power, Code::set_channels, Code::set_sensitivity}) {
    const auto found = parameters_.find(code);
    if (found == parameters_.end()) {
      continue;
    }
    if (code == Code::set_channels && found->second != Bytes{0}) {
      result.push_back(frame_of(FrameType::command, code, Bytes{0}));  // clears the list, which others add to
    }
    result.push_back(frame_of(FrameType::command, code, found->second));
  }
  return result;
}

std::optional<Bytes> RadioMemory::answer_to(const Frame& command) const {
  if (command.code == Code::inventory) {
    return frame_of(FrameType::response, Code::failure, Bytes{kNoTag});
  }
  if (is_setter(command.code)) {
    return frame_of(FrameType::response, command.code, Bytes{kDone});
  }
  if (command.code == Code::get_power && power_.has_value()) {
    return frame_of(FrameType::response, Code::get_power, two_bytes(*power_));
  }
  const auto sensitivity = parameters_.find(Code::set_sensitivity);
  if (command.code == Code::get_sensitivity && sensitivity != parameters_.end()) {
    return frame_of(FrameType::response, Code::get_sensitivity, sensitivity->second);
  }
  return std::nullopt;
}

}  // namespace line
