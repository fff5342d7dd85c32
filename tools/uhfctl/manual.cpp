#include "manual.h"

#include "regions.h"

namespace uhfctl {

cli::Manual manual() {
  std::vector<std::string> regions;
  for (const auto& [name, region] : REGIONS) {
    regions.emplace_back(name);
  }
  return {
      .examples = {{"uhfctl doctor --region BRAZIL", "Look at one thing after the other that can be wrong."},
                   {"uhfctl inventory --seconds 2 --card-value",
                    "The tags in the field, with the numbers that the plug-in would announce."},
                   {"uhfctl survey --power 15dBm:30dBm:2.5dBm --seconds 2 --out survey.html",
                    "Step through powers, with a report and a recommendation."},
                   {"uhfctl record field.txt --seconds 2", "Record the line, for `uhfctl decode field.txt`."},
                   {"uhfctl decode --live --seconds 2", "Tell every frame as it goes over the line."}},
      .files = {{"survey.html, survey.csv, survey.json",
                 "The report of a survey and its figures, unless --out names another."},
                {"/var/lib/achost/control.sock",
                 "Where a running achost is asked that has the port, unless its process shows another."},
                {"/dev/serial/by-id", "The serial ports, by the names of their adapters."}},
      .environment = {{"UHFCTL_PORT", "The serial device of the reader, unless --port gives it."},
                      {"ACHOST_STATE", "The state directory of a running achost that has the port and is not found."},
                      {"UHFCTL_REGION", "Whose limits hold, unless --region gives it."},
                      {"NO_COLOR", "If set, nothing is coloured."}},
      .offers = {{"region set", "", regions},
                 {"channels set", "--region", regions},
                 {"power set", "--region", regions},
                 {"survey", "--region", regions},
                 {"doctor", "--region", regions},
                 {"inventory", "--reader-type", {"msb", "lsb"}},
                 {"inventory", "--identification-bits", {"24", "32", "34"}}}};
}

}  // namespace uhfctl
