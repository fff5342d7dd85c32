#include "gateway/mqtt/manual.h"

namespace mqtt {

cli::Manual manual() {
  return {.examples = {{"achost-mqtt run", "As /etc/achost-mqtt.conf says."},
                       {"achost-mqtt run --door gate-1 --broker localhost --without-tls",
                        "Beside a broker on this machine, to try it."}},
          .files = {{"/etc/achost-mqtt.conf", "The options as lines: door, broker, ca, certificate, key, discovery."},
                    {"/var/lib/achost-mqtt", "How far the broker has the journal, and the parts of what is desired."},
                    {"/var/lib/achost/control.sock", "Where the door daemon is asked."}},
          .environment = {{"ACHOST_STATE", "The state directory of the door daemon, unless --host-state gives it."}},
          .offers = {}};
}

}  // namespace mqtt
