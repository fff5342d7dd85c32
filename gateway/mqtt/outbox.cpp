#include "gateway/mqtt/outbox.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <utility>

#include "gateway/mqtt/text.h"
#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

constexpr std::chrono::milliseconds kAfterAnEnd{500};  // after an end of the daemon's

}  // namespace

net::awaitable<void> wait_for(net::steady_timer& timer) {
  boost::system::error_code ended;
  co_await timer.async_wait(net::redirect_error(net::use_awaitable, ended));
}

net::awaitable<void> pause(net::io_context& context, std::chrono::milliseconds length) {
  net::steady_timer timer(context, length);
  co_await wait_for(timer);
}

std::string payload_of(const std::string& door, const std::string& journal, const Json& content) {
  Json all = {{"door", door}, {"journal", journal}};
  all.update(content);
  return text_of(all);
}

Outbox::Outbox(Needs needs) : needs_(std::move(needs)), file_(needs_.file), wake_(needs_.context, kNever) {
  acknowledged_.begin_at(file_.stored());
}

void Outbox::broker_is_down() { begin_anew(); }

// From what is acknowledged. What has come of the journal already is not told any more.
void Outbox::begin_anew() {
  is_over_ = true;
  if (connection_ != nullptr) {
    connection_->close();
  }
  if (ahead_ != nullptr) {
    ahead_->close();
  }
  wake_.cancel();
}

// Not at once: what is under way is acknowledged yet, and would be the latest that is.
void Outbox::go_back(std::int64_t after) {
  back_to_ = std::min(after, back_to_.value_or(after));
  begin_anew();
}

net::awaitable<void> Outbox::wait_for_change() {
  wake_.expires_at(kNever);
  co_await wait_for(wake_);
}

net::awaitable<void> Outbox::run() {
  for (;;) {
    while (!needs_.broker.is_up()) {
      co_await wait_for_change();
    }
    try {
      co_await follow();
    } catch (const std::exception&) {
      // The state tells that the daemon is away; that the broker is, everybody knows.
    }
    connection_ = nullptr;
    if (ahead_ != nullptr) {
      ahead_->close();
    }
    keep(std::nullopt);
    co_await pause(needs_.context, kAfterAnEnd);
  }
}

net::awaitable<void> Outbox::follow() {
  is_over_ = false;
  const Position reached = acknowledged_.reached();
  const auto back_to = std::exchange(back_to_, std::nullopt).value_or(reached.number);
  acknowledged_.begin_at({reached.journal, std::min(back_to, reached.number)});
  co_await look_ahead();
  const Position& from = acknowledged_.reached();
  journal_ = from.journal;
  Json request = {{"command", "journal_follow"}, {"after", from.number}};
  if (!from.journal.empty()) {
    request["journal"] = from.journal;
  }
  connection_ = needs_.daemon.connect();
  co_await connection_->send(request);
  Json line = co_await connection_->receive();
  while (!is_over_ && needs_.broker.is_up()) {
    co_await take(line);
    line = co_await connection_->receive(gateway::Connection::kForEver);
  }
}

// What happens from now on is followed too where much has waited, before that is begun: so nothing is between them.
net::awaitable<void> Outbox::look_ahead() {
  auto ahead = needs_.daemon.connect();
  const Json request = {{"command", "journal_follow"}};
  co_await ahead->send(request);
  const Json line = co_await ahead->receive();
  const Position& from = acknowledged_.reached();
  const auto now = line.at("after").get<std::int64_t>();
  const auto journal = line.at("journal").get<std::string>();
  behind_ = now - (from.journal == journal ? from.number : 0);
  if (behind_ >= kFarBehind && !ahead_running_) {
    ahead_running_ = true;
    ahead_ = std::move(ahead);
    net::co_spawn(needs_.context, tell_live(journal), [this](const std::exception_ptr&) {
      ahead_ = nullptr;
      ahead_running_ = false;
    });
  }
}

net::awaitable<void> Outbox::take(const Json& line) {
  if (line.contains("following")) {
    journal_ = line.at("journal").get<std::string>();
    if (needs_.began) {
      needs_.began();
    }
  } else if (line.contains("entry")) {
    const Json& entry = line["entry"];
    if (behind_ == 0 && needs_.seen) {
      needs_.seen(entry);
    }
    const auto kind = entry.at("kind").get<std::string>();
    const Position position{journal_, entry.at("number").get<std::int64_t>()};
    co_await tell(kind, entry, position);
  } else if (line.contains("gap")) {
    const Json& gap = line["gap"];
    const std::string kind = "gap";
    const Position position{journal_, gap.at(gap.contains("last") ? "last" : "after").get<std::int64_t>()};
    co_await tell(kind, gap, position);
  } else if (line.contains("behind")) {
    behind_ = line["behind"].get<std::int64_t>();
  } else if (line.contains("live")) {
    behind_ = 0;
    if (ahead_ != nullptr) {
      ahead_->close();
    }
  }
}

net::awaitable<void> Outbox::tell(const std::string& kind, const Json& content, const Position& position) {
  const Publication publication{.topic = topics::journal(needs_.door, kind),
                                .payload = payload_of(needs_.door, journal_, content)};
  for (;;) {
    if (is_over_ || !needs_.broker.is_up()) {
      throw gateway::NoDaemon("the broker has gone");
    }
    if (acknowledged_.under_way() < kWindow) {
      const auto handle = acknowledged_.send(position);
      if (needs_.broker.publish(publication, [this, handle](Outcome outcome) { done(handle, outcome); })) {
        co_return;
      }
      throw gateway::NoDaemon("the broker takes no more");
    }
    co_await wait_for_change();
  }
}

void Outbox::done(Acknowledgements::Handle handle, Outcome outcome) {
  if (outcome == Outcome::taken) {
    acknowledged_.take(handle);
    keep(std::chrono::steady_clock::now());
  } else {
    if (outcome == Outcome::refused) {
      needs_.say("the broker refuses what is told at " + topics::journal(needs_.door, "#") +
                 ": its ACL is to let this door write there");
    }
    begin_anew();  // also where the broker is there again already
  }
  wake_.cancel();
}

// Without a file it goes on; after an end more comes twice then.
void Outbox::keep(std::optional<PositionFile::Time> now) {
  try {
    now.has_value() ? file_.keep(acknowledged_.reached(), *now) : file_.keep_now(acknowledged_.reached());
  } catch (const std::exception& failure) {
    needs_.say(failure.what());
  }
}

// What the broker does not take now is on its way anyway.
net::awaitable<void> Outbox::tell_live(const std::string journal) {
  for (;;) {
    const Json line = co_await ahead_->receive(gateway::Connection::kForEver);
    if (!line.contains("entry")) {
      continue;
    }
    const Json& entry = line["entry"];
    if (needs_.seen) {
      needs_.seen(entry);
    }
    needs_.broker.publish({.topic = topics::live(needs_.door, entry.at("kind").get<std::string>()),
                           .payload = payload_of(needs_.door, journal, entry)});
  }
}

}  // namespace mqtt
