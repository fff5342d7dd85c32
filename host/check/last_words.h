// What is said when the process ends, or hangs, in the middle of the examination.
#pragma once

namespace hostcheck {

// From now on: what ends the process is told, with the clause under examination. Then it ends as it would have.
void tell_of_the_end();

// End the process with status 1 when it has not ended within that many seconds: whoever has started it is to read the
// report. From the next call on that counts.
void end_after(int seconds, const char* finding);

}  // namespace hostcheck
