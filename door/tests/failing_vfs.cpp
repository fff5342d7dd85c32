#include "door/tests/failing_vfs.h"

#include <cstring>
#include <new>

namespace achost::test {
namespace {

int calls_so_far = 0;
int failing_call = 0;
int failing_code = SQLITE_OK;

sqlite3_vfs* real() {
  static sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
  return vfs;
}

// Whether this call is to fail.
bool fails() { return ++calls_so_far >= failing_call && failing_call != 0; }

bool is_full() { return failing_code == SQLITE_FULL; }

struct File {
  sqlite3_file base;
  sqlite3_file* inner;  // in the memory behind this
};

sqlite3_file* inner(sqlite3_file* file) { return reinterpret_cast<File*>(file)->inner; }

int write_file(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
  if (fails()) {
    return is_full() ? SQLITE_FULL : SQLITE_IOERR_WRITE;
  }
  return inner(file)->pMethods->xWrite(inner(file), data, size, offset);
}

int truncate_file(sqlite3_file* file, sqlite3_int64 size) {
  return !is_full() && fails() ? SQLITE_IOERR_TRUNCATE : inner(file)->pMethods->xTruncate(inner(file), size);
}

int sync_file(sqlite3_file* file, int flags) {
  return !is_full() && fails() ? SQLITE_IOERR_FSYNC : inner(file)->pMethods->xSync(inner(file), flags);
}

int close_file(sqlite3_file* file) { return inner(file)->pMethods->xClose(inner(file)); }

int read_file(sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
  return inner(file)->pMethods->xRead(inner(file), data, size, offset);
}

const sqlite3_io_methods kMethods = {
    .iVersion = 2,
    .xClose = close_file,
    .xRead = read_file,
    .xWrite = write_file,
    .xTruncate = truncate_file,
    .xSync = sync_file,
    .xFileSize = [](sqlite3_file* file,
                    sqlite3_int64* size) { return inner(file)->pMethods->xFileSize(inner(file), size); },
    .xLock = [](sqlite3_file* file, int lock) { return inner(file)->pMethods->xLock(inner(file), lock); },
    .xUnlock = [](sqlite3_file* file, int lock) { return inner(file)->pMethods->xUnlock(inner(file), lock); },
    .xCheckReservedLock = [](sqlite3_file* file,
                             int* held) { return inner(file)->pMethods->xCheckReservedLock(inner(file), held); },
    .xFileControl =
        [](sqlite3_file* file, int operation, void* argument) {
          return inner(file)->pMethods->xFileControl(inner(file), operation, argument);
        },
    .xSectorSize = [](sqlite3_file* file) { return inner(file)->pMethods->xSectorSize(inner(file)); },
    .xDeviceCharacteristics =
        [](sqlite3_file* file) { return inner(file)->pMethods->xDeviceCharacteristics(inner(file)); },
    .xShmMap =
        [](sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
          return inner(file)->pMethods->xShmMap(inner(file), page, size, extend, memory);
        },
    .xShmLock = [](sqlite3_file* file, int offset, int count,
                   int flags) { return inner(file)->pMethods->xShmLock(inner(file), offset, count, flags); },
    .xShmBarrier = [](sqlite3_file* file) { inner(file)->pMethods->xShmBarrier(inner(file)); },
    .xShmUnmap = [](sqlite3_file* file, int remove) { return inner(file)->pMethods->xShmUnmap(inner(file), remove); },
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

int open_file(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* opened) {
  file->pMethods = nullptr;
  if (!is_full() && fails()) {
    return SQLITE_CANTOPEN;
  }
  auto* const outer = new (file) File{};
  outer->inner = reinterpret_cast<sqlite3_file*>(outer + 1);
  const int result = real()->xOpen(real(), name, outer->inner, flags, opened);
  outer->base.pMethods = outer->inner->pMethods == nullptr ? nullptr : &kMethods;
  return result;
}

sqlite3_vfs& failing() {
  static sqlite3_vfs vfs = [] {
    sqlite3_vfs made = *real();
    made.zName = "failing";
    made.szOsFile += static_cast<int>(sizeof(File));
    made.xOpen = open_file;
    made.xDelete = [](sqlite3_vfs*, const char* name, int sync) {
      return !is_full() && fails() ? SQLITE_IOERR_DELETE : real()->xDelete(real(), name, sync);
    };
    return made;
  }();
  return vfs;
}

}  // namespace

FailingVfs::FailingVfs() { sqlite3_vfs_register(&failing(), 1); }

FailingVfs::~FailingVfs() {
  fail_at(0, SQLITE_OK);
  sqlite3_vfs_register(real(), 1);
  sqlite3_vfs_unregister(&failing());
}

void FailingVfs::fail_at(int call, int code) {
  calls_so_far = 0;
  failing_call = call;
  failing_code = code;
}

int FailingVfs::calls() const { return calls_so_far; }

}  // namespace achost::test
