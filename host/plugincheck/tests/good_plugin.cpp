// The smallest plug-in that keeps the contract; built once whole, and once for each BROKEN_... with one thing broken.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "ac/config_util.h"
#include "ac/exception.h"
#include "ac/plugin.h"
#include "ac/post_office.h"
#include "ac/watchdog.h"

#ifdef BROKEN_needs_more
namespace ac::future {
void operation();
}
#endif

#ifdef BROKEN_replaces_host
void ac::watchdog::keep_alive(const std::string& /*name*/) {}
#endif

namespace {

using std::chrono::milliseconds;

#ifdef BROKEN_starts_early
const int early = [] {
  std::thread([] { pause(); }).detach();
  return 0;
}();
#endif

[[maybe_unused]] ac::Plugin* kept = nullptr;

void send(const char* type) { ac::PostOffice::send_message(std::make_unique<ac::Message>(type)); }

[[maybe_unused]] int run_for_ever() {
#ifdef BROKEN_keeps_plugin
  kept->set_name("late");
#endif
#ifdef BROKEN_run_returns
  return 0;
#endif
#ifdef BROKEN_run_throws
  throw ac::ac_exception("no reader", true);
#endif
#ifdef BROKEN_sends_without_type
  send("");
#endif
#ifdef BROKEN_falls_silent
  ac::watchdog::keep_alive("good_once");
#endif
  for (;;) {
#ifndef BROKEN_silent
    ac::watchdog::keep_alive("good");
#endif
    std::this_thread::sleep_for(milliseconds(20));
  }
}

void answer_ping(ac::Message* message) {
#ifdef BROKEN_handler_hangs
  pause();
#endif
#ifdef BROKEN_leaks_memory
  [[maybe_unused]] static char* volatile leaked;
  leaked = new char[40];
#endif
#ifdef BROKEN_leaks_descriptors
  static int left = 5000;  // below what the machine lets us have
  if (left-- > 0 && dup(STDERR_FILENO) < 0) {
    return;
  }
#endif
#ifdef BROKEN_leaks_threads
  static int calls = 0;
  if (calls++ % 100 == 0) {
    std::thread([] { pause(); }).detach();
  }
#endif
  int number = 0;
  message->get_int("value", &number);
  send("good.pong");
}

void follow_setting(ac::Message* message)
#ifdef BROKEN_trusts_fields
    noexcept
#endif
{
  std::string text;
  message->get_string("value", &text);
#ifdef BROKEN_exits_on_a_setting
  if (std::string name; message->get_string("param", &name) && name == "region") {
    _exit(3);
  }
#endif
  if (std::stoi(text) < 0) {
    send("good.negative");
  }
}

bool fail([[maybe_unused]] std::string* error, [[maybe_unused]] const char* text) {
#ifdef BROKEN_init_throws_a_number
  throw 1;
#endif
#ifdef BROKEN_init_hangs
  pause();
#endif
#ifdef BROKEN_missing_setting_crashes
  raise(SIGSEGV);
#endif
#ifdef BROKEN_missing_setting_exits
  _exit(1);
#endif
#ifdef BROKEN_leaves_a_thread
  std::thread([] { pause(); }).detach();
#endif
#ifndef BROKEN_fails_without_text
  *error += text;
#endif
  return false;
}

}  // namespace

#ifndef BROKEN_init_of_cpp
extern "C"
#endif
    bool
    init(ac::Plugin* plugin, std::string* error) {
  kept = plugin;
#ifdef BROKEN_needs_more
  ac::future::operation();
#endif
#ifdef BROKEN_never_starts
  return fail(error, "not today");
#endif
#ifdef BROKEN_cannot_be_stopped
  signal(SIGTERM, SIG_IGN);
#endif
  try {
    ac::config_util::get_int("uhf", "trig_gpio", true);
  } catch (const ac::ac_exception& failure) {
    return fail(error, failure.what());
  }
#ifndef BROKEN_no_name
  plugin->set_name("good");
#endif
#ifndef BROKEN_no_run
  plugin->set_run(run_for_ever);
#endif
  const ac::MessageListener listeners[] = {
      {"good.ping", answer_ping, true},
      {"config_param_set", follow_setting, true},
#ifdef BROKEN_empty_handler
      {"good.nothing", nullptr, true},
#endif
  };
  plugin->add_messages_interested(listeners, std::size(listeners));
  return true;
}
