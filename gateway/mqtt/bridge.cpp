#include "gateway/mqtt/bridge.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/signal_set.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <system_error>
#include <vector>

#include "gateway/base/memory.h"
#include "gateway/mqtt/client_id.h"
#include "gateway/mqtt/discovery.h"
#include "gateway/mqtt/text.h"
#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

using std::filesystem::file_time_type;

constexpr std::chrono::seconds kLookAtFiles{2};
constexpr std::chrono::minutes kJustStarted{2};  // a machine
constexpr std::chrono::seconds kSpread{10};

void say(const std::string& text) { std::fprintf(stderr, "achost-mqtt: %s\n", text.c_str()); }

std::vector<file_time_type> times_of(const Files& files) {
  std::vector<file_time_type> times;
  for (const std::string& file : {files.ca, files.certificate, files.key}) {
    std::error_code failure;
    times.push_back(std::filesystem::last_write_time(file, failure));
  }
  return times;
}

// While a file is being replaced they may be at odds.
bool are_usable(const Place& place) {
  try {
    const Safety safety(place.files, place.host);
    return true;
  } catch (const BadFiles&) {
    return false;
  }
}

// Nobody else is to know under which client id the door is there.
Place own_place(const Options& options) {
  Place place = place_of(options);
  place.client = options.door + "-" + kept_secret(options.state / "client-id");
  return place;
}

// Also of the time that the machine has slept.
std::chrono::seconds uptime() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::seconds(time.tv_sec);
}

}  // namespace

Timing timing_after(std::chrono::seconds uptime) {
  return {.first = uptime < kJustStarted ? kSpread : std::chrono::seconds(0)};
}

Bridge::Bridge(net::io_context& context, const Options& options, const Timing& timing)
    : context_(context),
      door_(options.door),
      discovery_(options.discovery),
      daemon_(context, options.daemon),
      broker_(context, own_place(options),
              {.up = [this] { came_up(); },
               .down = [this](const Fault& fault) { went_down(fault); },
               .message = [this](const Message& message) { take(message); }},
              timing),
      outbox_({.context = context,
               .daemon = daemon_,
               .broker = broker_,
               .door = door_,
               .file = options.state / "position.json",
               .began = [this] { daemon_is_up(); },
               .seen = [this](const Json& entry) { telling_.look_again(entry.value("boot", "")); },
               .say = say}),
      telling_(context, daemon_, broker_, door_, [this] { return outbox_.behind(); }),
      commands_(context, daemon_, broker_, door_, [this](std::int64_t after) { outbox_.go_back(after); }),
      desired_({.context = context,
                .daemon = daemon_,
                .broker = broker_,
                .door = door_,
                .directory = options.state / "desired",
                .say = say}) {
  broker_.set_will(topics::state(door_), [] { return state_gone(now_ms()); });
  broker_.subscribe(topics::command(door_, "+"), {}, true);
  broker_.subscribe(topics::desired(door_));
}

void Bridge::start() {
  broker_.start();
  net::co_spawn(context_, outbox_.run(), net::detached);
  net::co_spawn(context_, telling_.run(), net::detached);
  net::co_spawn(context_, desired_.run(), net::detached);
  net::co_spawn(context_, look_after_files(), net::detached);
}

void Bridge::stop() {
  if (broker_.is_up()) {
    broker_.publish({.topic = topics::state(door_), .payload = state_gone(now_ms()), .retain = true});
  }
  broker_.stop();
  outbox_.keep(std::nullopt);
}

void Bridge::came_up() {
  say("connected to " + broker_.place().host);
  said_.clear();
  is_safety_doubted_ = false;
  alarm("");
  if (discovery_) {
    for (const Announcement& one : announcements(door_)) {
      broker_.publish({.topic = one.topic, .payload = one.payload, .retain = true});
    }
  }
  telling_.broker_is_up();
  outbox_.broker_is_up();
  desired_.broker_is_up();
  gateway::give_back_memory();
}

// Whatever it was before: a backup may have taken the place of what it had.
void Bridge::daemon_is_up() {
  telling_.daemon_is_up();
  desired_.look_again();
}

// Once may be a broker that was ended at the wrong moment.
void Bridge::went_down(const Fault& fault) {
  if (fault.text != said_) {
    say(fault.text);
    said_ = fault.text;
  }
  if (fault.is_of_safety && std::exchange(is_safety_doubted_, true)) {
    alarm(fault.text);
  }
  outbox_.broker_is_down();
}

void Bridge::take(const Message& message) {
  const auto place = topics::place_of(message.topic);
  if (!place.has_value() || place->door != door_) {
    return;
  }
  if (const auto name = topics::behind(place->rest, "cmd/")) {
    commands_.take(*name, message);
  } else if (const auto hash = topics::behind(place->rest, "desired/parts/")) {
    desired_.take_part(*hash, message.payload);
  } else if (place->rest == "desired") {
    desired_.take_manifest(message.payload);
  }
}

void Bridge::alarm(const std::string& text) {
  if (text != alarm_) {
    alarm_ = text;
    net::co_spawn(context_, set_alarm(text), net::detached);
  }
}

net::awaitable<void> Bridge::set_alarm(const std::string text) {
  Json request = {{"command", "gateway_alarm"}, {"name", "mqtt"}};
  if (!text.empty()) {
    request["text"] = text;
  }
  while (text == alarm_) {
    try {
      co_await daemon_.ask(request);
      co_return;
    } catch (const gateway::Refused& failure) {
      say(failure.what());
      co_return;
    } catch (const std::exception&) {
      // Once the daemon is there.
    }
    co_await pause(context_, kLookAtFiles);
  }
}

net::awaitable<void> Bridge::look_after_files() {
  const Files& files = broker_.place().files;
  auto known = times_of(files);
  for (;;) {
    co_await pause(context_, kLookAtFiles);
    outbox_.keep(std::chrono::steady_clock::now());
    auto now = times_of(files);
    if (!files.ca.empty() && now != known && are_usable(broker_.place())) {
      known = std::move(now);
      broker_.renew();
    }
  }
}

void run(const Options& options) {
  std::filesystem::create_directories(options.state);
  net::io_context context(1);
  Bridge bridge(context, options, timing_after(uptime()));
  net::signal_set ends(context, SIGINT, SIGTERM);
  ends.async_wait([&](const boost::system::error_code&, int) {
    bridge.stop();
    context.stop();
  });
  net::signal_set renewals(context, SIGHUP);
  const std::function<void(const boost::system::error_code&, int)> renew = [&](const boost::system::error_code& failure,
                                                                               int) {
    if (!failure) {
      bridge.renew();
      renewals.async_wait(renew);
    }
  };
  renewals.async_wait(renew);
  bridge.start();
  context.run();
}

}  // namespace mqtt
