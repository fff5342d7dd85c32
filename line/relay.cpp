#include "line/relay.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace line {
namespace {

using std::chrono::milliseconds;

// How often the line looks at itself, at the latest; and from when on it does so when it is awake anyway, as between
// two polls, for waking up is most of what a look costs.
constexpr milliseconds kTick{50};
constexpr milliseconds kTickEarly{25};

// What the plug-in has not read by then it will not read as the answer to what it asked.
constexpr std::chrono::seconds kStale{1};

// As many bytes as are there, up to the buffer's size: 0 when none are. Throws std::system_error.
std::size_t read_some(int fd, std::span<std::uint8_t> buffer) {
  const ssize_t result = read(fd, buffer.data(), buffer.size());
  if (result > 0) {
    return static_cast<std::size_t>(result);
  }
  if (result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
    return 0;
  }
  throw std::system_error(result == 0 ? EIO : errno, std::generic_category(), "read");
}

// What the plug-in is told, and decides by, is its own power.
bool is_about_power(ByteView question) {
  const auto frames = pieces_of(question).frames;
  return !frames.empty() && (frames.back().code == Code::get_power || frames.back().code == Code::set_power);
}

}  // namespace

Line::Relay::Relay(LineOptions options, std::function<void(const Event&)> on_event)
    : options_(std::move(options)),
      on_event_(std::move(on_event)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      watch_(options_.path, Clock::now()),
      ladder_(options_.reset != nullptr, options_.give_up_after),
      shown_port_(options_.path) {
  if (wake_.get() < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  if (options_.may_be_missing) {
    open_port();
    owes_settings_ = true;  // and so it is asked until it answers
  } else {
    port_.emplace(options_.path, options_.alternative);
    identity_ = identity_of(options_.path);
  }
  watch_.look(Clock::now());
  shown_ = watch_.health();
  thread_ = std::thread([this] { run(); });
}

Line::Relay::~Relay() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  request([] {});
  thread_.join();
}

void Line::Relay::run() {
  pthread_setname_np(pthread_self(), "line");
  // A borrower that has gone shows as an error of a write.
  sigset_t broken_pipe;
  sigemptyset(&broken_pipe);
  sigaddset(&broken_pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
  for (;;) {
    wait_for_something();
    {
      const std::lock_guard lock(mutex_);
      if (ending_) {
        return;
      }
    }
    const auto now = Clock::now();
    if (now >= next_tick_ - kTickEarly || asking_.has_value() || !own_.empty() || waiting_borrower_.has_value() ||
        returned_ != nullptr) {
      tick(now);
    }
  }
}

milliseconds Line::Relay::longest_wait(Clock::time_point now) const {
  constexpr milliseconds kSoon{10};
  if (!own_.empty() || asking_.has_value() || waiting_borrower_.has_value() || giving_.has_value() ||
      returned_ != nullptr) {
    return kSoon;
  }
  return std::clamp(std::chrono::ceil<milliseconds>(next_tick_ - now), milliseconds(0), kTick);
}

void Line::Relay::wait_for_something() {
  const auto wanted = [](const Outbox& outbox) {
    return static_cast<short>(POLLIN | (outbox.is_waiting() ? POLLOUT : 0));
  };
  std::array<pollfd, 4> fds = {{{.fd = wake_.get(), .events = POLLIN, .revents = 0},
                                {.fd = terminal_.fd(), .events = wanted(to_plug_in_), .revents = 0},
                                {.fd = port_.has_value() ? port_->fd() : -1, .events = wanted(to_port_), .revents = 0},
                                {.fd = -1, .events = POLLIN, .revents = 0}}};
  if (borrower_.has_value()) {
    fds[3] = {.fd = borrower_->socket.get(), .events = wanted(borrower_->outbox), .revents = 0};
  }
  if (poll(fds.data(), fds.size(), static_cast<int>(longest_wait(Clock::now()).count())) <= 0) {
    return;
  }
  const auto now = Clock::now();
  // The reader first: what it says is what somebody waits for.
  if (fds[2].revents != 0) {
    handle_port(now);
  }
  if (fds[1].revents != 0) {
    handle_plug_in(now);
  }
  if (fds[3].revents != 0 && borrower_.has_value()) {
    handle_borrower();
  }
  if (fds[0].revents != 0) {
    carry_out_requests();
  }
}

void Line::Relay::carry_out_requests() {
  eventfd_t count = 0;
  eventfd_read(wake_.get(), &count);
  std::vector<std::function<void()>> requests;
  {
    const std::lock_guard lock(mutex_);
    requests.swap(requests_);
  }
  for (const auto& what : requests) {
    what();
  }
}

void Line::Relay::request(std::function<void()> what) {
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(what));
  }
  eventfd_write(wake_.get(), 1);
}

void Line::Relay::handle_plug_in(Clock::time_point now) {
  to_plug_in_.go_on(terminal_.fd());
  std::array<std::uint8_t, 4096> buffer;
  const auto bytes = std::span(buffer).first(read_some(terminal_.fd(), buffer));
  if (bytes.empty()) {
    return;
  }
  if (trial_until_.has_value() && can_be_asked() && is_about_power(bytes)) {
    take_back_trial(nullptr);
  }
  if (borrower_.has_value()) {
    answer_for_reader(bytes);
  } else if (owes_settings_ || !port_.has_value()) {
    return;  // a reader that does not answer
  } else if (asking_.has_value() || !own_.empty() || waiting_borrower_.has_value()) {
    // It is done with its last question: the line is free for the others.
    held_.insert(held_.end(), bytes.begin(), bytes.end());
    held_.resize(std::min<std::size_t>(held_.size(), 4096));
    start_lending(now);
    start_own(now);
  } else {
    pass_question(now, bytes);
  }
}

