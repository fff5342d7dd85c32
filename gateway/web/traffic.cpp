#include "gateway/web/traffic.h"

#include "gateway/web/latest.h"
#include "gateway/web/timeline.h"

namespace web {

Traffic::Traffic(net::io_context& context, gateway::Daemon& daemon)
    : context_(context), daemon_(daemon), onlookers_(context, kMostOnlookers) {}

std::shared_ptr<Onlooker> Traffic::look_on(std::string_view last_event) {
  const auto onlooker = onlookers_.add();
  if (onlooker != nullptr && followers_.add(onlooker, last_event)) {
    messages_.is_asked_anew = true;
    messages_.hangup.now();
  }
  return onlooker;
}

// The daemon is to copy nothing for nobody.
void Traffic::leave(const std::shared_ptr<Onlooker>& onlooker) {
  followers_.remove(onlooker);
  onlookers_.leave(onlooker);
  if (onlookers_.empty()) {
    messages_.hangup.now();
    frames_.hangup.now();
  }
}

net::awaitable<std::string> Traffic::beginning() { co_return event_text("begin", Json::object()); }

net::awaitable<void> Traffic::tell(Tap& tap) {
  for (;;) {
    co_await onlookers_.wait_for_one();
    co_await follow(tap);
    if (!std::exchange(tap.is_asked_anew, false) && !onlookers_.empty()) {
      net::steady_timer timer(context_, gateway::Daemon::kBeforeAgain);
      co_await wait_for(timer);
    }
  }
}

net::awaitable<void> Traffic::follow(Tap& tap) {
  const std::function<bool(const Json&)> take = [this, &tap](const Json& line) {
    if (line.contains("following")) {
      onlookers_.publish(event_text("together", {{"what", tap.event}}));
    }
    tap.is_asked_anew = !tap.take(line);
    return !tap.is_asked_anew && !onlookers_.empty();
  };
  try {
    const Json request = tap.request();
    tap.hangup = {};
    co_await daemon_.follow(request, take, tap.hangup);
  } catch (const std::exception& failure) {
    if (!tap.is_asked_anew) {
      onlookers_.publish(event_text("apart", {{"what", tap.event}, {"error", failure.what()}}));
    }
  }
}

bool Traffic::take_frame(const Json& line) {
  if (!line.contains("following")) {
    onlookers_.publish(event_text("frame", line));
  }
  return true;
}

}  // namespace web
