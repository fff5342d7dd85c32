// An audit log for a test, and what is in it.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "refhost/audit_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {

using Texts = std::vector<std::string>;

inline std::int64_t now_ms() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// What AuditLog::read() hands out: "id type details".
inline Texts read(const std::filesystem::path& directory, const AuditFilter& filter) {
  Texts found;
  AuditLog::read(directory, filter, [&](const AuditEntry& entry) {
    found.push_back(std::to_string(entry.id) + " " + std::to_string(entry.record.type) + " " + entry.record.details);
  });
  return found;
}

class Audit : public testing::Test {
 protected:
  Audit() : log_(directory_.path()) { AuditLog::make_current(&log_); }
  ~Audit() override { AuditLog::make_current(nullptr); }

  std::string file() const { return directory_.path() / "audit.db"; }

  // The records as another process sees them: "id|time|type|details".
  std::vector<std::string> records() const {
    std::vector<std::string> result;
    SQLite::Database database(file());
    SQLite::Statement query(database,
                            "SELECT id || '|' || time || '|' || type || '|' || details FROM audit_logs "
                            "ORDER BY id");
    while (query.executeStep()) {
      result.push_back(query.getColumn(0).getString());
    }
    return result;
  }

  TemporaryDirectory directory_;
  AuditLog log_;
};

}  // namespace refhost::test
