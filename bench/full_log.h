// An audit log with as many records as it gets.
#pragma once

#include <filesystem>

// So many records in a new log of that directory, one in five seconds, the times as older hosts wrote them, without a
// zone; all that can wait is done.
void fill_log(const std::filesystem::path& directory, int records);
