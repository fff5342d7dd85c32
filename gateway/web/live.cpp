#include "gateway/web/live.h"

namespace web {

Live::Live(net::io_context& context, gateway::Daemon& daemon)
    : context_(context), daemon_(daemon), status_(context, daemon, "status"), onlookers_(context, kMostOnlookers) {}

std::string Live::event_of(const Snapshot& snapshot) {
  return snapshot.answer.has_value() ? event_text("status", *snapshot.answer)
                                     : event_text("away", {{"error", snapshot.error}});
}

std::shared_ptr<Onlooker> Live::look_on(std::string_view last_event) {
  return onlookers_.add(timeline_.since(last_event));
}

net::awaitable<std::string> Live::beginning() {
  const auto now = co_await status_.get();
  co_return event_of(*now);
}

net::awaitable<void> Live::pause() {
  net::steady_timer timer(context_, gateway::Daemon::kBeforeAgain);
  co_await wait_for(timer);
}

net::awaitable<void> Live::tell_status() {
  for (;;) {
    co_await onlookers_.wait_for_one();
    const auto now = co_await status_.get();
    onlookers_.publish(event_of(*now));
    co_await pause();
  }
}

net::awaitable<void> Live::tell_entries() {
  // Not made where it is given away: the compiler ends such things twice.
  const std::function<bool(const Json&)> take = [this](const Json& line) {
    if (const std::string text = timeline_.take(line); !text.empty()) {
      onlookers_.publish(text);
    }
    return !onlookers_.empty();
  };
  for (;;) {
    co_await onlookers_.wait_for_one();
    try {
      const Json request = timeline_.request();
      gateway::Hangup hangup;
      co_await daemon_.follow(request, take, hangup);
    } catch (const std::exception&) {
      // The status tells it.
    }
    co_await pause();
  }
}

}  // namespace web
