#include "audit/record_check.h"

#include "audit/audit_kind.h"
#include "refhost/store_report.h"

namespace refhost {

void RecordCheck::take(std::int64_t id, std::optional<bool> is_right) {
  if (count_ == 0) {
    first_ = id;
  } else {
    add_missing(last_ + 1, id - 1);
  }
  ++count_;
  last_ = id;
  has_sums_ = has_sums_ || is_right.has_value();
  if (!is_right.value_or(!has_sums_)) {
    add("record " + grouped(id) + " is not as it was written: its checksum is wrong");
  }
}

void RecordCheck::end(std::int64_t last) {
  add_missing(last_ + 1, last);
  if (unsaid_ > 0) {
    faults_.push_back("so are " + grouped(unsaid_) + " more");
  }
}

void RecordCheck::add_missing(std::int64_t first, std::int64_t last) {
  if (first == last) {
    add("record " + grouped(first) + " is missing");
  } else if (first < last) {
    add("records " + grouped(first) + " to " + grouped(last) + " are missing");
  }
}

void RecordCheck::add(const std::string& fault) {
  constexpr std::size_t kMost = 10;
  if (faults_.size() < kMost) {
    faults_.push_back(fault);
  } else {
    ++unsaid_;
  }
}

std::string RecordCheck::summary() const {
  return counted(count_, "record") + (count_ == 0 ? "" : ", numbers " + grouped(first_) + " to " + grouped(last_));
}

void check_records(SQLite::Database& database, const std::string& number, RecordCheck& check) {
  SQLite::Statement query(database,
                          "SELECT id, sum, sum = row_sum(id, at, time, type, details) FROM audit_logs "
                          "WHERE id > " +
                              number + " ORDER BY id");
  while (query.executeStep()) {
    check.take(query.getColumn(0),
               query.getColumn(1).isNull() ? std::nullopt : std::optional(query.getColumn(2).getInt() == 1));
  }
  check.end(database.execAndGet(kLastNumber));
}

}  // namespace refhost
