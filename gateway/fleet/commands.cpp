#include "gateway/fleet/commands.h"

#include <algorithm>
#include <cstdio>
#include <functional>

#include "cli/failure.h"
#include "cli/paragraph.h"
#include "door/base/encoding.h"
#include "door/base/local_time.h"
#include "door/services/user.h"
#include "gateway/fleet/doors.h"
#include "gateway/fleet/entry_line.h"
#include "gateway/fleet/now.h"
#include "gateway/mqtt/topics.h"

namespace fleet {
namespace {

constexpr std::chrono::seconds kUsual{10};
constexpr std::chrono::seconds kStory{130};  // it is reckoned from what may be hours of readings

void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

// A line that is too long for the terminal goes on below, indented.
std::string folded(const std::string& line) {
  constexpr std::size_t kIndent = 2;
  const std::size_t width = cli::terminal_width();
  return width == 0 || line.size() <= width ? line : cli::wrapped(line, kIndent, width);
}

// The doors that are there to be asked; who is away is said.
std::set<std::string> online(const Doors& doors, const std::set<std::string>& named, int& status) {
  std::set<std::string> there;
  for (const auto& id : named) {
    if (doors.at(id).is_online()) {
      there.insert(id);
    } else {
      std::fprintf(stderr, "achost-fleet: %s is offline\n", id.c_str());
      status = cli::kNoAnswer;
    }
  }
  return there;
}

using Show = std::function<std::string(const std::string& door, const Json& answer)>;

int show(const Answers& answers, bool as_json, int status, const Show& for_person) {
  for (const auto& [door, answer] : answers) {
    if (!answer.has_value()) {
      std::fprintf(stderr, "achost-fleet: %s has not answered\n", door.c_str());
      status = cli::kNoAnswer;
    } else if (as_json) {
      Json line = {{"door", door}};
      line.update(*answer);
      line.erase("correlation");
      print(line_of(line) + "\n");
      status = flag_in(*answer, "ok") ? status : int(cli::kFailed);
    } else if (!flag_in(*answer, "ok")) {
      std::fprintf(stderr, "achost-fleet: %s: %s\n", door.c_str(), shown(text_in(*answer, "error")).c_str());
      status = cli::kFailed;
    } else {
      print(for_person(door, *answer));
    }
  }
  return status;
}

// Asks all doors of these names that are there.
int ask_and_show(Centre& centre, const Words& patterns, const char* name, const Json& request, bool as_json,
                 const Show& for_person, std::chrono::seconds patience = kUsual) {
  const auto doors = doors_of(centre);
  const auto named = named_by(patterns, doors);
  int status = cli::kDone;
  const auto there = online(doors, named, status);
  return show(centre.ask(there, name, request, patience), as_json, status, for_person);
}

// One door alone, by its whole name.
std::string whole_name(const std::string& door) {
  if (!mqtt::topics::is_id(door)) {
    throw cli::Failure(cli::kUsage, achost::in_quotes(door) + " is no name of a door: give one of `achost-fleet list`");
  }
  return door;
}

std::string drift_text(const std::string& door, const Json& answer) {
  const auto revision = number_in(answer, "revision");
  const Json lines = value_in(answer, "lines");
  if (!lines.is_array() || lines.empty()) {
    return door + "  " + (revision.has_value() ? "as revision " + std::to_string(*revision) : "has no desired state") +
           "\n";
  }
  std::string text;
  for (const auto& line : lines) {
    text += folded(door + "  " + drift_line(value_in(line, "drift"))) + "\n";
  }
  text += flag_in(answer, "more") ? door + "  and others\n" : "";
  return text;
}

// A card value, or the EPC of one.
Json card_request(const std::string& card) {
  if (const auto number = achost::card_number(card)) {
    return {{"card", std::to_string(*number)}};
  }
  const bool is_epc =
      card.size() >= 4 && card.size() % 2 == 0 && card.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  if (!is_epc) {
    throw cli::Failure(cli::kUsage,
                       achost::in_quotes(card) + " is no card: give a number such as 33 or 0x21, or an EPC");
  }
  std::string epc = card;
  std::ranges::transform(epc, epc.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return {{"epc", epc}};
}

}  // namespace

int list_doors(Centre& centre, const Words& patterns, bool as_json) {
  const auto all = doors_of(centre);
  if (all.empty()) {
    std::fputs("achost-fleet: no door has told the broker of itself yet, or you may not read it\n", stderr);
    return cli::kDone;
  }
  const auto named = named_by(patterns, all);
  Doors doors;
  std::ranges::copy_if(all, std::inserter(doors, doors.end()),
                       [&](const auto& one) { return named.contains(one.first); });
  print(as_json ? doors_as_json(doors) : doors_as_table(doors, cli::terminal_width()));
  return cli::kDone;
}

int watch(Centre& centre, const Words& patterns, bool as_json) {
  const auto doors = doors_of(centre);
  const auto named = named_by(patterns, doors);
  centre.last();
  Doubles doubles;
  const auto take = [&](const mqtt::Message& message) {
    const auto place = mqtt::topics::place_of(message.topic);
    const bool is_wanted = place.has_value() && (patterns.empty() || named.contains(std::string(place->door)));
    const Json entry = object_of(message.payload);
    if (is_wanted && !message.is_retained && doubles.is_new(place->door, entry)) {
      print((as_json ? line_of(entry) : folded(entry_line(std::string(place->door), entry))) + "\n");
    }
  };
  centre.listen(mqtt::topics::journal("+", "+"), take);
  centre.listen(mqtt::topics::live("+", "+"), take);
  std::fputs("achost-fleet: watches; Ctrl-C ends\n", stderr);
  centre.wait_for_end();
  return cli::kDone;
}

int show_drift(Centre& centre, const Words& patterns, bool as_json) {
  return ask_and_show(centre, patterns, "drift", Json::object(), as_json, drift_text);
}

int tell_why(Centre& centre, const std::string& door, const std::string& card, std::int64_t span, bool as_json) {
  Json request = card_request(card);
  const auto at = now();
  request["from"] = at - span;
  request["to"] = at + 1000;  // what happens meanwhile, too
  const auto text = [](const std::string&, const Json& answer) { return text_in(answer, "text") + "\n"; };
  return ask_and_show(centre, {whole_name(door)}, "why", request, as_json, text, kStory);
}

int open_door(Centre& centre, const std::string& door, bool as_json) {
  return ask_and_show(centre, {whole_name(door)}, "open", Json::object(), as_json,
                      [](const std::string& id, const Json&) { return id + " opens\n"; });
}

int set_mode(Centre& centre, const std::string& pattern, const std::string& mode, std::int64_t seconds, bool as_json) {
  Json request = {{"mode", mode}};
  if (seconds != 0) {
    request["seconds"] = seconds;
  }
  return ask_and_show(centre, {pattern}, "mode", request, as_json, [&](const std::string& id, const Json& answer) {
    const auto now_in = text_in(answer, "mode");
    return id + " is " + (now_in.empty() ? mode : shown(now_in)) + "\n";
  });
}

}  // namespace fleet
