// A door for Home Assistant: what its MQTT discovery wants to be told.
#pragma once

#include <string>
#include <vector>

namespace mqtt {

struct Announcement {
  std::string topic;
  std::string payload;
};

// All under homeassistant/COMPONENT/DOOR/, to be told retained.
std::vector<Announcement> announcements(const std::string& door);

}  // namespace mqtt
