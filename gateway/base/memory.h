// This process's memory, where it is to stay small.
#pragma once

namespace gateway {

// Gives back what has been needed and is not now: free memory, and the pages of programs and libraries, of which a
// start, a handshake and a large document use many that nothing else does. The system keeps them as long as it has
// room, and a page that is used again is there at once; but it takes pages that nobody has mapped first when it has
// none.
void give_back_memory();

}  // namespace gateway
