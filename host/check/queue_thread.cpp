#include "queue_thread.h"

#include <atomic>
#include <thread>

#include "desk.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

class Leave : public std::exception {
 public:
  const char* what() const noexcept override { return "thrown by the check, to leave process()"; }
};

}  // namespace

struct QueueThread::State {
  Seen<Tick> ticks;
  Seen<std::string> ends;
  Seen<long> ids;
  std::atomic<bool> is_to_leave{false};
};

QueueThread& QueueThread::instance() {
  static QueueThread& thread = *new QueueThread;
  return thread;
}

QueueThread::QueueThread() : state_(*new State) {}

void QueueThread::start() {
  std::thread([&state = state_] {
    state.ids.add(thread_id());
    // By its address, as the compiler takes it for certain that a direct call does not return.
    void (ac::MessageEnqueuer::*volatile process)(int, const std::function<void()>&) = &ac::MessageEnqueuer::process;
    try {
      (plugin_queue().*process)(static_cast<int>(kTimeout.count()), [&state] {
        state.ticks.add({Clock::now(), thread_id()});
        if (state.is_to_leave) {
          throw Leave();
        }
      });
      report().found("3.9", "process() returned");
      state.ends.add("returned");
    } catch (const Leave&) {
      state.ends.add("thrown");
    }
  }).detach();
}

long QueueThread::id() const { return state_.ids.wait_for(1) ? state_.ids.all().front() : 0; }
std::vector<QueueThread::Tick> QueueThread::ticks() const { return state_.ticks.all(); }
bool QueueThread::wait_for_ticks(std::size_t count) const { return state_.ticks.wait_for(count); }

std::optional<std::string> QueueThread::end() {
  state_.is_to_leave = true;
  return state_.ends.wait_for(1) ? std::optional(state_.ends.all().front()) : std::nullopt;
}

}  // namespace hostcheck
