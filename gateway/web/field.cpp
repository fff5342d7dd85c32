#include "gateway/web/field.h"

#include <functional>

#include "gateway/web/latest.h"
#include "gateway/web/timeline.h"

namespace web {

Field::Field(net::io_context& context, gateway::Daemon& daemon)
    : context_(context), daemon_(daemon), onlookers_(context, kMostOnlookers) {}

std::shared_ptr<Onlooker> Field::look_on(std::string_view) { return onlookers_.add(); }

// The daemon is to look at nothing for nobody.
void Field::leave(const std::shared_ptr<Onlooker>& onlooker) {
  onlookers_.leave(onlooker);
  if (onlookers_.empty()) {
    latest_.clear();
    hangup_.now();
  }
}

net::awaitable<std::string> Field::beginning() { co_return latest_; }

void Field::say(const std::string& event, const Json& data) {
  latest_ = event_text(event, data);
  onlookers_.publish(latest_);
}

net::awaitable<void> Field::tell() {
  // Not made where it is given away: the compiler ends such things twice.
  const std::function<bool(const Json&)> take = [this](const Json& line) {
    if (line.contains("field")) {
      say("field", line.at("field"));
    }
    return !onlookers_.empty();
  };
  const Json request = {{"command", "watch_field"}};
  for (;;) {
    co_await onlookers_.wait_for_one();
    try {
      hangup_ = {};
      co_await daemon_.follow(request, take, hangup_);
    } catch (const std::exception& failure) {
      say("away", {{"error", failure.what()}});
    }
    if (!onlookers_.empty()) {
      net::steady_timer timer(context_, gateway::Daemon::kBeforeAgain);
      co_await wait_for(timer);
    }
  }
}

}  // namespace web
