#include "door/control/restore_command.h"

#include <utility>

#include "door/backup/restore.h"
#include "door/base/failure.h"
#include "door/journal/changes.h"

namespace achost {

// The line goes first: the answer behind it may find the host gone.
ControlCommand restore_command(const std::filesystem::path& state, std::function<void()> start_anew,
                               std::function<void(const Entry&)> note) {
  return {.name = "restore",
          .fields = {},
          .run =
              [state, start_anew = std::move(start_anew), note = std::move(note)](const Json&, ControlStream& stream) {
                if (!start_anew) {
                  throw Failure(kFailed, state.string() + " is removed when its host ends: nothing is restored there");
                }
                const auto kept = make_restore_ready(state).string();
                note(command_given("restore"));
                stream.send({{"kept", kept}});
                start_anew();
                return Json::object();
              },
          .changes = true};
}

}  // namespace achost
