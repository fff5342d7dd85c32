// How long a synchronous send waits.
#pragma once

#include <chrono>

namespace refhost {

// From now on ac::PostOffice::send_message_sync gives up after this time, 2 s unless set. Any thread may call.
void set_sync_timeout(std::chrono::milliseconds timeout);

}  // namespace refhost
