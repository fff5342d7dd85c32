// Base of the records of the host's database.
#pragma once

namespace ac_dal {

// Used by one thread at a time.
class ac_dao {
 public:
  ac_dao();
  virtual ~ac_dao();
  ac_dao(const ac_dao&) = delete;
  ac_dao& operator=(const ac_dao&) = delete;

  // Insert the record into the database. Throws a std::exception when that fails. The caller makes sure that no two
  // threads create at the same time.
  virtual void create();
};

}  // namespace ac_dal
