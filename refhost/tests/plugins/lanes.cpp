// A plug-in with a handler that waits for another of its handlers, as one waits for a disk while a button is pressed.
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "ac/plugin.h"
#include "ac/post_office.h"

namespace {

std::mutex mutex;  // guards pressed
std::condition_variable changed;
bool pressed = false;

void wait_for_the_button(ac::Message*) {
  std::unique_lock lock(mutex);
  const bool seen = changed.wait_for(lock, std::chrono::seconds(2), [] { return pressed; });
  auto answer = std::make_unique<ac::Message>("lanes.waited");
  answer->add_int("seen", seen ? 1 : 0);
  ac::PostOffice::send_message(std::move(answer));
}

void press(ac::Message*) {
  const std::lock_guard lock(mutex);
  pressed = true;
  changed.notify_all();
}

int run_nothing() { return 0; }

}  // namespace

extern "C" bool init(ac::Plugin* plugin, std::string* /*error*/) {
  plugin->set_name("lanes");
  plugin->set_run(run_nothing);
  const ac::MessageListener listeners[] = {{"lanes.wait", wait_for_the_button, false}, {"lanes.press", press, false}};
  plugin->add_messages_interested(listeners, 2);
  return true;
}
