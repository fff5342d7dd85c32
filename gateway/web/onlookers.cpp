#include "gateway/web/onlookers.h"

#include <utility>

#include "gateway/web/latest.h"

namespace web {

Onlooker::Onlooker(net::io_context& context) : wake_(context) {}

net::awaitable<std::optional<std::string>> Onlooker::next(std::chrono::milliseconds longest) {
  if (waiting_.empty() && !is_over_) {
    wake_.expires_after(longest);
    co_await wait_for(wake_);
  }
  std::optional<std::string> text;
  if (!is_over_ || !waiting_.empty()) {
    text = std::exchange(waiting_, {});
  }
  co_return text;
}

void Onlooker::put(const std::string& text) {
  if (waiting_.size() + text.size() > kMostWaiting) {
    end();
  }
  if (!is_over_) {
    waiting_ += text;
    wake_.cancel();
  }
}

void Onlooker::end() {
  is_over_ = true;
  wake_.cancel();
}

Onlookers::Onlookers(net::io_context& context, std::size_t most)
    : context_(context), most_(most), somebody_(context, kNever) {}

std::shared_ptr<Onlooker> Onlookers::add(const std::string& beginning) {
  if (all_.size() >= most_) {
    return nullptr;
  }
  somebody_.cancel();
  const auto onlooker = std::make_shared<Onlooker>(context_);
  onlooker->put(beginning);
  all_.insert(onlooker);
  return onlooker;
}

void Onlookers::publish(const std::string& text) {
  for (const auto& onlooker : all_) {
    onlooker->put(text);
  }
}

net::awaitable<void> Onlookers::wait_for_one() {
  while (all_.empty()) {
    co_await wait_for(somebody_);
  }
}

}  // namespace web
