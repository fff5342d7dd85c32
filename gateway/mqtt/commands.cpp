#include "gateway/mqtt/commands.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <utility>

#include "gateway/mqtt/text.h"

namespace mqtt {
namespace {

Json refusal(const std::string& text, int status) { return {{"ok", false}, {"status", status}, {"error", text}}; }

}  // namespace

void Commands::take(std::string_view name, const Message& message) {
  const Reply reply{.topic = answer_topic(door_, name, message.response_topic),
                    .correlation = std::string(message.correlation),
                    .in_payload = correlation_of(message.payload)};
  if (!limit_.take("", gateway::RateLimit::Time::clock::now())) {
    answer(reply, refusal("the door is asked too much: try again in a moment", 1));
    return;
  }
  try {
    const auto asked = std::make_shared<const Asked>(asked_of(name, message, now_ms()));
    net::co_spawn(context_, run(asked, std::make_shared<const Reply>(reply)), net::detached);
  } catch (const NotAsked& failure) {
    answer(reply, refusal(failure.what(), 2));
  }
}

net::awaitable<void> Commands::run(std::shared_ptr<const Asked> asked, std::shared_ptr<const Reply> reply) {
  Json json;
  try {
    if (asked->request["command"] == kReplay) {
      replay_(asked->request["after"].get<std::int64_t>());
      json = {{"ok", true}};
    } else if (asked->is_recording) {
      json = co_await recording(asked->request);
    } else if (asked->request["command"] == kDrift) {
      json = co_await drift(asked->request);
    } else {
      json = co_await daemon_.ask_any(asked->request, asked->patience);
    }
  } catch (const std::exception& failure) {
    json = refusal(failure.what(), 1);
  }
  answer(*reply, std::move(json));
}

net::awaitable<Json> Commands::recording(const Json& request) {
  const auto connection = daemon_.connect();
  co_await connection->send(request);
  std::string text;
  for (;;) {
    Json line = co_await connection->hear();
    if (line.contains("ok")) {
      if (line["ok"] == true) {
        line["text"] = text;
      }
      co_return line;
    }
    text += line.value("text", "");
    if (text.size() > kLongestRecording) {
      co_return refusal(
          "the recording is larger than what goes over the broker: take it at the door, with achost recording", 1);
    }
  }
}

net::awaitable<Json> Commands::drift(const Json& request) {
  const auto connection = daemon_.connect();
  co_await connection->send(request);
  Json lines = Json::array();
  for (bool more = false;;) {
    Json line = co_await connection->hear();
    if (line.contains("ok")) {
      line["lines"] = std::move(lines);
      line["more"] = more;
      co_return line;
    }
    more = lines.size() >= kMostDifferences;
    if (!more) {
      lines.push_back(std::move(line));
    }
  }
}

void Commands::answer(const Reply& reply, Json json) {
  json["door"] = door_;
  if (!reply.in_payload.is_null()) {
    json["correlation"] = reply.in_payload;
  }
  broker_.publish({.topic = reply.topic, .payload = text_of(json), .correlation = reply.correlation});
}

}  // namespace mqtt
