#include "gateway/web/latest.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <utility>

namespace web {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kFresh{900};  // those who look on get one each second

}  // namespace

net::awaitable<void> wait_for(net::steady_timer& timer) {
  boost::system::error_code ended;
  co_await timer.async_wait(net::redirect_error(net::use_awaitable, ended));
}

Latest::Latest(net::io_context& context, gateway::Daemon& daemon, std::string command)
    : daemon_(daemon), command_(std::move(command)), answered_(context, kNever) {}

net::awaitable<std::shared_ptr<const Snapshot>> Latest::get() {
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
    const Json request = {{"command", command_}};
    fresh->answer = co_await daemon_.ask(request);
  } catch (const std::exception& failure) {
    fresh->error = failure.what();
  }
  fresh->at = steady_clock::now();
  latest_ = fresh;
  is_asking_ = false;
  answered_.cancel();
  co_return latest_;
}

}  // namespace web
