// What an audit log looks like inside.
#pragma once

#include "refhost/database.h"

namespace refhost {

// Beside the records stands between which times those of each block of numbers lie. Blocks follow each other from the
// oldest record on; the newest records are in none yet. It is less than a thousandth of an index of all times, and no
// append waits for it.
inline constexpr int kBlockShift = 8;  // a block: 256 numbers

inline constexpr DatabaseKind kAuditKind = {
    .noun = "audit log",
    .version = 5,
    .schema =
        "CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, type INTEGER NOT NULL, "
        "details TEXT NOT NULL, at INTEGER NOT NULL DEFAULT 0, sum INTEGER);"
        "CREATE TABLE audit_times(block INTEGER PRIMARY KEY, first INTEGER NOT NULL, last INTEGER NOT NULL, "
        "sum INTEGER NOT NULL)",
    .upgrades =
        {// Version 1 had the written time alone, which is local.
         "ALTER TABLE audit_logs ADD COLUMN at INTEGER NOT NULL DEFAULT 0;"
         "UPDATE audit_logs SET at = coalesce(strftime('%s', time, 'utc') * 1000, 0)",
         "",  // made an index of all times, which version 5 takes away
              // Those of earlier versions stay without: all of them would be written anew.
         "ALTER TABLE audit_logs ADD COLUMN sum INTEGER",
         "DROP INDEX IF EXISTS audit_logs_by_time;"
         "CREATE TABLE audit_times(block INTEGER PRIMARY KEY, first INTEGER NOT NULL, last INTEGER NOT NULL, "
         "sum INTEGER NOT NULL)"},
    .probe = "SELECT id, time, type, details FROM audit_logs LIMIT 0",
    .way_out = "restore a copy of it, or move it away to begin a new one",
    .shrinks = true,
    .is_big = true,
};

// The greatest number that was ever given.
inline constexpr const char* kLastNumber =
    "SELECT coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'audit_logs'), 0)";

}  // namespace refhost
