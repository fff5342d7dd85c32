"""What a disk holds after a power cut, from QEMU's log of the writes to it.

What was written before the last flush is there; of each later write a coin decides, as a disk with a cache of its own
may have kept any of them."""

import os
import struct

SECTOR = 512
FLUSH, FUA, DISCARD = 1, 2, 4
MAGIC, VERSION = 0x6A736677736872, 1


def entries(log):
    """Each write as (flags, where on the disk, length, where in the log its bytes stand)."""
    log.seek(0)
    magic, version, _, sector_size = struct.unpack("<QQQI", log.read(28))
    if (magic, version, sector_size) != (MAGIC, VERSION, SECTOR):
        raise ValueError("this is no log of a disk's writes")
    at, end = SECTOR, os.fstat(log.fileno()).st_size
    while at + SECTOR <= end:
        log.seek(at)
        sector, sectors, flags, _ = struct.unpack("<QQQQ", log.read(32))
        if not (sector or sectors or flags):
            return  # the cut came while this one was written
        length = sectors * SECTOR
        stored = 0 if flags & DISCARD else length
        if at + SECTOR + stored > end:
            return
        yield flags, sector * SECTOR, length, at + SECTOR
        at += SECTOR + stored


def rebuild(disk, log_path, chance):
    """Makes of the disk as it was before the log what a power cut at the log's end leaves.

    Returns how many writes were sure, and how many of the later ones were kept and lost."""
    with open(log_path, "rb") as log, open(disk, "r+b") as target:
        found = list(entries(log))
        flushes = [number for number, entry in enumerate(found) if entry[0] & FLUSH]
        sure = flushes[-1] if flushes else 0
        kept = lost = 0
        for number, (flags, where, length, at) in enumerate(found):
            if flags & DISCARD or not length:
                continue  # what was discarded may stay: nobody may rely on it
            if number > sure and not flags & FUA:
                if chance.random() < 0.5:
                    lost += 1
                    continue
                kept += 1
            log.seek(at)
            target.seek(where)
            target.write(log.read(length))
    return sure, kept, lost
