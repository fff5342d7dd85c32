// Following the journal from a number on.
#pragma once

#include "door/control/control.h"
#include "door/control/stores.h"

namespace achost {

// journal_follow: everything behind the entry "after", then what comes, until the client goes; "kinds" leaves others
// out. The client names which journal it has that number of ("journal", as the first line of this command told), or of
// which run of the machine the entry is ("boot"), so that one which a restore has put in its place is known for one.
// Lines:
//   {"following": true, "journal", "after"}  first
//   {"entry"}                                as journal_rows.h has it
//   {"gap": {"reason": "restored", "after"}} it is another journal, which shares the numbers up to that one with the
//                                            client's, and goes on there
//   {"gap": {"reason": "gone", "first", "last"}}  of these numbers some or all are not there any more
//   {"behind": N}                            so many numbers are still to come: the client reads more slowly
//   {"live": true}                           there is nothing more, once
ControlCommand journal_follow_command(Stores& stores);

}  // namespace achost
