// What becomes of damaged files of SQLite.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

namespace refhost {

// The files that SQLite keeps beside a database.
inline constexpr std::array kDatabaseSuffixes = {"-wal", "-shm"};

// What is wrong with the file's log, for those who cannot mend it; empty when nothing is.
std::string wal_fault(const std::filesystem::path& file);

// Before SQLite has opened the file, and taken what is behind the damage of its log for something that nobody has
// written. Whether something there stays lost. faults: gets a line for each damage, which is logged too.
bool mend_wal(const std::filesystem::path& file, std::vector<std::string>* faults);

// Give the file another name, FILE.damaged-DATE, with its log, in which the latest records may be. noun: for the line
// that is logged and goes into faults. Who has it open keeps it.
void keep_aside(const std::filesystem::path& file, const std::string& noun, const std::string& damage,
                std::vector<std::string>* faults);

}  // namespace refhost
