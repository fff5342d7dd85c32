#include "gateway/web/manual.h"

namespace web {

cli::Manual manual() {
  return {.examples = {{"achost-web run", "Serve at 127.0.0.1:8080, for this machine alone."},
                       {"achost-web run --listen 0.0.0.0:8443 --name door.local --certificate door.pem --key door.key",
                        "Serve for others."},
                       {"achost-web link --role view", "A link for somebody who may look."}},
          .files = {{"/etc/default/achost-web", "The options of the service."},
                    {"/var/lib/achost-web/access.json", "Who may get in; only hashes of their secrets."},
                    {"/var/lib/achost/control.sock", "Where the door daemon is asked."}},
          .environment = {{"ACHOST_STATE", "The state directory of the door daemon, unless --host-state gives it."}},
          .offers = {{"link", "--role", {"admin", "view"}}}};
}

}  // namespace web
