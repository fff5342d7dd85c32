#include "door/cli/event_line.h"

#include <cstdint>

#include "refhost/log_entry.h"

namespace achost {

std::string event_line(const Json& line) {
  if (line.contains("gap")) {
    return gap_line(line);
  }
  if (!line.contains("message")) {
    return "";
  }
  std::string fields;
  for (const auto& [name, value] : line.at("fields").items()) {
    fields += "  " + name + "=" + (value.is_string() ? refhost::log::escape(value.get<std::string>()) : value.dump());
  }
  const std::string type = line.at("message");
  constexpr std::size_t kTypeWidth = 26;
  return line.at("time").get<std::string>().substr(11, 12) + "  " + type +
         std::string(type.size() < kTypeWidth && !fields.empty() ? kTypeWidth - type.size() : 0, ' ') + fields + "\n";
}

std::string gap_line(const Json& line) {
  const Json& gap = line.at("gap");
  if (gap.at("reason") != "gone") {
    return "  ... the host has started anew since\n";
  }
  const auto count = gap.at("last").get<std::int64_t>() - gap.at("first").get<std::int64_t>() + 1;
  return "  ... " + std::to_string(count) + " message" + (count == 1 ? "" : "s") +
         " left out, no longer kept when you came to read\n";
}

}  // namespace achost
