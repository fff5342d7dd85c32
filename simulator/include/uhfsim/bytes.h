#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace uhfsim {

/// Bytes as they go over the line.
using Bytes = std::vector<std::uint8_t>;

/// A look at somebody else's bytes; valid only during the call that gets it.
using ByteView = std::span<const std::uint8_t>;

}  // namespace uhfsim
