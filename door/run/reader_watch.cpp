#include "door/run/reader_watch.h"

#include <utility>

#include "refhost/send.h"

namespace achost {

ReaderWatch::ReaderWatch(Reader& reader, const Supervisor& supervisor, const std::filesystem::path& state,
                         std::function<void(const std::string&)> give_up)
    : reader_(reader), supervisor_(supervisor), give_up_(std::move(give_up)) {
  auto* const line = reader_.line();
  if (line == nullptr) {
    return;
  }
  recordings_.emplace(state, line->recorder());
  tap_.emplace([line](const ac::Message& message) { line->recorder().note(refhost::line_of(message)); });
  reader_.on_event([this](const line::Event& event) { tell(event); });
}

// Whoever is told something then has been told when this returns.
ReaderWatch::~ReaderWatch() {
  reader_.on_event([](const line::Event&) {});
}

void ReaderWatch::tell(const line::Event& event) const {
  using EventKind = line::Event::Kind;
  if (event.kind == EventKind::state) {
    refhost::send("reader_state", {{"state", std::string(name_of(event.health.state))},
                                   {"cause", event.health.cause},
                                   {"way_out", event.health.way_out}});
    supervisor_.tell("STATUS=" + event.text);
  } else if (event.kind == EventKind::given_up) {
    give_up_(event.text);
  } else {
    refhost::send("reader_recovery", {{"text", event.text}});
  }
}

}  // namespace achost
