#include "uhfsim/simulated_reader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "system_error.h"

namespace uhfsim {

namespace {

// The faults draw from a sequence of their own: to switch one on does not change which tags are read.
constexpr std::uint64_t kFaultSeed = 0x9E3779B97F4A7C15;

using Instant = std::optional<Clock::time_point>;

Instant earlier(const Instant& a, const Instant& b) { return a && b ? std::min(*a, *b) : a ? a : b; }

timespec until_instant(Clock::time_point instant) {
  const auto wait = std::max(instant - Clock::now(), Clock::duration::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
  const auto rest = std::chrono::nanoseconds(wait - seconds);
  return {static_cast<std::time_t>(seconds.count()), static_cast<long>(rest.count())};
}

}  // namespace

SimulatedReader::SimulatedReader(Options options)
    : faults_(options.seed ^ kFaultSeed),
      pacing_(options.baud),
      chunking_(options.chunk),
      on_host_line_(std::move(options.on_host_line)),
      on_hang_up_(std::move(options.on_hang_up)),
      wake_(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "making an event descriptor")),
      reader_(field_, {options.seed, options.quiet_when_empty}),
      link_(std::in_place),
      thread_([this] { run(); }) {}

SimulatedReader::~SimulatedReader() {
  stop_ = true;
  wake();
  thread_.join();
}

std::string SimulatedReader::path() const {
  const std::lock_guard lock(mutex_);
  return link_->path();
}

State SimulatedReader::state() const {
  const std::lock_guard lock(mutex_);
  return reader_.state();
}

Counters SimulatedReader::counters() const {
  const std::lock_guard lock(mutex_);
  Counters counters = line_;
  const ReaderCounters engine = reader_.counters();
  counters.commands = engine.commands;
  counters.notices = engine.notices;
  counters.skipped = engine.skipped;
  return counters;
}

void SimulatedReader::play(Scenario scenario) {
  {
    const std::lock_guard lock(mutex_);
    scenario_ = std::move(scenario);
    scenario_start_ = Clock::now();
    scenario_done_ = Scenario::kBeforeStart;
    field_.clear();
    play_until(scenario_start_);
  }
  wake();
}

void SimulatedReader::wake() const {
  const std::uint64_t one = 1;
  // It fails only when the counter is full, and then the thread wakes anyway.
  [[maybe_unused]] const auto written = ::write(wake_.get(), &one, sizeof(one));
}

void SimulatedReader::run() {
  while (!stop_) {
    play_due();
    write_due();
    answer_waiting();
    await_work();
  }
}

void SimulatedReader::play_due() {
  const std::lock_guard lock(mutex_);
  play_until(Clock::now());
}

// With mutex_ held. No inventory is answered meanwhile, so that a tag which is taken out and put back at one instant
// is never missed.
void SimulatedReader::play_until(Clock::time_point now) {
  const auto until = std::chrono::floor<Scenario::Time>(now - scenario_start_);
  for (const Command& command : scenario_.due(scenario_done_, until)) {
    apply(command, field_, faults_);
    if (const auto* told = std::get_if<TellHost>(&command); told != nullptr && on_host_line_) on_host_line_(told->line);
  }
  scenario_done_ = until;
}

void SimulatedReader::write_due() {
  while (!outgoing_.empty() && outgoing_.front().due <= Clock::now()) {
    if (!write_front()) return;
    const bool hangs_up = outgoing_.front().hang_up;
    outgoing_.pop_front();
    if (hangs_up) hang_up();
  }
}

// What was on its way is lost, as with an adapter that is pulled out and plugged in again.
void SimulatedReader::hang_up() {
  outgoing_.clear();
  waiting_.clear();
  line_free_ = Clock::now();
  {
    const std::lock_guard lock(mutex_);
    ++line_.hang_ups;
    link_.emplace();
  }
  if (on_hang_up_) on_hang_up_(link_->path());
}

// Whether the front of outgoing_ is done with: written, or lost on a paced line that is full.
bool SimulatedReader::write_front() {
  Bytes& bytes = outgoing_.front().bytes;
  const std::size_t written = link_->write(bytes);
  const bool lost = written < bytes.size() && pacing_.paced();
  const std::lock_guard lock(mutex_);
  line_.bytes_out += written;
  if (lost) line_.overruns += bytes.size() - written;
  bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(written));
  return lost || bytes.empty();
}

