#include "gateway/web/live.h"

#include <utility>

namespace web {
namespace {

constexpr std::chrono::seconds kPause{1};

}  // namespace

Onlooker::Onlooker(net::io_context& context) : wake_(context) {}

net::awaitable<std::optional<std::string>> Onlooker::next(std::chrono::milliseconds longest) {
  if (waiting_.empty() && !is_over_) {
    wake_.expires_after(longest);
    co_await wait_for(wake_);
  }
  std::optional<std::string> text;
  if (!is_over_) {
    text = std::exchange(waiting_, {});
  }
  co_return text;
}

void Onlooker::put(const std::string& text) {
  if (waiting_.size() + text.size() > kMostWaiting) {
    end();
    return;
  }
  waiting_ += text;
  wake_.cancel();
}

void Onlooker::end() {
  is_over_ = true;
  wake_.cancel();
}

Live::Live(net::io_context& context, Daemon& daemon)
    : context_(context), daemon_(daemon), status_(context, daemon, "status"), somebody_(context, kNever) {}

std::string Live::event_of(const Snapshot& snapshot) {
  return snapshot.answer.has_value() ? event_text("status", *snapshot.answer)
                                     : event_text("away", {{"error", snapshot.error}});
}

std::shared_ptr<Onlooker> Live::look_on(std::string_view last_event) {
  if (onlookers_.size() >= kMostOnlookers) {
    return nullptr;
  }
  somebody_.cancel();
  const auto onlooker = std::make_shared<Onlooker>(context_);
  onlooker->put(timeline_.since(last_event));
  onlookers_.insert(onlooker);
  return onlooker;
}

void Live::leave(const std::shared_ptr<Onlooker>& onlooker) { onlookers_.erase(onlooker); }

void Live::publish(const std::string& text) {
  for (const auto& onlooker : onlookers_) {
    onlooker->put(text);
  }
}

net::awaitable<void> Live::wait_for_onlookers() {
  while (onlookers_.empty()) {
    co_await wait_for(somebody_);
  }
}

net::awaitable<void> Live::pause() {
  net::steady_timer timer(context_, kPause);
  co_await wait_for(timer);
}

net::awaitable<void> Live::tell_status() {
  for (;;) {
    co_await wait_for_onlookers();
    const auto now = co_await status_.get();
    publish(event_of(*now));
    co_await pause();
  }
}

net::awaitable<void> Live::tell_entries() {
  // Not made where it is given away: the compiler ends such things twice.
  const std::function<bool(const Json&)> take = [this](const Json& line) {
    if (const std::string text = timeline_.take(line); !text.empty()) {
      publish(text);
    }
    return !onlookers_.empty();
  };
  for (;;) {
    co_await wait_for_onlookers();
    try {
      const Json request = timeline_.request();
      co_await daemon_.follow(request, take);
    } catch (const std::exception&) {
      // The status tells it.
    }
    co_await pause();
  }
}

}  // namespace web
