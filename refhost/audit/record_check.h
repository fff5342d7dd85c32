// Audit records held against their numbers and checksums.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace refhost {

// The numbers of the records in the log follow each other: the oldest go, and nothing else does.
class RecordCheck {
 public:
  // The next record; whether its checksum is right, nothing when it has none: an earlier version wrote none, so it may
  // be missing in the first records only.
  void take(std::int64_t id, std::optional<bool> is_right);

  // All were taken. last: the greatest number that was ever given.
  void end(std::int64_t last);

  // A line each; from many on, how many more there are.
  const std::vector<std::string>& faults() const { return faults_; }

  // "1,234 records, numbers 1 to 1,234".
  std::string summary() const;

 private:
  void add(const std::string& fault);
  void add_missing(std::int64_t first, std::int64_t last);

  std::int64_t count_ = 0;
  std::int64_t first_ = 0;
  std::int64_t last_ = 0;
  bool has_sums_ = false;
  std::int64_t unsaid_ = 0;
  std::vector<std::string> faults_;
};

// Hand the records after a number to the check. Throws SQLite::Exception.
void check_records(SQLite::Database& database, const std::string& number, RecordCheck& check);

}  // namespace refhost
