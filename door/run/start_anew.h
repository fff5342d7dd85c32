// The same program again, in the same process.
#pragma once

namespace achost {

// Start what this process runs from its beginning, with the same arguments and environment: for a supervisor it is the
// process that it started. All threads end as they are, so all stores are to be closed. Returns when that cannot be
// done.
void start_anew();

}  // namespace achost
