// What the machine's clock is worth.
#pragma once

namespace refhost {

// Whether something keeps the clock right, as the kernel knows it from a time service. Not so after a start without a
// network, in most containers, and when somebody has set the clock by hand. Any thread may call.
bool clock_is_trusted() noexcept;

}  // namespace refhost
