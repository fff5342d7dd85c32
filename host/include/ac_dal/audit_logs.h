// A record of the host's audit log.
#pragma once

#include <memory>
#include <string>

#include "ac_dal/ac_dao.h"

namespace ac_dal {

// Used by one thread at a time.
class audit_logs : public ac_dao {
 public:
  struct Impl;

  // A record without time and details, of type 0.
  audit_logs();
  ~audit_logs() override;

  // When it happened, as ac::util::get_formatted_date_and_time_ms writes it.
  void time(std::string value);

  // The kind of event: the audit type codes, 0 to 8.
  void type(int value);

  // What happened, for a person to read.
  void details(std::string value);

  // Append the record to the audit log; it is on the disk when the call returns. Throws a std::exception when it cannot
  // be, with nothing appended. It may wait for the disk.
  void create() override;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace ac_dal
