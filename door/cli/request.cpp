#include "door/cli/request.h"

#include "door/base/failure.h"

namespace achost {
namespace {

// The answer when the line is one that says that it went well. Throws Failure when it says that it did not.
void check(const Json& line) {
  if (!line.value("ok", true)) {
    const int status = line.value("status", 1);
    throw Failure(status == kUsage || status == kNotInForce ? static_cast<Status>(status) : kFailed,
                  line.value("error", "the host has refused"));
  }
}

}  // namespace

Json ask(const std::filesystem::path& state, const Json& request, Patience patience) {
  ControlClient client(state);
  client.send(request);
  Json answer = client.receive(patience);
  check(answer);
  answer.erase("ok");
  return answer;
}

std::optional<Json> ask_if_running(const std::filesystem::path& state, const Json& request, Patience patience) {
  try {
    return ask(state, request, patience);
  } catch (const NoHost&) {
    return std::nullopt;
  }
}

void follow(const std::filesystem::path& state, const Json& request, const std::function<bool(const Json&)>& take) {
  ControlClient client(state);
  client.send(request);
  Json line = client.receive(ControlClient::kPatience);
  for (; !line.contains("ok"); line = client.receive()) {
    if (!take(line)) {
      return;
    }
  }
  check(line);
}

}  // namespace achost
