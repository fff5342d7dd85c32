// What the host says on standard error.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "refhost/log.h"
#include "refhost/tests/support.h"

namespace refhost::test {

// Standard error from here on, the log's lines included, which a thread of its own writes.
inline void capture_log() {
  log::drain(kPatience);
  testing::internal::CaptureStderr();
}

// What came since capture_log().
inline std::string captured_log() {
  log::drain(kPatience);
  return testing::internal::GetCapturedStderr();
}

}  // namespace refhost::test
