// The plug-in's codec as a second opinion on the line's view of frames.
#pragma once

#include <new>

#include "ac/exception.h"
#include "frame.h"
#include "line/bytes.h"

namespace line::test {

// The size of the frame that the codec sees at that place; 0 when there is none with a right checksum.
inline std::size_t size_by_codec(const Bytes& bytes, std::size_t at) {
  try {
    const auto [frame, size] = ac::UHF::Frame::fromData({bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end()});
    return frame != nullptr && frame->validateCheckSum() ? size : 0;
  } catch (const ac::ac_exception&) {
    return 0;
  } catch (const std::bad_alloc&) {
    return 0;  // a tag report of 3 or 4 bytes
  }
}

}  // namespace line::test
