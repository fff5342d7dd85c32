#include "line/frames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace line {
namespace {

constexpr std::uint8_t kHeader = 0x7F;
constexpr std::size_t kBeforeParameters = 5;
constexpr std::size_t kAround = 7;  // bytes of a frame that are no parameters

// What a frame's parameters mean. Those beyond are carried along, but the reader's checksum leaves them out, as it does
// for a status of several bytes.
struct Kind {
  FrameType type;
  Code code;
  std::size_t meant;  // bytes that mean something; kAll: each
};
constexpr std::size_t kAll = SIZE_MAX;

constexpr std::array kKinds = {
    Kind{FrameType::command, Code::set_region, 1},      Kind{FrameType::response, Code::set_region, 1},
    Kind{FrameType::command, Code::inventory, 0},       Kind{FrameType::notice, Code::inventory, kAll},
    Kind{FrameType::command, Code::set_channels, kAll}, Kind{FrameType::response, Code::set_channels, 1},
    Kind{FrameType::command, Code::set_power, 2},       Kind{FrameType::response, Code::set_power, 1},
    Kind{FrameType::command, Code::get_power, 0},       Kind{FrameType::response, Code::get_power, 2},
    Kind{FrameType::command, Code::set_sensitivity, 4}, Kind{FrameType::response, Code::set_sensitivity, 1},
    Kind{FrameType::command, Code::get_sensitivity, 0}, Kind{FrameType::response, Code::get_sensitivity, 4},
    Kind{FrameType::response, Code::failure, 1},
};

// RSSI, PC and CRC of a tag report; the EPC between them may be empty.
constexpr std::size_t kShortestReport = 5;

const Kind* kind_of(std::uint8_t type, std::uint8_t code) {
  const auto* const found = std::ranges::find_if(kKinds, [&](const Kind& kind) {
    return static_cast<std::uint8_t>(kind.type) == type && static_cast<std::uint8_t>(kind.code) == code;
  });
  return found == kKinds.end() ? nullptr : found;
}

// How many of the parameters mean something; nothing when they are too few.
std::optional<std::size_t> meant_of(const Kind& kind, ByteView parameters) {
  std::size_t meant = kind.meant;
  if (kind.type == FrameType::command && kind.code == Code::set_channels) {
    meant = parameters.empty() ? 1 : 1 + std::size_t{parameters.front()};  // a count, and so many channels
  } else if (kind.meant == kAll) {
    meant = std::max(parameters.size(), kShortestReport);
  }
  return meant <= parameters.size() ? std::optional(meant) : std::nullopt;
}

// Sums of the bytes up to each place, so that a checksum costs the same however long the frame is.
class Sums {
 public:
  explicit Sums(ByteView bytes) : sums_(bytes.size() + 1) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      sums_[i + 1] = static_cast<std::uint8_t>(sums_[i] + bytes[i]);
    }
  }

  std::uint8_t of(std::size_t from, std::size_t count) const {
    return static_cast<std::uint8_t>(sums_[from + count] - sums_[from]);
  }

 private:
  std::vector<std::uint8_t> sums_;
};

struct Look {
  std::optional<Frame> frame;
  Flaw flaw = Flaw::junk;
};

// What begins at a header.
Look look_at(ByteView bytes, std::size_t at, const Sums& sums) {
  const std::size_t left = bytes.size() - at;
  const Kind* const kind = left < 3 ? nullptr : kind_of(bytes[at + 1], bytes[at + 2]);
  if (left >= 3 && kind == nullptr) {
    return {};
  }
  const std::size_t length = left < kBeforeParameters ? 0 : bytes[at + 3] * 256U + bytes[at + 4];
  if (left < length + kAround) {
    return {.frame = {}, .flaw = Flaw::truncated};
  }
  const ByteView parameters = bytes.subspan(at + kBeforeParameters, length);
  if (bytes[at + length + kAround - 1] != kFrameEnd) {
    return {.frame = {}, .flaw = Flaw::wrong_end};
  }
  const auto meant = meant_of(*kind, parameters);
  if (!meant.has_value() || sums.of(at + 1, kBeforeParameters - 1 + *meant) != bytes[at + length + kAround - 2]) {
    return {.frame = {}, .flaw = meant.has_value() ? Flaw::wrong_checksum : Flaw::junk};
  }
  return {
      .frame = Frame{
          .type = kind->type, .code = kind->code, .parameters = parameters, .offset = at, .size = length + kAround}};
}

}  // namespace

const char* name_of(Flaw flaw) {
  constexpr std::array kNames = {"junk", "a wrong checksum", "a wrong end", "an answer cut off"};
  return kNames.at(static_cast<std::size_t>(flaw));
}

Pieces pieces_of(ByteView bytes) {
  const Sums sums(bytes);
  Pieces pieces;
  bool in_gap = false;
  bool has_header = false;  // the gap's flaw is that of a header
  for (std::size_t at = 0; at < bytes.size();) {
    const auto [frame, flaw] = bytes[at] == kHeader ? look_at(bytes, at, sums) : Look{};
    if (frame.has_value()) {
      pieces.frames.push_back(*frame);
      in_gap = false;
      at += frame->size;
      continue;
    }
    if (!in_gap) {
      pieces.gaps.push_back({.offset = at});
      has_header = false;
    }
    auto& gap = pieces.gaps.back();
    gap.size += 1;
    if (bytes[at] == kHeader && !has_header) {
      gap.flaw = flaw;
      has_header = true;
    }
    in_gap = true;
    at += 1;
  }
  return pieces;
}

Bytes frame_of(FrameType type, Code code, ByteView parameters) {
  Bytes bytes = {kHeader, static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(code),
                 static_cast<std::uint8_t>(parameters.size() >> 8U), static_cast<std::uint8_t>(parameters.size())};
  bytes.reserve(bytes.size() + parameters.size() + 2);
  bytes.insert(bytes.end(), parameters.begin(), parameters.end());
  std::uint8_t sum = 0;
  std::for_each(bytes.begin() + 1, bytes.end(),
                [&](std::uint8_t byte) { sum = static_cast<std::uint8_t>(sum + byte); });
  bytes.push_back(sum);
  bytes.push_back(kFrameEnd);
  return bytes;
}

Tag tag_of(const Frame& notice) {
  const auto& all = notice.parameters;
  constexpr std::size_t kBeforeEpc = 3;  // RSSI, and the PC word
  return {.epc = all.subspan(kBeforeEpc, all.size() - kBeforeEpc - 2), .rssi = all.front()};
}

int power_of(ByteView parameters) { return parameters[0] * 256 + parameters[1]; }

std::string power_text(int power) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f dBm", power / 100.0);
  return text.data();
}

}  // namespace line
