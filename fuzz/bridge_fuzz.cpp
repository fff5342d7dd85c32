// What comes over a broker: a command is asked of the daemon in one line and as nothing else than it is called, or
// refused in one line for a person; a manifest is one or is refused; a difference of parts says what to do in lines of
// JSON.
#include <algorithm>
#include <string>
#include <vector>

#include "gateway/base/json.h"
#include "gateway/mqtt/asked.h"
#include "gateway/mqtt/document.h"
#include "input.h"

namespace {

using gateway::Json;

void require_one_line(const std::string& said) {
  fuzz::require(!said.empty() && said.find('\n') == said.npos, "an error is one line");
}

void ask(fuzz::Input& input) {
  static const std::vector<std::string> kNames = {"open",   "mode",  "enroll", "why",    "recording",
                                                  "config", "drift", "status", "replay", "door_open"};
  static const std::vector<std::string> kOfDaemon = {"door_open", "door_mode",  "enroll",     "why",
                                                     "recording", "config_get", "config_set", "config_list",
                                                     "status",    mqtt::kDrift, mqtt::kReplay};
  const std::string name = kNames[input.below(kNames.size())];
  const bool is_retained = input.byte() == 1;
  const std::string response_topic = input.text();
  const std::string payload = input.all_text();
  const mqtt::Message message{
      .topic = {}, .payload = payload, .is_retained = is_retained, .response_topic = response_topic, .correlation = {}};
  try {
    const mqtt::Asked asked = mqtt::asked_of(name, message, 1'800'000'000'000);
    fuzz::require(!is_retained && name != "door_open", "what is retained, or no command, is not asked");
    const std::string line = gateway::line_of(asked.request);
    fuzz::require(line.find('\n') == line.size() - 1, "a request is one line");
    const auto command = asked.request.at("command").get<std::string>();
    fuzz::require(std::ranges::find(kOfDaemon, command) != kOfDaemon.end(), "only what is offered is asked");
  } catch (const mqtt::NotAsked& refused) {
    require_one_line(refused.what());
  }
  mqtt::correlation_of(payload);
  const std::string answer = mqtt::answer_topic("gate-1", name, response_topic);
  fuzz::require(answer.find_first_of("+#") == answer.npos, "an answer goes to one topic");
  fuzz::require(!answer.starts_with("doors/gate-1/") || answer.starts_with("doors/gate-1/answer/"),
                "an answer is not taken for what the door tells of itself");
}

void read_manifest(fuzz::Input& input) {
  try {
    const mqtt::Manifest manifest = mqtt::manifest_of(input.all_text());
    fuzz::require(manifest.revision >= 1, "a revision is 1 or more");
    for (const std::string& part : manifest.parts) {
      fuzz::require(part.size() == 32 && part.find_first_not_of("0123456789abcdef") == part.npos,
                    "a part's name leads nowhere else");
    }
  } catch (const mqtt::BadManifest& refused) {
    require_one_line(refused.what());
  }
}

void compare_parts(fuzz::Input& input) {
  const std::string gone = input.text();
  const std::string come = input.all_text();
  try {
    std::string lines = mqtt::difference({gone}, {come}).lines;
    for (std::size_t end = 0; (end = lines.find('\n')) != lines.npos; lines.erase(0, end + 1)) {
      fuzz::require(Json::parse(lines.substr(0, end), nullptr, false).is_object(), "each line is an object");
    }
    fuzz::require(lines.empty(), "the last line has its end");
    fuzz::require(mqtt::difference({come}, {come}).lines.empty(), "what is the same is no difference");
  } catch (const mqtt::BadManifest& refused) {
    require_one_line(refused.what());
  }
  mqtt::schedules_of(come);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  switch (input.below(3)) {
    case 0:
      ask(input);
      break;
    case 1:
      read_manifest(input);
      break;
    default:
      compare_parts(input);
  }
  return 0;
}
