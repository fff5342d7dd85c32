#include "door/control/backup_command.h"

#include "door/backup/snapshot.h"

namespace achost {

// What is copied goes with the answer, however long that takes: no store waits for it.
ControlCommand backup_command(Stores& stores) {
  return {.name = "backup",
          .fields = {},
          .run =
              [&stores](const Json&, ControlStream& stream) {
                const Snapshot snapshot(stores.directory());
                snapshot.read(
                    [&stream](const std::string& name, std::int64_t size) {
                      stream.send({{"file", name}, {"size", size}});
                    },
                    [&stream](std::string_view piece) { return stream.send_bytes(piece); });
                return Json::object();
              },
          .changes = true};
}

}  // namespace achost
