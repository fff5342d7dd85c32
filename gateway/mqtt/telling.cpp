#include "gateway/mqtt/telling.h"

#include <utility>

#include "gateway/mqtt/outbox.h"
#include "gateway/mqtt/text.h"
#include "gateway/mqtt/topics.h"
#include "version.h"

namespace mqtt {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kLook{2'000};
constexpr milliseconds kSoon{300};  // after something has happened: much of it comes together
constexpr std::chrono::seconds kFigures{60};

}  // namespace

Json state_of(const Json& status, std::int64_t since, const std::string& boot, std::int64_t behind) {
  Json state = {{"online", true}, {"since", since}, {"version", UHF_VERSION}};
  if (!boot.empty()) {
    state["boot"] = boot;
  }
  state["reader"] = status.value("health", Json::object()).value("state", Json());
  const Json door = status.value("door", Json::object());
  for (const char* const key : {"lock", "mode", "by", "contact", "case"}) {
    state[key] = door.value(key, Json());
  }
  state["alarms"] = status.value("alarms", Json::array());
  const Json desired = status.value("desired", Json::object());
  state["revision"] = desired.value("revision", Json());
  state["drift"] = desired.value("differences", 0);
  state["behind"] = behind;
  return state;
}

Json state_without(const std::string& error) { return {{"online", false}, {"error", error}}; }

std::string state_gone(std::int64_t at) { return text_of({{"online", false}, {"at", at}}); }

Json health_of(const Json& status) {
  const Json health = status.value("health", Json::object());
  Json stable = Json::object();
  for (const char* const key : {"state", "cause", "way_out", "port"}) {
    stable[key] = health.value(key, Json());
  }
  return stable;
}

Telling::Telling(net::io_context& context, gateway::Daemon& daemon, Broker& broker, std::string door,
                 std::function<std::int64_t()> behind)
    : daemon_(daemon), broker_(broker), door_(std::move(door)), behind_(std::move(behind)), next_(context) {}

void Telling::broker_is_up() {
  told_.clear();
  figures_told_ = {};
  since_ = now_ms();
  next_.expires_after(milliseconds(0));
}

void Telling::daemon_is_up() {
  figures_told_ = {};
  next_.expires_after(milliseconds(0));
}

void Telling::look_again(const std::string& boot) {
  boot_ = boot;
  if (next_.expiry() > steady_clock::now() + kSoon) {
    next_.expires_after(kSoon);
  }
}

net::awaitable<void> Telling::run() {
  for (;;) {
    if (broker_.is_up()) {
      co_await look();
      co_await look_at_figures();
    }
    next_.expires_after(kLook);
    do {
      co_await wait_for(next_);
    } while (steady_clock::now() < next_.expiry());
  }
}

net::awaitable<void> Telling::look() {
  const Json request = {{"command", "status"}};
  try {
    const Json status = co_await daemon_.ask(request);
    const Json state = state_of(status, since_, boot_, behind_());
    tell(topics::state(door_), state, state);
    tell(topics::health(door_), status.value("health", Json::object()), health_of(status));
  } catch (const std::exception& failure) {
    const Json state = state_without(failure.what());
    tell(topics::state(door_), state, state);
  }
}

net::awaitable<void> Telling::look_at_figures() {
  if (figures_told_ != steady_clock::time_point() && steady_clock::now() - figures_told_ < kFigures) {
    co_return;
  }
  const Json request = {{"command", "figures"}};
  try {
    const Json figures = co_await daemon_.ask(request);
    tell(topics::figures(door_), figures, now_ms());
    figures_told_ = steady_clock::now();
  } catch (const std::exception&) {
    // The state tells it.
  }
}

void Telling::tell(const std::string& topic, Json what, const Json& compared) {
  const std::string text = text_of(compared);
  if (const auto found = told_.find(topic); found != told_.end() && found->second == text) {
    return;
  }
  what["at"] = now_ms();
  if (broker_.publish({.topic = topic, .payload = text_of(what), .retain = true}, [this, topic](Outcome outcome) {
        if (outcome != Outcome::taken) {
          told_.erase(topic);
        }
      })) {
    told_[topic] = text;
  }
}

}  // namespace mqtt
