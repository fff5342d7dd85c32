// Bytes of the line.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <vector>

namespace line {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Every time here is one of this clock, and a parameter wherever that can be.
using Clock = std::chrono::steady_clock;

}  // namespace line
