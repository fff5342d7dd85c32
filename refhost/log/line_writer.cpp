#include "refhost/line_writer.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "ac/util.h"

namespace refhost {
struct LineWriter::State {
  const int fd;
  const Options options;
  mutable std::mutex mutex;  // guards everything below
  std::condition_variable changed;
  std::string waiting;
  bool writing = false;       // the thread has taken lines and not written them yet
  bool over = false;          // no line is taken any more
  std::uint64_t missing = 0;  // since the last line that was taken
  std::uint64_t lost = 0;

  State(int the_fd, Options the_options) : fd(the_fd), options(std::move(the_options)) {}

  void run();
  bool take(std::string& lines);
  bool is_over() const;
  int write_all(std::string_view text) const;
  void fail(int reason);
};

bool LineWriter::State::is_over() const {
  const std::lock_guard lock(mutex);
  return over;
}

// 0 or an errno. Waits as long as it takes; the descriptor is not touched again once the writer has gone.
int LineWriter::State::write_all(std::string_view text) const {
  while (!text.empty() && !is_over()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd ready{fd, POLLOUT, 0};
      poll(&ready, 1, 100);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

// Waits for lines. False when there will be none. The gap's line stands where the lines are missing: behind those that
// had been taken before.
bool LineWriter::State::take(std::string& lines) {
  std::unique_lock lock(mutex);
  writing = false;
  changed.notify_all();
  changed.wait(lock, [this] { return !waiting.empty() || over; });
  lines.clear();
  lines.swap(waiting);
  if (missing > 0 && options.gap) {
    lines += options.gap(std::exchange(missing, 0));
  }
  writing = true;
  return !over;
}

void LineWriter::State::fail(int reason) {
  {
    const std::lock_guard lock(mutex);
    if (over) {
      return;  // nobody is there to be told
    }
    over = true;
    writing = false;
    waiting.clear();
  }
  changed.notify_all();
  if (options.on_failure) {
    options.on_failure(reason);
  }
}

void LineWriter::State::run() {
  std::string lines;
  while (take(lines)) {
    if (const int reason = write_all(lines); reason != 0) {
      return fail(reason);
    }
  }
}

LineWriter::LineWriter(int fd, std::string name, Options options)
    : state_(std::make_shared<State>(fd, std::move(options))) {
  std::thread([state = state_, name = std::move(name)] {
    ac::util::set_thread_name(name, pthread_self());
    state->run();
  }).detach();
}

LineWriter::~LineWriter() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->over = true;
  }
  state_->changed.notify_all();
}

void LineWriter::put(std::string_view line) noexcept {
  const std::lock_guard lock(state_->mutex);
  if (state_->over) {
    return;
  }
  try {
    if (state_->missing == 0 && state_->waiting.size() + line.size() <= state_->options.bound) {
      state_->waiting += line;
      state_->changed.notify_all();
      return;
    }
  } catch (...) {  // no memory for it: lost, and counted
  }
  ++state_->missing;
  ++state_->lost;
}

bool LineWriter::drain(std::chrono::milliseconds longest) {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, longest,
                                  [this] { return state_->over || (state_->waiting.empty() && !state_->writing); });
}

std::uint64_t LineWriter::lost() const {
  const std::lock_guard lock(state_->mutex);
  return state_->lost;
}

// A pipe that polls as writable takes that much at once.
void write_if_taken(int fd, std::string_view line) noexcept {
  pollfd ready{fd, POLLOUT, 0};
  if (line.size() <= PIPE_BUF && poll(&ready, 1, 0) == 1 && (ready.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written = write(fd, line.data(), line.size());
  }
}

}  // namespace refhost
