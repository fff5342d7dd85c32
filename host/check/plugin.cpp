// The plug-in that examines the host that loads it: what a host calls, and what it does with it.
#include <atomic>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "alive.h"
#include "desk.h"
#include "examination.h"
#include "last_words.h"
#include "report.h"
#include "symbols.h"
#include "waiting.h"

extern "C" bool init(ac::Plugin* plugin, std::string* error);
extern "C" int run();

namespace {

using hostcheck::ClauseId;
using hostcheck::report;
using hostcheck::Type;

constexpr int kLongest = 50;    // seconds, of the whole examination
constexpr int kLongestEnd = 8;  // until a process has ended whose plug-in has
constexpr int kLongestSilence = 48;

// Host's threads read and write these.
std::atomic<int> inits{0};
std::atomic<int> runs{0};
std::atomic<bool> has_begun{false};    // init() has returned
std::atomic<bool> was_refused{false};  // with false
std::atomic<long> run_thread{0};

// How the examination is to end: HOSTCHECK_END.
std::string_view wanted_end() {
  const char* const end = std::getenv("HOSTCHECK_END");
  return end == nullptr ? "return" : end;
}

bool is_an_end(std::string_view end) {
  return end == "return" || end == "throw" || end == "refuse" || end == "silence";
}

void watch_handler(Type type) {
  const std::string handler = "the handler of \"" + name_of(type) + "\"";
  if (!has_begun) {
    report().found("1.5", handler + " was called before init() had returned");
  }
  if (hostcheck::is_sending()) {
    report().found("2.2", handler + " was called inside send_message(), on the sender's thread " +
                              std::to_string(hostcheck::thread_id()));
  } else if (hostcheck::thread_id() == run_thread) {
    report().found("1.8", handler + " was called on the thread of run()");
  }
}

void register_listeners(ac::Plugin& plugin) {
  auto& delivery = hostcheck::delivery();
  delivery.watch(watch_handler);
  delivery.on_uncopied([] { report().found("1.6", "a listener was called in the array that the plug-in gave"); });
  delivery.register_with([&](const ac::MessageListener* listeners, std::size_t count) {
    plugin.add_messages_interested(listeners, count);
  });
  auto& queue = hostcheck::queue();
  queue.watch([](Type) {});
  queue.on_uncopied([] { report().found("3.5", "a listener was called in the array that the plug-in gave"); });
  queue.register_with([](const ac::MessageListener* listeners, std::size_t count) {
    hostcheck::plugin_queue().listen(listeners, count);
  });
}

bool refuse(std::string* error, const std::string& text) {
  report().leave_the_rest_out(text);
  report().finish();
  *error += text;
  return false;
}

// What an array is looked at for that a host has not copied comes with the first message.
bool describe(ac::Plugin& plugin) {
  plugin.set_name("hostcheck");
  plugin.set_run(run);
  register_listeners(plugin);
  return true;
}

// The end of a plug-in that never should: for the host to notice.
int end_examination() {
  const auto end = wanted_end();
  const ClauseId clause = end == "throw" ? ClauseId("9.4") : end == "silence" ? ClauseId("7.2") : ClauseId("9.3");
  for (const ClauseId other : {ClauseId("9.3"), ClauseId("9.4"), ClauseId("7.2")}) {
    if (other.index() != clause.index()) {
      report().leave_out(other, "this run ends otherwise: HOSTCHECK_END=return, throw or silence");
    }
  }
  report().leave_out(clause, "the process is to end now");
  report().finish();
  report().leave_to_the_end(clause);
  if (end == "silence") {
    hostcheck::end_after(kLongestSilence, "the process went on 48 s after a name had fallen silent");
    hostcheck::fall_silent();
    hostcheck::Gate().pass(std::chrono::hours(1));
  }
  hostcheck::end_after(kLongestEnd, "the process went on 8 s after run() had ended");
  if (end == "throw") {
    throw std::runtime_error("the examination is over: this is thrown to see where it goes");
  }
  return 0;
}

}  // namespace

namespace hostcheck {

void examine_all_that_was_seen() {
  // What these are about was looked at all the time.
  report().examine({"1.3", "1.4", "1.5", "1.6", "1.7", "1.8", "2.2", "2.3", "3.5"});
}

}  // namespace hostcheck

// NOLINTBEGIN(readability-identifier-naming): as uhf.so names them
bool init(ac::Plugin* plugin, std::string* error) {
  if (++inits > 1) {
    report().found("1.4", "init() was called " + std::to_string(inits) + " times");
  }
  report().examine({"1.1", "1.3"});
  if (plugin == nullptr || error == nullptr) {
    report().found("1.3", plugin == nullptr ? "the plug-in was null" : "the text for the failure was null");
    report().finish();
    return false;
  }
  for (const auto& symbol : hostcheck::missing_symbols()) {
    report().found("1.1", "the host does not define " + symbol);
  }
  if (!hostcheck::missing_symbols().empty()) {
    return refuse(error, "the host does not define all that a plug-in calls");
  }
  if (!hostcheck::is_queue_made()) {
    return refuse(error, "no queue could be made when the plug-in was loaded");
  }
  if (!is_an_end(wanted_end())) {
    return refuse(error,
                  "HOSTCHECK_END is \"" + std::string(wanted_end()) + "\": give return, throw, refuse or silence");
  }
  hostcheck::tell_of_the_end();
  describe(*plugin);
  if (wanted_end() == "refuse") {
    was_refused = true;
    report().examine({"1.7"});
    hostcheck::end_after(kLongestEnd, "");
    *error += "hostcheck was asked to refuse (HOSTCHECK_END)";
    return false;
  }
  has_begun = true;
  return true;
}

int run() {
  run_thread = hostcheck::thread_id();
  if (was_refused || ++runs > 1) {
    report().found("1.7", was_refused ? "run() was called though init() had returned false"
                                      : "run() was called " + std::to_string(runs) + " times");
    return 1;
  }
  hostcheck::end_after(kLongest, "this has not come to an end within the 50 s that the examination may take");
  hostcheck::keep_alive_from_now_on(hostcheck::kAlive);
  try {
    hostcheck::examine_delivery();
    hostcheck::examine_fields();
    hostcheck::examine_device();
    hostcheck::examine_queue();
    hostcheck::examine_answers();
    hostcheck::examine_settings();
    hostcheck::examine_audit();
    hostcheck::examine_load();
  } catch (const hostcheck::CannotGoOn& reason) {
    report().leave_the_rest_out(reason.what());
  } catch (const std::exception& failure) {
    report().found_in_all_under_examination(std::string("the host threw: ") + failure.what());
    report().leave_the_rest_out("the host threw before");
  }
  hostcheck::examine_all_that_was_seen();
  return end_examination();
}
// NOLINTEND(readability-identifier-naming)
