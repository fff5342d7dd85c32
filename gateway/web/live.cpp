#include "gateway/web/live.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <utility>

namespace web {
namespace {

using boost::system::error_code;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kFresh{900};  // a status; those who look on get one each second
constexpr std::chrono::seconds kPause{1};

// Until the timer is cancelled, or its time has come.
net::awaitable<void> wait_for(net::steady_timer& timer) {
  error_code ended;
  co_await timer.async_wait(net::redirect_error(net::use_awaitable, ended));
}

// A timer that only cancel() ends, for any number who wait: a new time for one of them would wake the others.
constexpr auto kNever = steady_clock::time_point::max();

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
    : context_(context), daemon_(daemon), somebody_(context, kNever), answered_(context, kNever) {}

std::string Live::event_of(const Snapshot& snapshot) {
  return snapshot.status.has_value() ? event_text("status", *snapshot.status)
                                     : event_text("away", {{"error", snapshot.error}});
}

net::awaitable<std::shared_ptr<const Snapshot>> Live::snapshot() {
  if (latest_ != nullptr && steady_clock::now() - latest_->at < kFresh) {
    co_return latest_;
  }
  if (is_asking_) {
    co_await wait_for(answered_);
    co_return latest_;
  }
  is_asking_ = true;
  const auto fresh = std::make_shared<Snapshot>();
  try {
    const Json request = {{"command", "status"}};
    fresh->status = co_await daemon_.ask(request);
  } catch (const std::exception& failure) {
    fresh->error = failure.what();
  }
  fresh->at = steady_clock::now();
  latest_ = fresh;
  is_asking_ = false;
  answered_.cancel();
  co_return latest_;
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
    const auto now = co_await snapshot();
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
