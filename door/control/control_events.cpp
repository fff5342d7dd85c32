#include "door/control/control_events.h"

#include <set>
#include <sstream>

#include "door/base/local_time.h"
#include "door/control/answer_parts.h"
#include "refhost/bus_view.h"

namespace achost {
namespace {

using Type = ControlField::Type;

std::set<std::string, std::less<>> types_of(const Json& request) {
  std::set<std::string, std::less<>> types;
  std::istringstream list(request.value("types", ""));
  for (std::string type; std::getline(list, type, ',');) {
    types.insert(type);
  }
  return types;
}

class BusFollowing {
 public:
  BusFollowing(EventRing& ring, const Json& request, ControlStream& stream)
      : ring_(ring), stream_(stream), types_(types_of(request)) {
    const auto newest = ring.newest();
    after_ = number_in(request, "after").value_or(newest);
    if (after_ < 0) {
      throw RequestError("\"after\" is a number from 0 on");
    }
    const bool is_anothers =
        after_ > newest || (request.contains("after") && request.value("run", ring.run()) != ring.run());
    after_ = is_anothers ? 0 : after_;
    is_read_ = stream.send({{"following", true}, {"run", ring.run()}, {"after", after_}, {"newest", newest}}) &&
               (!is_anothers || stream.send({{"gap", {{"reason", "another_run"}, {"after", 0}}}}));
  }

  void run() {
    while (is_read_ && !stream_.is_over()) {
      ring_.take(after_, part_, kLook);
      const std::string lines = lines_of_part();
      is_read_ = lines.empty() || stream_.send_lines(lines);
      after_ = part_.last();
    }
  }

 private:
  std::string lines_of_part() const {
    std::string lines;
    if (part_.first() > after_ + 1) {
      lines = line_of({{"gap", {{"reason", "gone"}, {"first", after_ + 1}, {"last", part_.first() - 1}}}});
    }
    part_.for_each([&](const EventRing::Event& event) {
      if (types_.empty() || types_.contains(event.type)) {
        lines += line_of({{"number", event.number},
                          {"time", iso_time(event.time)},
                          {"message", event.type},
                          {"fields", refhost::fields_of(event.fields)}});
      }
    });
    return lines;
  }

  EventRing& ring_;
  ControlStream& stream_;
  const std::set<std::string, std::less<>> types_;
  EventRing::Part part_;
  std::int64_t after_ = 0;  // the latest that the client was told of
  bool is_read_ = true;
};

}  // namespace

ControlCommand events_command(EventRing& ring) {
  return {"events",
          {{"types", Type::text, false}, {"after", Type::integer, false}, {"run", Type::text, false}},
          [&ring](const Json& request, ControlStream& stream) {
            BusFollowing(ring, request, stream).run();
            return Json::object();
          }};
}

}  // namespace achost
