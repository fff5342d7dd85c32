// The listeners that the check registers with the host, and what it does in them at the moment.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "ac/message.h"
#include "ac/message_enqueuer.h"
#include "ac/plugin.h"

namespace hostcheck {

// The types of messages that the check sends itself, one for each thing to examine, and the one of changed settings.
enum class Type : std::size_t {
  arrival,
  order,
  pair,
  slow,
  failing,
  outer,
  inner,
  life,
  ask,
  transferred,
  kept,
  load,
  probe,
  change
};
inline constexpr std::array<const char*, 14> kTypes = {
    "hostcheck_arrival", "hostcheck_order", "hostcheck_pair",  "hostcheck_slow",  "hostcheck_failing",
    "hostcheck_outer",   "hostcheck_inner", "hostcheck_life",  "hostcheck_ask",   "hostcheck_transferred",
    "hostcheck_kept",    "hostcheck_load",  "hostcheck_probe", "config_param_set"};

inline std::string name_of(Type type) { return kTypes.at(static_cast<std::size_t>(type)); }

using Handler = std::function<void(ac::Message*)>;

// The handlers of one owner of listeners: the host's delivery, or the plug-in's queue. Any thread.
class Desk {
 public:
  // From now on this is done with messages of the type. It owns what it uses: a slow host may call it late.
  void on(Type type, Handler handler);

  // What the registered listener calls.
  void handle(Type type, ac::Message* message);

  // Give all listeners to whoever takes them; what was handed over is of no use afterwards to who has not copied it.
  using Take = std::function<void(const ac::MessageListener* listeners, std::size_t count)>;
  void register_with(const Take& take);

  // Called with each message before its handler.
  void watch(std::function<void(Type)> watcher);

  // Called when a listener is called that the host should have copied.
  void on_uncopied(std::function<void()> action) { on_uncopied_ = std::move(action); }

 private:
  struct Place {
    std::shared_ptr<const Handler> handler;
    std::atomic<int> inside{0};   // how many calls are running
    std::atomic<long> thread{0};  // the last one's
  };

  std::mutex mutex_;  // guards the handlers of the places
  std::array<Place, kTypes.size()> places_;
  std::function<void(Type)> watcher_;  // set before the listeners are registered
  std::function<void()> on_uncopied_;  // likewise
};

// That of the host's delivery, and that of the queue. Never destroyed.
Desk& delivery();
Desk& queue();

// The plug-in's queue, which is made when it is loaded; false where it could not be, and then there is none.
ac::MessageEnqueuer& plugin_queue();
bool is_queue_made();

// A message with the int "number".
std::unique_ptr<ac::Message> numbered(Type type, int number);
int number_of(const ac::Message& message);

// Send, or ask, so that a handler that is called meanwhile on this thread is found. Throws what the host throws.
void send(std::unique_ptr<ac::Message> message);
void send_sync(std::unique_ptr<ac::Message> message);
bool is_sending();  // on this thread

long thread_id();

}  // namespace hostcheck
