#include "door/control/gateway_commands.h"

#include <algorithm>
#include <string>

namespace achost {
namespace {

constexpr std::size_t kLongestName = 20;
constexpr std::size_t kLongestText = 500;  // bytes

bool is_name(const std::string& name) {
  return !name.empty() && name.size() <= kLongestName &&
         std::ranges::all_of(name, [](char c) { return c >= 'a' && c <= 'z'; });
}

Json set_alarm(Alarms& alarms, const Json& request) {
  const auto name = request["name"].get<std::string>();
  const std::string text = request.value("text", "");
  if (!is_name(name)) {
    throw RequestError("\"" + name + "\" is no gateway: 1 to 20 letters, such as mqtt");
  }
  if (text.size() > kLongestText || std::ranges::any_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7f; })) {
    throw RequestError("an alarm's text is one line of at most " + std::to_string(kLongestText) + " bytes");
  }
  const std::string alarm = "gateway." + name;
  text.empty() ? alarms.clear(alarm) : alarms.raise(alarm, text);
  return Json::object();
}

}  // namespace

ControlCommand gateway_alarm_command(Alarms& alarms) {
  return {"gateway_alarm",
          {{"name"}, {"text", ControlField::Type::text, false}},
          [&alarms](const Json& request, ControlStream&) { return set_alarm(alarms, request); }};
}

}  // namespace achost
