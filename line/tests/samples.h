// Frames and times for the tests of the line's parts.
#pragma once

#include "line/frames.h"

namespace line::test {

inline const Bytes kPoll = frame_of(FrameType::command, Code::inventory, {});
inline const Bytes kEmpty = frame_of(FrameType::response, Code::failure, Bytes{0x17});
inline const Clock::time_point kStart{std::chrono::seconds(1000)};

}  // namespace line::test
