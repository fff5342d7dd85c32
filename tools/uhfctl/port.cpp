#include "port.h"

#include "frame_catalogue.h"
#include "frame_scan.h"

namespace uhfctl {

namespace {

// Bytes that an answer may have before it counts as a flood.
constexpr std::size_t kLongestAnswer = 65'536;

line::PortGuard guard(const std::string& path) {
  if (path.empty()) {
    throw Failure(kUsage, "no port: give --port DEVICE, or set UHFCTL_PORT; `ls /dev/serial/by-id` lists them");
  }
  try {
    return line::PortGuard(path, "try uhf-sim, which makes one");
  } catch (const line::PortError& failure) {
    throw Failure(failure.kind() == line::PortError::Kind::busy ? kPortBusy : kNoReader, failure.what());
  }
}

// Sorts what was found; the number of bytes that are not done.
std::size_t take(std::span<const unsigned char> bytes, bool all, Poll& poll) {
  auto [found, rest] = scan(bytes, all);
  for (auto& [offset, size, frame, problem, wrong_checksum] : found) {
    poll.wrong_checksums += wrong_checksum ? 1 : 0;
    poll.problems += frame == nullptr && !wrong_checksum ? 1 : 0;
    poll.frames += frame != nullptr ? 1 : 0;
    if (auto* const notice = dynamic_cast<ac::UHF::InventoryCardNotice*>(frame.get())) {
      poll.tags.push_back({notice->rssi(), notice->pc(), std::move(*notice).epc(), notice->crc()});
    }
  }
  return rest;
}

}  // namespace

Port::Port(const std::string& path, std::chrono::milliseconds timeout) : path_(path), guard_(guard(path)) {
  talking(*this, [&] {
    driver_ = std::make_unique<ac::UHF::T640>(path, timeout);
    line_ = std::make_unique<ac::UHF::SerialPort>(path, timeout);
  });
}

unsigned short Port::power_or_nobody() const {
  const auto [answered, power] = talking(*this, [&] { return driver_->getTransmitPower(); });
  if (!answered) {
    throw Failure(kNoReader, "no reader answers at " + path_ +
                                 ": is it powered, and is this its port? `uhfctl doctor` looks at one after the other");
  }
  return power;
}

unsigned short Port::power() const {
  const auto [answered, power] = talking(*this, [&] { return driver_->getTransmitPower(); });
  if (!answered) {
    throw Failure(kNoAnswer, "the reader at " + path_ + " has stopped answering: is it still powered and plugged in?");
  }
  return power;
}

Poll Port::poll(const Tap& tap) const {
  return talking(*this, [&] {
    Poll poll;
    const auto command = ac::UHF::InventoryCardFrame().toData();
    const auto begin = Clock::now();
    line_->send(command);
    if (tap) {
      tap(Direction::to_reader, command);
    }
    std::vector<unsigned char> rest;  // of which no frame is made yet
    for (std::size_t received = 0; received < kLongestAnswer;) {
      const auto [came, chunk] = line_->receive();
      if (!came) {
        take(rest, true, poll);
        return poll;
      }
      if (tap) {
        tap(Direction::from_reader, chunk);
      }
      poll.answered = true;
      poll.took = Clock::now() - begin;
      received += chunk.size();
      rest.insert(rest.end(), chunk.begin(), chunk.end());
      const auto left = take(rest, false, poll);
      rest.erase(rest.begin(), rest.end() - static_cast<std::ptrdiff_t>(left));
      if (rest.empty() && poll.frames + poll.wrong_checksums > 0) {
        return poll;
      }
    }
    take(rest, true, poll);
    return poll;
  });
}

}  // namespace uhfctl
