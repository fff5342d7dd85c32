// The tags in the field.
#include <algorithm>
#include <cctype>
#include <cstdio>

#include "card_value.h"
#include "commands.h"
#include "failure.h"
#include "port.h"
#include "tags.h"
#include "terminal.h"

namespace uhfctl {

namespace {

std::string upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

std::string hex(unsigned int value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*X", digits, value);
  return text;
}

std::uint64_t value_of(const SeenTag& tag, const InventoryOptions& options) {
  return cardValueOf(tag.epc, options.identification_bits, upper(options.reader_type) == "LSB");
}

std::string as_table(const Tags& tags, const InventoryOptions& options, Clock::time_point begin) {
  std::vector<std::vector<std::string>> rows{{"EPC", "RSSI", "PC", "times", "first", "last"}};
  if (options.card_value) {
    rows.front().push_back("card value");
  }
  for (const auto& [epc, tag] : tags.all()) {
    rows.push_back({epc, std::to_string(tag.rssi), hex(tag.pc, 4), std::to_string(tag.times),
                    seconds(tag.first - begin) + " s", seconds(tag.last - begin) + " s"});
    if (options.card_value) {
      rows.back().push_back(std::to_string(value_of(tag, options)));
    }
  }
  return table(rows);
}

void print_objects(const Tags& tags, const InventoryOptions& options, Clock::time_point begin) {
  const auto since_begin = [begin](Clock::time_point time) {
    return std::chrono::duration<double>(time - begin).count();
  };
  for (const auto& [epc, tag] : tags.all()) {
    nlohmann::ordered_json object{{"epc", epc},
                                  {"rssi", tag.rssi},
                                  {"pc", hex(tag.pc, 4)},
                                  {"times", tag.times},
                                  {"first", since_begin(tag.first)},
                                  {"last", since_begin(tag.last)}};
    if (options.card_value) {
      object["card_value"] = value_of(tag, options);
    }
    print(object);
  }
}

// The table on a terminal while the inventory goes on, each in place of the one before.
class LiveTable {
 public:
  void show(const std::string& text) {
    print((lines_ == 0 ? "" : "\033[" + std::to_string(lines_) + "A\033[J") + text);
    lines_ = std::ranges::count(text, '\n');
  }

 private:
  std::ptrdiff_t lines_ = 0;
};

}  // namespace

void inventory(const Common& common, const InventoryOptions& options) {
  const auto prefix = upper(options.filter);
  if (!std::ranges::all_of(prefix, [](unsigned char c) { return std::isxdigit(c) != 0; })) {
    throw Failure(kUsage,
                  "\"" + options.filter + "\" is no beginning of an EPC: give hexadecimal digits, such as E200");
  }
  const Port port(common.port, std::chrono::milliseconds(common.timeout));
  port.power_or_nobody();
  catch_interrupts();
  Tags tags(prefix);
  LiveTable live;
  const bool is_live = is_terminal() && !common.json;
  const auto begin = Clock::now();
  auto next_look = begin;
  const auto is_over = [&] {
    return interrupted() ||
           (options.seconds > 0 && Clock::now() - begin >= std::chrono::duration<double>(options.seconds)) ||
           (options.count > 0 && tags.all().size() >= static_cast<std::size_t>(options.count));
  };
  do {
    const auto poll = port.poll();
    if (!poll.answered) {
      port.power();
    }
    const auto now = Clock::now();
    tags.add(poll, now);
    if (now >= next_look) {
      next_look = now + std::chrono::milliseconds(250);
      if (is_live) {
        live.show(as_table(tags, options, begin));
      } else {
        progress(seconds(now - begin) + " s, " + std::to_string(tags.all().size()) + " tags, " +
                 std::to_string(tags.readings()) + " readings");
      }
    }
  } while (!is_over());
  progress("");
  if (common.json) {
    print_objects(tags, options, begin);
  } else if (is_live) {
    live.show(as_table(tags, options, begin));
  } else {
    print(as_table(tags, options, begin));
  }
  if (tags.all().empty()) {
    note("no tag" + (prefix.empty() ? std::string() : " that begins with " + prefix) + " in " +
         seconds(Clock::now() - begin) + " s");
  }
}

}  // namespace uhfctl