// Sleeps until the client has sent something, the next instant has come or somebody calls.
void SimulatedReader::await_work() {
  const auto send_at = next_sending();
  const bool full = !outgoing_.empty() && !send_at;
  const short line_events = static_cast<short>(full ? POLLIN | POLLOUT : POLLIN);
  std::array<pollfd, 2> awaited{{{link_->fd(), line_events, 0}, {wake_.get(), POLLIN, 0}}};
  const auto instant = earlier(send_at, next_scenario_instant());
  const timespec wait = instant ? until_instant(*instant) : timespec{};
  checked_or_nothing(ppoll(awaited.data(), awaited.size(), instant ? &wait : nullptr, nullptr), "waiting for the line");
  if ((awaited[1].revents & POLLIN) != 0) {
    std::uint64_t count = 0;
    checked_or_nothing(::read(wake_.get(), &count, sizeof(count)), "reading the event descriptor");
  }
  if ((awaited[0].revents & (POLLIN | POLLHUP)) != 0) read_line();
}

// When to write; nothing when there is nothing to write, or only what an unpaced line that is full has no room for.
std::optional<Clock::time_point> SimulatedReader::next_sending() const {
  if (outgoing_.empty()) return std::nullopt;
  const Clock::time_point due = outgoing_.front().due;
  return pacing_.paced() || due > Clock::now() ? std::optional(due) : std::nullopt;
}

std::optional<Clock::time_point> SimulatedReader::next_scenario_instant() const {
  const std::lock_guard lock(mutex_);
  const auto next = scenario_.next(scenario_done_);
  return next ? std::optional(scenario_start_ + *next) : std::nullopt;
}

void SimulatedReader::read_line() {
  const bool was_attended = link_->attended();
  const Bytes received = link_->read();
  if (was_attended && !link_->attended()) forget_client();
  const bool busy = !outgoing_.empty();
  const std::size_t room = busy ? kReceiveBuffer - std::min(waiting_.size(), kReceiveBuffer) : received.size();
  const std::size_t kept = std::min(room, received.size());
  waiting_.insert(waiting_.end(), received.begin(), received.begin() + static_cast<std::ptrdiff_t>(kept));
  const std::lock_guard lock(mutex_);
  line_.bytes_in += received.size();
  line_.lost_in += received.size() - kept;
}

// The last client has closed the line: nothing of what it began goes on before the next one.
void SimulatedReader::forget_client() {
  outgoing_.clear();
  waiting_.clear();
  line_free_ = Clock::now();
  const std::lock_guard lock(mutex_);
  reader_.forget_input();
  ++line_.departures;
}

void SimulatedReader::answer_waiting() {
  if (waiting_.empty() || !outgoing_.empty()) return;
  const Bytes received = std::exchange(waiting_, {});
  std::vector<Bytes> replies;
  {
    const std::lock_guard lock(mutex_);
    replies = reader_.feed(received);
  }
  for (Bytes& reply : replies) {
    for (const Sending& sending : faults_.intercept(std::move(reply), received)) enqueue(sending);
  }
}

void SimulatedReader::enqueue(const Sending& sending) {
  const Bytes& bytes = sending.bytes;
  const Clock::time_point start = std::max(Clock::now(), line_free_) + sending.pause;
  for (const Piece& piece : chunking_.pieces(bytes.size(), start, pacing_)) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(piece.offset);
    outgoing_.push_back({Bytes(first, first + static_cast<std::ptrdiff_t>(piece.size)), piece.due});
  }
  line_free_ = pacing_.due(start, bytes.size());
  if (sending.hang_up) outgoing_.push_back({{}, line_free_, true});
}

}  // namespace uhfsim