void Line::Relay::pass_question(Clock::time_point now, ByteView bytes) {
  say_to_port(now, bytes);
  done_with(conversation_.ask(now, bytes));
  watch_.asked(now);
}

void Line::Relay::done_with(std::optional<Exchange> exchange) {
  if (exchange.has_value()) {
    watch_.answered(exchange->last_byte, exchange->answer, exchange->code == Code::inventory);
    radio_.saw(*exchange);
    if (options_.on_exchange) {
      options_.on_exchange(*std::move(exchange));
    }
  }
}

void Line::Relay::handle_port(Clock::time_point now) {
  try {
    to_port_.go_on(port_->fd());
    std::array<std::uint8_t, 16384> buffer;
    const auto bytes = std::span(buffer).first(read_some(port_->fd(), buffer));
    if (bytes.empty()) {
      return;
    }
    const bool is_plug_ins = !borrower_.has_value() && !asking_.has_value();
    if (is_plug_ins && overdue_.has_value()) {
      pass_without_overdue(now, bytes);
    } else if (is_plug_ins) {
      pass_answer(now, bytes);
    }
    recorder_.add(Direction::from_reader, bytes, now);
    onlookers_.show(now, Direction::from_reader, bytes);
    if (borrower_.has_value()) {
      say_to_borrower(bytes);
    } else if (asking_.has_value()) {
      came_for_own(now, bytes);
    }
  } catch (const std::system_error& failure) {
    lose_port(std::string("the port ") + shown_port_ + " has gone: " + failure.code().message());
  }
}

void Line::Relay::pass_answer(Clock::time_point now, ByteView bytes) {
  const auto taken = conversation_.take(now, bytes);
  if (taken > 0) {
    say_to_plug_in(bytes.first(taken));
    last_to_plug_in_ = now;
  }
  if (taken < bytes.size()) {
    watch_.dropped(bytes.size() - taken);
    // A flood as fast as the machine: others want to work too.
    constexpr std::size_t kFlood = 4096;
    if (bytes.size() >= kFlood) {
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
}

void Line::Relay::say_to_plug_in(ByteView bytes) {
  if (const auto lost = to_plug_in_.send(terminal_.fd(), bytes); lost > 0) {
    watch_.dropped(lost);
  }
}

void Line::Relay::say_to_port(Clock::time_point now, ByteView bytes) {
  if (!port_.has_value()) {
    return;
  }
  try {
    to_port_.send(port_->fd(), bytes);
  } catch (const std::system_error& failure) {
    lose_port(std::string("the port ") + shown_port_ + " has gone: " + failure.code().message());
    return;
  }
  recorder_.add(Direction::to_reader, bytes, now);
  onlookers_.show(now, Direction::to_reader, bytes);
}

void Line::Relay::drop_stale(Clock::time_point now) {
  if (last_to_plug_in_.has_value() && now - *last_to_plug_in_ > kStale) {
    drop_unread();
  }
}

// What the plug-in has not read: by whoever asks next it would be taken for his answer.
void Line::Relay::drop_unread() {
  watch_.dropped(to_plug_in_.clear() + terminal_.drop_unread());
  last_to_plug_in_.reset();
}

void Line::Relay::tick(Clock::time_point now) {
  if (!port_.has_value() && now >= next_open_) {
    open_port();
  }
  done_with(conversation_.settle(now));
  if (asking_.has_value() && now >= asking_->deadline) {
    finish_own(std::nullopt);
  }
  if (borrower_.has_value() && now >= borrower_->until) {
    end_lending("ten minutes are over");
  }
  look_for_life(now);
  watch_trial(now);
  give_back(now);
  tell_returned(now);
  if (conversation_.is_quiet(now)) {
    start_lending(now);
    start_own(now);
  }
  if (now >= next_tick_ - kTickEarly) {
    next_tick_ = now + kTick;
    drop_stale(now);
    see_state(now);
    climb(now);
    if (options_.alive) {
      options_.alive();
    }
  }
}

void Line::Relay::see_state(Clock::time_point now) {
  const bool changed = watch_.look(now);
  {
    const std::lock_guard lock(mutex_);
    shown_ = watch_.health();
    shown_steps_ = ladder_.taken();
    shown_trial_ = trial_until_;
    if (watch_.has_answered() && !answered_) {
      answered_ = true;
      changed_.notify_all();
    }
  }
  if (!changed) {
    return;
  }
  const Health& health = watch_.health();
  const bool down = health.state == State::silent || health.state == State::gone;
  if (down && !ladder_.is_begun()) {
    ladder_.begin(now);
  }
  owes_settings_ = owes_settings_ || down;
  if (health.state == State::answering || health.state == State::noisy) {
    ladder_.end();
  }
  // That a reader answers is news to nobody who has not heard of it before.
  if (health.state != State::answering || said_state_ || options_.may_be_missing) {
    said_state_ = true;
    std::string text = std::string("reader ") + name_of(health.state);
    text += health.cause.empty() ? "" : ": " + health.cause;
    text += health.way_out.empty() ? "" : "; " + health.way_out;
    recorder_.note(text, now);
    tell(Event::Kind::state, text);
  }
}

void Line::Relay::tell(Event::Kind kind, const std::string& text) {
  if (on_event_) {
    on_event_({.kind = kind, .health = watch_.health(), .text = text});
  }
}

std::string Line::Relay::port() const {
  const std::lock_guard lock(mutex_);
  return shown_port_;
}

Health Line::Relay::health() const {
  const std::lock_guard lock(mutex_);
  return shown_;
}

std::array<int, kRungs> Line::Relay::steps_taken() const {
  const std::lock_guard lock(mutex_);
  return shown_steps_;
}

bool Line::Relay::wait_for_answer(milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return answered_; });
}

}  // namespace line
