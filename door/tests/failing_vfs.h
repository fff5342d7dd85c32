// A disk that fails when a test wants it to: stands between SQLite and the system.
#pragma once

#include <sqlite3.h>

namespace achost::test {

// While it lives, it is SQLite's file system. The n-th call that changes a file, and every one after it, fails; the
// counting begins with fail_at(). One thread at a time uses the databases. One object at a time.
class FailingVfs {
 public:
  FailingVfs();
  ~FailingVfs();
  FailingVfs(const FailingVfs&) = delete;
  FailingVfs& operator=(const FailingVfs&) = delete;

  // The first call is 1; 0: none fails. code: SQLITE_FULL for a full disk, SQLITE_IOERR for a broken one. A disk that
  // is full still opens, shortens and syncs files.
  void fail_at(int call, int code);

  // Calls since then that could have failed.
  int calls() const;
};

}  // namespace achost::test
