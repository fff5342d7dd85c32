#include "gateway/mqtt/asked.h"

#include <algorithm>
#include <array>

#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kUsual{5'000};
constexpr milliseconds kForAPerson{120'000};                                   // who is to hold a card to the reader
constexpr std::array<std::string_view, 3> kOwn = {"at", "by", "correlation"};  // fields that are no command's

Json object_of(std::string_view payload) {
  if (payload.size() > kLongestCommand) {
    throw NotAsked("a command has at most " + std::to_string(kLongestCommand) + " bytes");
  }
  Json request = payload.empty() ? Json::object() : gateway::parsed(payload);
  if (!request.is_object()) {
    throw NotAsked("a command is a JSON object, such as {\"by\": \"Ana\"}");
  }
  return request;
}

void check_age(const Json& request, std::int64_t now) {
  const auto at = request.find("at");
  if (at == request.end()) {
    return;
  }
  if (!at->is_number_integer()) {
    throw NotAsked("\"at\" is to be the time in ms since 1970");
  }
  const double age = static_cast<double>(now) - at->get<double>();
  if (age > static_cast<double>(kOldestCommand) || age < -static_cast<double>(kOldestCommand)) {
    throw NotAsked(
        "the command is not of now, by its \"at\" and this door's clock: give it again, and look at the clocks");
  }
}

// "SECTION.KEY".
void put_key(Json& request, const Json& asked, const char* field) {
  const Json key = asked.value(field, Json());
  const auto text = key.is_string() ? key.get<std::string>() : std::string();
  const auto dot = text.find('.');
  if (dot == std::string::npos) {
    throw NotAsked(std::string("\"") + field + "\" is to be a setting such as \"uhf.region\"");
  }
  request["section"] = text.substr(0, dot);
  request["key"] = text.substr(dot + 1);
}

// {"get": "uhf.region"}, {"set": "uhf.region", "value": "EU"}, or {"list": true}.
Json config_of(const Json& asked) {
  Json request;
  if (asked.contains("get")) {
    request["command"] = "config_get";
    put_key(request, asked, "get");
  } else if (asked.contains("set")) {
    request["command"] = "config_set";
    put_key(request, asked, "set");
    request["value"] = asked.value("value", Json());
  } else if (asked.contains("list")) {
    request["command"] = "config_list";
  } else {
    throw NotAsked("\"config\" wants \"get\", \"set\" with \"value\", or \"list\"");
  }
  return request;
}

struct Command {
  std::string_view name;
  const char* of_daemon;
  milliseconds patience;
};

constexpr std::array<Command, 9> kCommands = {{{"open", "door_open", kUsual},
                                               {"mode", "door_mode", kUsual},
                                               {"enroll", "enroll", kForAPerson},
                                               {"why", "why", kForAPerson},
                                               {"recording", "recording", kForAPerson},
                                               {"config", "config_list", kUsual},
                                               {"drift", kDrift, kForAPerson},
                                               {"status", "status", kUsual},
                                               {"replay", kReplay, kUsual}}};

const Command& command_of(std::string_view name) {
  const auto found = std::ranges::find(kCommands, name, &Command::name);
  if (found == kCommands.end()) {
    std::string there;
    for (const Command& one : kCommands) {
      there += (there.empty() ? "" : ", ") + std::string(one.name);
    }
    throw NotAsked("there is no such command: there are " + there);
  }
  return *found;
}

// {"after": N}: the journal from behind there on.
Json replay_of(const Json& asked) {
  const Json after = asked.value("after", Json());
  if (!after.is_number_integer() || after < 0 || after > INT64_MAX) {
    throw NotAsked("\"after\" is to be a number of the journal, from 0 on");
  }
  return {{"command", kReplay}, {"after", after}};
}

// What is no command's own goes to the daemon, which tells what it does not know.
void put_fields(Json& request, const Json& asked) {
  for (const auto& [key, value] : asked.items()) {
    if (key == "command" || key == "on_behalf_of") {
      throw NotAsked("a command has no \"" + key + "\": its topic names it, and \"by\" who wants it");
    }
    if (std::ranges::find(kOwn, key) == kOwn.end()) {
      request[key] = value;
    }
  }
}

}  // namespace

Asked asked_of(std::string_view name, const Message& message, std::int64_t now) {
  const Command& command = command_of(name);
  if (message.is_retained) {
    throw NotAsked("a retained command would be done again at each connection: give it without, and clear this one");
  }
  const Json asked = object_of(message.payload);
  check_age(asked, now);
  Asked result{.request = {}, .patience = command.patience, .is_recording = name == "recording"};
  if (name == "config") {
    result.request = config_of(asked);
  } else if (name == "replay") {
    result.request = replay_of(asked);
  } else {
    result.request["command"] = command.of_daemon;
    put_fields(result.request, asked);
  }
  if (asked.contains("by")) {
    result.request["on_behalf_of"] = asked["by"];
  }
  return result;
}

Json correlation_of(std::string_view payload) {
  const Json request = payload.size() > kLongestCommand ? Json() : gateway::parsed(payload);
  return request.is_object() ? request.value("correlation", Json()) : Json();
}

std::string answer_topic(std::string_view door, std::string_view name, std::string_view response_topic) {
  const auto place = topics::place_of(response_topic);
  const bool is_own = place.has_value() && place->door == door && !place->rest.starts_with("answer/");
  const bool is_usable = !response_topic.empty() && response_topic.find_first_of("+#$") == std::string_view::npos;
  return is_usable && !is_own ? std::string(response_topic) : topics::answer(door, name);
}

}  // namespace mqtt
