#include "gateway/fleet/manual.h"

namespace fleet {

cli::Manual manual() {
  return {
      .examples = {{"achost-fleet list", "How all doors are."},
                   {"achost-fleet push people.csv --to 'gate-*' --dry-run", "What would become of whom there."},
                   {"achost-fleet push people.csv --to 'gate-*'", "These are the people at those doors from now on."},
                   {"achost-fleet why gate-1 33 --last 1h", "Why card 33 did not open."},
                   {"achost-fleet mode 'gate-*' locked --for 10min", "Nobody gets in for ten minutes."}},
      .files = {{"~/.config/achost-fleet", "Options as lines: broker, ca, certificate and key."},
                {"/etc/achost-fleet.conf", "The same for all who have no file of their own."},
                {"/usr/share/achost-fleet", "Rules and a file for mosquitto, and a script that makes certificates."}},
      .environment = {{"ACHOST_FLEET", "The file with the options, in place of those."}},
      .offers = {{"mode", "", {"normal", "locked", "unlocked", "auto"}}}};
}

}  // namespace fleet
