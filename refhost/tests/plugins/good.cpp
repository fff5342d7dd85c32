// A plug-in that works: it announces card after card, and never ends.
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "ac/plugin.h"
#include "ac/post_office.h"
#include "ac/watchdog.h"

namespace {

int announce_cards() {
  for (std::int64_t card = 0x12345678;; ++card) {
    ac::watchdog::keep_alive("good");
    auto message = std::make_unique<ac::Message>("identifier_new_card");
    message->add_int64("value", card);
    message->add_int64("device_id", 1);
    message->add_string("uuid", "a-uuid");
    ac::PostOffice::send_message(std::move(message));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace

extern "C" bool init(ac::Plugin* plugin, std::string* /*error*/) {
  plugin->set_name("good");
  plugin->set_run(announce_cards);
  const ac::MessageListener listener = {
      "good.ping", [](ac::Message*) { ac::PostOffice::send_message(std::make_unique<ac::Message>("good.pong")); },
      true};
  plugin->add_messages_interested(&listener, 1);
  return true;
}
