// Times as people give them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace achost {

using TimeParser = std::int64_t (*)(const std::string& text, std::chrono::system_clock::time_point now);

// What a time may be, for a command's help.
inline constexpr const char* kTimesHelp =
    "TIME is 2026-01-31, \"2026-01-31 08:30\", 08:30, today, yesterday, -1h, \"2 days ago\" or\n"
    "2026-01-31T08:30:00+01:00; without a zone it is local.";

// ms since 1970 UTC of "YYYY-MM-DD" (its beginning), "YYYY-MM-DD HH:MM[:SS]", "HH:MM[:SS]" of today, "now", "today",
// "yesterday" or "tomorrow" (their beginning), all local; of a time before now, "-1h", "-1h30min", "1 hour ago", "2
// days ago"; or of ISO 8601 with a zone ("2026-01-02T03:04:05Z", "...05.006+01:00"). Throws Failure (kUsage).
std::int64_t time_of(const std::string& text,
                     std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// The same for the end of a span: a day alone is within it, so that it ends when the next day begins.
std::int64_t end_of(const std::string& text,
                    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// What a length of time may be, for a command's help.
inline constexpr const char* kLengthsHelp = "90, 90s, 5min, 8h or \"1h 30min\"";

// In seconds, of "5min", "8h", "1h 30min", or of a number of them. Throws Failure (kUsage).
std::int64_t seconds_of(const std::string& text);

}  // namespace achost
