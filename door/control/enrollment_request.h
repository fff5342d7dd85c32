// Asking the plug-in for an enrollment.
#pragma once

#include "door/control/control.h"
#include "door/services/enroller_service.h"
#include "door/services/user_store.h"

namespace achost {

// Sends "enroller_remote_enroll" for a card of "user", unless another enrollment runs. With "wait": true it waits for
// the outcome: the answer has the card, or the failure is thrown; when the client goes, the enrollment ends. plugin:
// the name of the plug-in that runs; without one nobody would answer.
Json enroll(const Json& request, const std::string& plugin, EnrollerService& enroller, const UserStore& users,
            ControlStream& stream);

}  // namespace achost
