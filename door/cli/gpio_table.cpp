#include "door/cli/gpio_table.h"

#include <array>
#include <cstdio>
#include <vector>

#include "cli/text_table.h"
#include "door/base/gpio_plan.h"
#include "door/cli/event_line.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

std::string or_dash(const std::string& text) { return text.empty() ? "-" : refhost::log::escape(text); }

std::string wired_lines(const Json& answer) {
  std::vector<std::vector<std::string>> rows = {{"LINE", "NAME", "DIRECTION", "LEVEL", "CONSUMER", "USE"}};
  for (const auto& line : answer.at("wired")) {
    rows.push_back({line.at("offset").dump(), or_dash(line.at("name")), line.at("direction"),
                    line.at("level").is_null() ? "-" : line.at("level").dump(), or_dash(line.at("consumer")),
                    or_dash(line.at("use"))});
  }
  return "chip " + refhost::log::escape(answer.at("chip").get<std::string>()) + "\n" + aligned(rows);
}

}  // namespace

std::string gpio_table(const Json& answer) {
  const bool has_chip = !answer.at("chip").get<std::string>().empty();
  if (has_chip) {
    return wired_lines(answer);
  }
  std::string text;
  for (const auto& line : answer.at("lines")) {
    if (line.at("level") != 0) {
      text += "line " + line.at("line").dump() + " is " + line.at("level").dump() + "\n";
    }
  }
  return text.empty() ? "every line is 0\n" : text;
}

std::string edge_line(const Json& event) {
  if (event.contains("gap")) {
    return gap_line(event);
  }
  if (!event.contains("fields") || !event.at("fields").contains("at")) {
    return "";
  }
  const auto& fields = event.at("fields");
  const bool is_exit = fields.contains("active");
  const int line = is_exit ? kExitButton : fields.at("gpio").get<int>();
  const bool rises = is_exit ? fields.at("active") == 0 : fields.at("value") != 0;
  constexpr std::int64_t kSecond = 1000000000;
  const auto at = fields.at("at").get<std::int64_t>();
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%lld.%09lld  %s  %s\n", static_cast<long long>(at / kSecond),
                static_cast<long long>(at % kSecond), rises ? "rising " : "falling", gpio_line_name(line).c_str());
  return text.data();
}

}  // namespace achost
