#include "door/control/reader_commands.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "door/journal/changes.h"
#include "refhost/log_entry.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using Seconds = std::chrono::duration<double>;

double seconds_since(line::Clock::time_point then) { return Seconds(line::Clock::now() - then).count(); }

Json steps(const line::Line& line) {
  const auto taken = line.steps_taken();
  return {{"dropped", taken[0]}, {"reopened", taken[1]}, {"reset", taken[2]}};
}

// The text in pieces: a line of the socket is no place for megabytes.
Json send_recording(const line::Line& line, ControlStream& stream) {
  constexpr std::size_t kPiece = 32768;
  const std::string text = line.recorder().text();
  for (std::size_t at = 0; at < text.size(); at += kPiece) {
    if (!stream.send({{"text", text.substr(at, kPiece)}})) {
      break;
    }
  }
  return Json::object();
}

Json look_on(line::Line& line, ControlStream& stream) {
  const auto onlooker = line.look_on();
  stream.send({{"following", true}});
  std::uint64_t dropped = 0;
  while (!stream.is_over()) {
    const auto piece = onlooker->next(kLook);
    if (!piece.has_value()) {
      continue;
    }
    const bool to_reader = piece->direction == line::Direction::to_reader;
    Json sent = {{"at", Seconds(piece->at.time_since_epoch()).count()},
                 {"time", iso_time(wall_time(piece->at))},
                 {"direction", to_reader ? ">" : "<"},
                 {"bytes", uhfsim::hex_of(piece->bytes)}};
    if (const auto all = onlooker->dropped(); all != dropped) {
      sent["left_out"] = all - std::exchange(dropped, all);
    }
    if (!stream.send(sent)) {
      break;
    }
  }
  return Json::object();
}

Json ask_reader(line::Line& line, const Json& request) {
  const auto what = request["what"].get<std::string>();
  if (what != "power" && what != "sensitivity") {
    throw RequestError("a reader cannot be asked for \"" + what + "\": ask for power or sensitivity");
  }
  const auto answer = line.ask(what == "power" ? line::Code::get_power : line::Code::get_sensitivity);
  if (!answer.has_value()) {
    throw std::runtime_error("the reader does not answer: " + line.health().cause);
  }
  return {{"bytes", uhfsim::hex_of(*answer)}};
}

Json borrow(line::Line& line, const Json& request, ControlStream& stream,
            const std::function<void(const Entry&)>& note) {
  constexpr std::size_t kLongestWho = 60;
  const auto health = line.health();
  if (health.state == line::State::lent) {
    throw std::runtime_error("the line is " + health.cause + " already");
  }
  if (health.state == line::State::gone) {
    throw std::runtime_error(health.cause + "; " + health.way_out);
  }
  const std::string who = refhost::log::escape(request["who"].get<std::string>().substr(0, kLongestWho));
  note(command_given("borrow", {{"who", who}}));
  line.lend(stream.hand_over(), who);
  return Json::object();
}

}  // namespace

Milliseconds wall_time(line::Clock::time_point then) {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now() - (line::Clock::now() - then));
}

line::Line& needed(line::Line* line) {
  if (line == nullptr) {
    throw std::runtime_error("the plug-in has the reader's port itself: this run was started with --direct");
  }
  return *line;
}

Json health_of(const line::Line* line) {
  if (line == nullptr) {
    return {{"state", "direct"}, {"cause", "the plug-in has the port itself"}, {"way_out", ""}};
  }
  const auto health = line->health();
  return {{"state", name_of(health.state)},
          {"cause", health.cause},
          {"way_out", health.way_out},
          {"port", line->port()},
          {"since_s", seconds_since(health.since)},
          {"last_answer_s", health.last_good.has_value() ? Json(seconds_since(*health.last_good)) : Json(nullptr)},
          {"polls_per_second", health.polls_a_second},
          {"bad_share", health.bad_share},
          {"polls", health.polls},
          {"bad_polls", health.bad_polls},
          {"silent_polls", health.silent_polls},
          {"dropped_bytes", health.dropped_bytes},
          {"recovery", steps(*line)}};
}

std::vector<ControlCommand> reader_commands(line::Line* line, const std::function<void(const Entry&)>& note) {
  return {
      {"health", {}, [line](const Json&, ControlStream&) { return health_of(line); }},
      {"recording", {}, [line](const Json&, ControlStream& stream) { return send_recording(needed(line), stream); }},
      {"look_on", {}, [line](const Json&, ControlStream& stream) { return look_on(needed(line), stream); }},
      {"ask_reader",
       {{"what"}},
       [line](const Json& request, ControlStream&) { return ask_reader(needed(line), request); }},
      {"borrow",
       {{"who"}},
       [line, note](const Json& request, ControlStream& stream) {
         return borrow(needed(line), request, stream, note);
       }},
  };
}

}  // namespace achost
