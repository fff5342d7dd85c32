#include "door/gpio/chip_lines.h"

#include <linux/gpio.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "ac/exception.h"
#include "ac/util.h"
#include "door/gpio/on_chip.h"
#include "refhost/log.h"

namespace achost::gpio {
namespace {

// How long a chip may be gone, or a line be wrong, before somebody looks: not every kernel wakes who waits.
constexpr int kLook = 1000;  // ms

// How long an end waits for a chip that is slow to take another level.
constexpr std::chrono::milliseconds kPatience{500};

std::atomic<const ChipLines*> current = nullptr;  // whose outputs an end at once puts at rest

}  // namespace

ChipLines::ChipLines(Needs needs, GpioPlan plan)
    : needs_(std::move(needs)), plan_(std::move(plan)), over_(eventfd(0, EFD_CLOEXEC)) {
  polled_.push_back({over_.number(), POLLIN, 0});
  for (const auto& planned : plan_.lines) {
    lines_.push_back(std::make_unique<Line>());
    lines_.back()->planned = planned;
    polled_.push_back({-1, POLLIN, 0});
  }
  request_all();
  for (const auto& line : lines_) {
    const auto& [use, number, is_output, wired] = line->planned;
    keep(number, is_output ? wired.rest : std::max(level_of(needs_.kernel, line->descriptor), 0));
  }
  current = this;
}

ChipLines::~ChipLines() {
  eventfd_write(over_.number(), 1);
  if (thread_.joinable()) {
    thread_.join();
  }
  rest();
  current = nullptr;
}

ChipLines::Line* ChipLines::find(int number) const {
  const auto found =
      std::ranges::find_if(lines_, [number](const auto& line) { return line->planned.number == number; });
  return found == lines_.end() ? nullptr : found->get();
}

bool ChipLines::is_real(int line) const { return find(line) != nullptr; }

bool ChipLines::is_real_input(int line) const {
  const auto* const found = find(line);
  return found != nullptr && !found->planned.is_output;
}

void ChipLines::request_all() {
  const Chip chip(needs_.kernel, plan_.chip);
  const int inverted = inverted_line(needs_.settings);
  const std::lock_guard lock(mutex_);
  for (const auto& line : lines_) {
    line->is_inverted = line->planned.number == inverted ? 1 : 0;
    line->holder = chip.request(line->planned, line->planned.wired.rest ^ line->is_inverted);
    line->descriptor = line->holder.number();
  }
}

void ChipLines::let_go() noexcept {
  const std::lock_guard lock(mutex_);
  for (const auto& line : lines_) {
    line->descriptor = -1;
    line->holder = Descriptor();
  }
}

// A level of the bus; 0, or a negative errno.
int ChipLines::put(const Line& line, int level) const noexcept {
  return set_level(needs_.kernel, line.descriptor, level ^ line.is_inverted);
}

bool ChipLines::move(int number, int level) {
  const auto* const line = find(number);
  if (line == nullptr) {
    return true;
  }
  if (!line->planned.is_output) {
    refhost::log::warning("gpio: host." + line->planned.use + " is a real input: nothing but its wire moves it");
    return false;
  }
  const std::lock_guard lock(mutex_);
  if (is_resting_) {
    return false;
  }
  const int result = put(*line, level);
  if (result < 0) {
    is_broken_ = true;
    needs_.trouble("host." + line->planned.use + " does not take its level: " + std::strerror(-result) +
                   "; all lines of " + plan_.chip + " are requested again, at rest");
  }
  return result >= 0;
}

void ChipLines::settings_changed() {
  const int inverted = inverted_line(needs_.settings);
  const std::lock_guard lock(mutex_);
  for (const auto& line : lines_) {
    if (const int inversion = line->planned.number == inverted ? 1 : 0; inversion != line->is_inverted) {
      line->is_inverted = inversion;
      if (put(*line, is_resting_ ? line->planned.wired.rest : level(line->planned.number)) < 0) {
        is_broken_ = true;
      }
    }
  }
}

Report ChipLines::report() const {
  return report_of(Chip(needs_.kernel, plan_.chip), plan_,
                   [this](const PlannedLine& line, unsigned) { return std::optional(level(line.number)); });
}

void ChipLines::put_at_rest() const noexcept {
  for (const auto& line : lines_) {
    if (line->planned.is_output) {
      put(*line, line->planned.wired.rest);
    }
  }
}

void ChipLines::rest() noexcept {
  std::unique_lock lock(mutex_, std::try_to_lock);
  for (auto left = kPatience; !lock.owns_lock() && left.count() > 0; --left) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    [[maybe_unused]] const bool is_locked = lock.try_lock();
  }
  if (lock.owns_lock()) {
    is_resting_ = true;
  }
  put_at_rest();
}

void ChipLines::rest_at_once() noexcept {
  if (const auto* const lines = current.load(); lines != nullptr) {
    lines->put_at_rest();
  }
}

void ChipLines::watch() {
  thread_ = std::thread([this] { watch_edges(); });
}

void ChipLines::watch_edges() {
  ac::util::set_thread_name("gpio_edges", pthread_self());
  for (bool goes_on = true; goes_on;) {
    try {
      goes_on = wait_for_edges();
    } catch (const std::exception& failure) {  // there is no memory to tell of an edge; the next one may be told
      refhost::log::error(std::string("gpio: an edge was not told: ") + failure.what());
    }
  }
}

bool ChipLines::wait_for_edges() {
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    polled_[i + 1].fd = lines_[i]->descriptor;
  }
  if (poll(polled_.data(), polled_.size(), kLook) < 0) {
    return true;
  }
  const refhost::Work::Step step(work_);
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    if (!take_edges(*lines_[i], polled_[i + 1].revents) && !is_broken_.exchange(true)) {
      needs_.trouble("the GPIO chip " + plan_.chip +
                     " has gone: its lines are requested again, at rest, when it is back");
    }
  }
  if (is_broken_) {
    mend();
  }
  return polled_[0].revents == 0;
}

// False when the line has gone. When there were too many at once the kernel has dropped the oldest, so the last one
// still says how the line is.
bool ChipLines::take_edges(const Line& line, short events) {
  if ((events & POLLIN) == 0) {
    return (events & (POLLERR | POLLHUP | POLLNVAL)) == 0;
  }
  std::array<gpio_v2_line_event, 16> edges{};
  const ssize_t size = read(line.descriptor, edges.data(), sizeof edges);
  if (size < 0) {
    return errno == EINTR || errno == EAGAIN;
  }
  for (std::size_t i = 0; i < static_cast<std::size_t>(size) / sizeof edges[0]; ++i) {
    tell(line.planned.number, edges[i].id == GPIO_V2_LINE_EVENT_RISING_EDGE ? 1 : 0,
         static_cast<std::int64_t>(edges[i].timestamp_ns));
  }
  return size > 0;
}

// Tell what the line has come to while it was not watched.
void ChipLines::compare(const Line& line) {
  const int found = level_of(needs_.kernel, line.descriptor);
  const int number = line.planned.number;
  if (found >= 0 && (found ^ line.is_inverted) != level(number)) {
    tell(number, found ^ line.is_inverted, monotonic_now());
  }
}

void ChipLines::mend() {
  let_go();
  try {
    request_all();
  } catch (const ac::ac_exception&) {  // it has not come back yet
    return;
  }
  is_broken_ = false;
  needs_.trouble("");
  for (const auto& line : lines_) {
    compare(*line);
  }
}

}  // namespace achost::gpio
