// Asking the plug-in for an enrollment.
#pragma once

#include <functional>

#include "door/control/control.h"
#include "door/journal/entry.h"
#include "door/services/enroller_service.h"
#include "door/services/user_store.h"

namespace achost {

// Sends "enroller_remote_enroll" for a card of "user", unless another enrollment runs. With "wait": true it waits for
// the outcome: the answer has the card, or the failure is thrown; when the client goes, the enrollment ends. plugin:
// the name of the plug-in that runs; without one nobody would answer. note: in the journal.
Json enroll(const Json& request, const std::string& plugin, EnrollerService& enroller, const UserStore& users,
            ControlStream& stream, const std::function<void(const Entry&)>& note);

}  // namespace achost
