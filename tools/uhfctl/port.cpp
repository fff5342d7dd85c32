#include "port.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "frame_catalogue.h"
#include "frame_scan.h"
#include "terminal.h"

namespace uhfctl {

namespace {

// Bytes that an answer may have before it counts as a flood.
constexpr std::size_t kLongestAnswer = 65'536;

// How long it may go on then, after the time that it may take to begin.
constexpr std::chrono::seconds kLongestTime{2};

// How long a call of the driver has beyond that, and after Ctrl-C.
constexpr std::chrono::seconds kGrace{1};

// Calls of drivers that still go on although nobody waits for them; of the program's first thread.
int calls_left_alone = 0;

// Ctrl-C is for the program's first thread.
void start_without_signals(std::function<void()> call) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread(std::move(call)).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// What is wrong with a piece of an answer to a poll.
LineFault fault_of(const Scanned& piece) {
  using Frame = ac::UHF::Frame;
  if (piece.frame == nullptr) {
    return piece.wrong_checksum ? LineFault::wrong_checksum : piece.cut_off ? LineFault::cut_off : LineFault::junk;
  }
  if (piece.frame->type() == Frame::Type::Command) {
    return LineFault::echo;
  }
  const auto code = piece.frame->command();
  const bool is_answer = code == Frame::CommandType::InventoryCard || code == Frame::CommandType::CRCError;
  return is_answer ? LineFault::none : LineFault::out_of_step;
}

}  // namespace

std::size_t take_frames(std::span<const unsigned char> bytes, bool all, Poll& poll) {
  auto [found, rest] = scan(bytes, all);
  for (const auto& piece : found) {
    const auto fault = fault_of(piece);
    poll.fault = std::max(poll.fault, fault);
    poll.answers += piece.wrong_checksum || (piece.frame != nullptr && fault != LineFault::echo) ? 1 : 0;
    if (auto* const notice = dynamic_cast<ac::UHF::InventoryCardNotice*>(piece.frame.get())) {
      poll.tags.push_back({notice->rssi(), notice->pc(), std::move(*notice).epc(), notice->crc()});
    }
  }
  return rest;
}

Claim::Claim(const std::string& path) {
  if (path.empty()) {
    throw Failure(kUsage, "no port: give --port DEVICE, or set UHFCTL_PORT; `ls /dev/serial/by-id` lists them");
  }
  try {
    guard = std::make_unique<line::PortGuard>(path, "try uhf-sim, which makes one");
  } catch (const line::PortError& failure) {
    if (failure.kind() != line::PortError::Kind::busy) {
      throw Failure(kNoReader, failure.what());
    }
    door = Door::with(path, failure.holder(), failure.what());
    if (!door.has_value()) {
      throw Failure(kPortBusy, failure.what());
    }
  }
}

Port::Port(const Common& common, Claim claim)
    : path_(common.port), timeout_(common.patience()), guard_(std::move(claim.guard)) {
  if (guard_ == nullptr) {
    loan_ = std::make_unique<Loan>(claim.door.value(),
                                   "uhfctl " + common.command + " (process " + std::to_string(getpid()) + ")");
    note(loan_->lender() + " lends its reader; the door reads no cards until this ends");
  } else {
    pump_ = std::make_unique<Pump>(guard_->fd());
  }
  const auto& path = loan_ != nullptr ? loan_->path() : pump_->path();
  try {
    driver_ = std::make_unique<ac::UHF::T640>(path, timeout_);
    line_ = std::make_unique<ac::UHF::SerialPort>(path, timeout_);
  } catch (const ac::ac_exception& failure) {
    fail(failure.what());
  }
}

Port::~Port() {
  if (left_alone()) {
    static_cast<void>(driver_.release());  // its call goes on
  }
}

bool Port::left_alone() { return calls_left_alone > 0; }

void Port::run_apart(std::function<void()> call, const std::function<bool(std::chrono::milliseconds)>& is_done) const {
  const auto give_up = [this](const std::string& why) {
    throw Failure(kNoAnswer, "the reader at " + path_ + why + "; `uhfctl doctor` tells more");
  };
  if (left_alone()) {
    give_up(" still does not stop sending");
  }
  const bool was_interrupted = interrupted();
  const auto begin = Clock::now();
  // After Ctrl-C something may have to be set back, which is not to take long.
  auto end = begin + kLongestTime + kGrace + (was_interrupted ? std::chrono::milliseconds(0) : timeout_);
  start_without_signals(std::move(call));
  while (!is_done(std::chrono::milliseconds(10))) {
    if (interrupted() && !was_interrupted) {
      end = std::min(end, begin + (Clock::now() - begin) + kGrace);
    }
    if (Clock::now() >= end) {
      ++calls_left_alone;
      give_up(" does not end its answer");
    }
  }
  check_loan();
}

void Port::check_loan() const {
  if (loan_ != nullptr && loan_->is_taken_back()) {
    throw Failure(kFailed,
                  loan_->lender() +
                      " has taken its reader back: it lends it for ten minutes at most, and not beyond its own "
                      "end or that of the port; `achost health` tells more");
  }
}

void Port::fail(const std::string& reason) const {
  check_loan();
  if (access(path_.c_str(), F_OK) != 0) {
    throw Failure(kFailed, path_ +
                               " is gone: was the adapter pulled out? Plug it in, see its name with `ls "
                               "/dev/serial/by-id`, and begin anew");
  }
  throw Failure(kFailed,
                "the line at " + path_ + " failed (" + reason + "): pull the adapter out, plug it in, and begin anew");
}

std::optional<unsigned short> Port::ask_power(LineFault& fault) const {
  constexpr int kTrials = 3;
  for (int trial = 1;; ++trial) {
    const auto [answered, power] = talking(*this, [](const auto& driver) { return driver.getTransmitPower(); });
    if (answered) {
      return power;
    }
    if (trial == kTrials || interrupted()) {
      return std::nullopt;
    }
    const auto instead = poll();
    fault = std::max(fault, instead.fault);
    if (instead.answers == 0) {  // asking again would take time and bring nothing
      return std::nullopt;
    }
  }
}

unsigned short Port::power_or_nobody() const {
  LineFault fault = LineFault::none;
  if (const auto power = ask_power(fault)) {
    return *power;
  }
  const auto nobody = "no reader answers at " + path_ + ": ";
  if (fault != LineFault::none) {
    throw Failure(kNoReader, nobody + advice_on(fault).finding + "; `uhfctl doctor` looks at it");
  }
  throw Failure(kNoReader,
                nobody + "is it powered, and is this its port? `uhfctl doctor` looks at one after the other");
}

unsigned short Port::power() const {
  LineFault fault = LineFault::none;
  if (const auto power = ask_power(fault)) {
    return *power;
  }
  if (access(path_.c_str(), F_OK) != 0) {
    fail("");
  }
  throw Failure(kNoAnswer, "the reader at " + path_ + " has stopped answering: is it still powered and plugged in?");
}

Poll Port::poll(const Tap& tap) const {
  Poll poll;
  try {
    exchange(poll, tap);
  } catch (const ac::ac_exception& failure) {
    if (!interrupted()) {  // which ends a wait on the line
      fail(failure.what());
    }
  }
  check_loan();
  return poll;
}

Poll Port::poll_living() const {
  auto result = poll();
  if (!result.answered && !interrupted()) {
    power();
  }
  return result;
}

void Port::exchange(Poll& poll, const Tap& tap) const {
  const auto command = ac::UHF::InventoryCardFrame().toData();
  const auto begin = Clock::now();
  const auto longest = timeout_ + kLongestTime;
  line_->send(command);
  if (tap) {
    tap(begin, Direction::to_reader, command);
  }
  std::vector<unsigned char> rest;  // of which no frame is made yet
  for (std::size_t received = 0; received < kLongestAnswer && Clock::now() - begin < longest && !interrupted();) {
    const auto [came, chunk] = line_->receive();
    if (!came) {
      take_frames(rest, true, poll);
      return;
    }
    if (tap) {
      tap(Clock::now(), Direction::from_reader, chunk);
    }
    poll.answered = true;
    poll.took = Clock::now() - begin;
    received += chunk.size();
    rest.insert(rest.end(), chunk.begin(), chunk.end());
    const auto left = take_frames(rest, false, poll);
    rest.erase(rest.begin(), rest.end() - static_cast<std::ptrdiff_t>(left));
    if (rest.empty() && poll.answers > 0) {
      return;
    }
  }
  poll.fault = interrupted() ? poll.fault : LineFault::flood;
}

}  // namespace uhfctl
