// Chapter 5: what must not grow with what happens.
#include <malloc.h>

#include <algorithm>
#include <array>
#include <string>

#include "notes.h"
#include "odd_messages.h"
#include "scenes.h"

namespace plugincheck {
namespace {

constexpr int kMessages = 2000;  // of each quarter

struct Measure {
  std::size_t memory;
  std::size_t descriptors;
  std::size_t threads;
};

constexpr std::size_t kQuarters = 4;
using Measures = std::array<Measure, kQuarters + 1>;

Measure measure() { return {mallinfo2().uordblks, descriptors_of_process(), threads_of_process().size()}; }

// Whether each quarter had more than the one before, by more than so much.
bool grew(const Measures& measures, std::size_t Measure::*what, std::size_t more) {
  return std::ranges::adjacent_find(measures, [&](const auto& one, const auto& next) {
           return next.*what <= one.*what + more;
         }) == measures.end();
}

void judge(const Measures& measures, ClauseId clause, std::size_t Measure::*what, std::size_t more,
           const std::string& unit) {
  if (grew(measures, what, more)) {
    Notes::found(clause, "from " + std::to_string(measures.front().*what) + " to " +
                             std::to_string(measures.back().*what) + " " + unit + ", in each quarter of " +
                             std::to_string(kQuarters * kMessages) + " messages");
  }
}

// A change of nothing, so that what is measured is not the audit log's memory of new records.
std::unique_ptr<ac::Message> plain_message(const std::string& type, uhfsim::Random& random) {
  if (type != "config_param_set") {
    return odd_message(type, random);
  }
  return message_of(
      type, {{"module", "uhf"}, {"param", "trig_idle"}, {"value", "0"}, {"previous_value", "0"}, {"sys_config", 0}});
}

bool tell_a_quarter(Stage& stage) {
  const auto& types = stage.types();
  for (int message = 0; message < kMessages && !types.empty(); ++message) {
    if (!stage.tell(plain_message(types[static_cast<std::size_t>(message) % types.size()], stage.random()))) {
      return false;
    }
  }
  if (types.empty()) {
    Stage::wait([] { return false; }, kQuiet);  // it may grow by itself
  }
  return true;
}

void grow(const Plan& plan) {
  Stage* const started = Stage::started(plan);
  if (started == nullptr) {
    return;
  }
  Stage& stage = *started;
  Notes::examine({"5.1", "5.2", "5.3"});
  refhost::AuditLog::make_current(nullptr);  // its records stay in memory for a while, which is no leak
  stage.stop_recording();
  stage.reader().field().add(Stage::tag(1));
  if (!tell_a_quarter(stage)) {
    return;
  }
  Measures measures{};
  measures.front() = measure();
  for (std::size_t quarter = 1; quarter <= kQuarters; ++quarter) {
    if (!tell_a_quarter(stage)) {
      return;
    }
    measures.at(quarter) = measure();
  }
  [[maybe_unused]] constexpr std::size_t kBytes =
      1;  // of each message: less is noise; a handler of twenty that leaks has more
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  Notes::leave_out("5.1", "the sanitizer of this build has memory of its own");
#else
  judge(measures, "5.1", &Measure::memory, kBytes * kMessages, "bytes");
#endif
  judge(measures, "5.2", &Measure::descriptors, 0, "descriptors");
  judge(measures, "5.3", &Measure::threads, 0, "threads");
}

}  // namespace

std::vector<Scene> growth_scenes() { return {{"growth", {"2.1"}, grow}}; }

}  // namespace plugincheck
