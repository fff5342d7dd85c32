// A journal with as many entries as it gets.
#pragma once

#include <filesystem>

// So many entries in a new journal of that directory, one in 15 seconds up to now, of 1,000 users.
void fill_journal(const std::filesystem::path& directory, int entries);
