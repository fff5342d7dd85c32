#include "gateway/mqtt/discovery.h"

#include "gateway/base/daemon.h"
#include "gateway/mqtt/topics.h"
#include "version.h"

namespace mqtt {
namespace {

using gateway::Json;

Json device_of(const std::string& door) {
  return {{"identifiers", {"achost-" + door}}, {"name", door}, {"model", "achost"}, {"sw_version", UHF_VERSION}};
}

Announcement announcement(const std::string& door, const std::string& component, const std::string& what, Json own) {
  Json all = {{"unique_id", "achost-" + door + "-" + what},
              {"device", device_of(door)},
              {"availability_topic", topics::state(door)},
              {"availability_template", "{{ 'online' if value_json.online else 'offline' }}"}};
  all.update(own);
  return {"homeassistant/" + component + "/" + door + "/" + what + "/config", all.dump()};
}

// ON where the state is so.
Json sensor(const std::string& door, const std::string& name, const std::string& kind, const std::string& condition) {
  return {{"name", name},
          {"device_class", kind},
          {"state_topic", topics::state(door)},
          {"value_template", "{{ 'ON' if " + condition + " else 'OFF' }}"}};
}

}  // namespace

std::vector<Announcement> announcements(const std::string& door) {
  const std::string state = topics::state(door);
  const Json lock = {{"name", "Lock"},
                     {"state_topic", state},
                     {"value_template", "{{ 'UNLOCKED' if value_json.lock == 'open' else 'LOCKED' }}"},
                     {"command_topic", topics::command(door, "mode")},
                     {"payload_lock", R"({"mode": "normal", "by": "Home Assistant"})"},
                     {"payload_unlock", R"({"mode": "unlocked", "by": "Home Assistant"})"}};
  const Json button = {{"name", "Open"},
                       {"command_topic", topics::command(door, "open")},
                       {"payload_press", R"({"by": "Home Assistant"})"}};
  const Json tag = {{"topic", topics::journal(door, "identification")},
                    {"value_template", "{{ value_json.card }}"},
                    {"device", device_of(door)}};
  Json alarms = sensor(door, "Alarms", "problem", "value_json.alarms | length > 0");
  alarms["json_attributes_topic"] = state;
  alarms["json_attributes_template"] = "{{ {'alarms': value_json.alarms} | tojson }}";
  return {announcement(door, "lock", "lock", lock),
          announcement(door, "button", "open", button),
          announcement(door, "binary_sensor", "contact",
                       sensor(door, "Door", "door", "value_json.contact not in ['closed', 'not_used', none]")),
          announcement(door, "binary_sensor", "alarms", alarms),
          announcement(door, "binary_sensor", "reader",
                       sensor(door, "Reader", "connectivity", "value_json.reader not in ['silent', 'gone']")),
          {"homeassistant/tag/" + door + "/reader/config", tag.dump()}};
}

}  // namespace mqtt
