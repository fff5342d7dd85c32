#include "uhfsim/faults.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "frame.h"
#include "uhfsim/text.h"

namespace uhfsim {

namespace {

constexpr std::uint8_t kHeader = 0x7F;
constexpr std::uint8_t kEnd = 0x7E;
constexpr std::uint8_t kInventory = 0x22;
constexpr std::size_t kMostJunk = 16;  // bytes

// What is about to go to the line, and what chance and the line give for changing it.
struct Answer {
  std::vector<Sending> line;  // never empty when a fault gets it
  ByteView received;
  Random& random;

  // The reply as long as nothing is sent apart from it.
  Bytes& reply() { return line.front().bytes; }

  std::uint8_t any_byte() { return static_cast<std::uint8_t>(random.below(256)); }

  Bytes::iterator any_place() {
    return reply().begin() + static_cast<std::ptrdiff_t>(random.below(reply().size() + 1));
  }

  // A frame of the reply; empty when it has none any more.
  std::span<std::uint8_t> any_frame() {
    const auto frames = frames_of(reply());
    return frames.empty() ? std::span<std::uint8_t>() : frames[random.below(frames.size())];
  }
};

void silence(Answer& answer) { answer.line.clear(); }

void short_notice(Answer& answer) {
  Bytes parameters(3 + answer.random.below(2));
  for (auto& parameter : parameters) parameter = answer.any_byte();
  const Bytes notice = encode_frame(FrameType::notice, kInventory, parameters);
  answer.reply().insert(answer.reply().begin(), notice.begin(), notice.end());
}

void wrong_length(Answer& answer) {
  const auto frame = answer.any_frame();
  if (frame.empty()) return;
  frame[4] = static_cast<std::uint8_t>(frame[4] + 1 + answer.random.below(255));
  mend_checksum(frame);
}

void unknown_command(Answer& answer) {
  const auto frame = answer.any_frame();
  if (frame.empty()) return;
  frame[2] = 0x55;
  mend_checksum(frame);
}

void unknown_type(Answer& answer) {
  const auto frame = answer.any_frame();
  if (frame.empty()) return;
  frame[1] = static_cast<std::uint8_t>(3 + answer.random.below(253));
  mend_checksum(frame);
}

void corrupt_checksum(Answer& answer) {
  Bytes& reply = answer.reply();
  if (reply.size() >= 2) reply[reply.size() - 2] ^= 0xFF;
}

void flip_bit(Answer& answer) {
  const auto place = answer.any_place();
  if (place != answer.reply().end()) *place ^= static_cast<std::uint8_t>(1 << answer.random.below(8));
}

void drop_byte(Answer& answer) {
  const auto place = answer.any_place();
  if (place != answer.reply().end()) answer.reply().erase(place);
}

void insert_byte(Answer& answer) {
  const auto place = answer.any_place();
  answer.reply().insert(place, answer.any_byte());
}

void truncate(Answer& answer) { answer.reply().erase(answer.any_place(), answer.reply().end()); }

void junk(Answer& answer) {
  Bytes bytes(1 + answer.random.below(kMostJunk));
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(answer.random.below(kHeader));
  answer.reply().insert(answer.reply().begin(), bytes.begin(), bytes.end());
}

void echo(Answer& answer) {
  answer.reply().insert(answer.reply().begin(), answer.received.begin(), answer.received.end());
}

void flood(Answer& answer) {
  Bytes bytes(FaultInjector::kFloodBytes);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(answer.random.below(kEnd));
  bytes.front() = kHeader;
  answer.reply() = std::move(bytes);
}

void split_before(Answer& answer, Bytes::iterator place) {
  Sending rest{.bytes = {place, answer.reply().end()}, .pause = FaultInjector::kGap};
  answer.reply().erase(place, answer.reply().end());
  answer.line.push_back(std::move(rest));
}

void split(Answer& answer) { split_before(answer, answer.any_place()); }

void split_at_end(Answer& answer) {
  const auto end = std::ranges::find(answer.reply(), kEnd);
  if (end != answer.reply().end()) split_before(answer, std::next(end));
}

void late(Answer& answer) { answer.line.front().pause += FaultInjector::kLate; }

void hang_up(Answer& answer) {
  truncate(answer);
  answer.line.resize(1);
  answer.line.front().hang_up = true;
}

// One row a fault, in the order in which they strike: first those that need whole frames, at last those that decide
// when the bytes go.
struct Fault {
  std::string_view name;
  void (*apply)(Answer& answer);
  std::string_view meaning;
};

constexpr Fault kFaults[] = {
    {"silence", silence, "no answer"},
    {"short-notice", short_notice, "a tag report of 3 or 4 parameter bytes comes first"},
    {"wrong-length", wrong_length, "a frame announces another length than it has"},
    {"unknown-command", unknown_command, "a frame has a command code that does not exist"},
    {"unknown-type", unknown_type, "a frame has a type that does not exist"},
    {"corrupt-checksum", corrupt_checksum, "the last frame's checksum does not fit"},
    {"flip-bit", flip_bit, "a bit is wrong"},
    {"drop-byte", drop_byte, "a byte is lost"},
    {"insert-byte", insert_byte, "there is a byte too many"},
    {"truncate", truncate, "the end of the answer is lost"},
    {"junk", junk, "1 to 16 bytes that are no header come first"},
    {"echo", echo, "the command comes back before its answer"},
    {"flood", flood, "65,536 bytes that never end a frame, in place of the answer"},
    {"split", split, "a silence of 20 ms somewhere in the answer"},
    {"split-at-end", split_at_end, "the same behind the first 0x7E, which may stand inside a frame"},
    {"late", late, "the answer comes a second late"},
    {"hang-up", hang_up, "the line hangs up in the middle of the answer, and comes back"},
};

}  // namespace

std::vector<FaultHelp> FaultInjector::help() {
  std::vector<FaultHelp> help;
  for (const Fault& fault : kFaults) help.push_back({fault.name, fault.meaning});
  return help;
}

std::vector<std::string_view> FaultInjector::names() {
  std::vector<std::string_view> names;
  for (const Fault& fault : kFaults) names.push_back(fault.name);
  return names;
}

void FaultInjector::set(std::string_view name, double probability) {
  const auto* fault = std::ranges::find(kFaults, name, &Fault::name);
  if (fault == std::end(kFaults)) {
    throw std::invalid_argument("unknown fault " + quoted(name) + "; expected " + alternatives(names()));
  }
  if (!(probability >= 0.0 && probability <= 1.0)) {
    throw std::invalid_argument("the probability is out of range; expected 0.0 to 1.0");
  }
  const std::lock_guard lock(mutex_);
  active_[fault->name] = probability;
}

void FaultInjector::clear() {
  const std::lock_guard lock(mutex_);
  active_.clear();
}

std::vector<Sending> FaultInjector::intercept(Bytes reply, ByteView received) {
  const std::lock_guard lock(mutex_);
  Answer answer{{}, received, random_};
  answer.line.push_back({.bytes = std::move(reply)});
  for (const Fault& fault : kFaults) {
    const auto entry = active_.find(fault.name);
    if (entry == active_.end() || answer.line.empty()) continue;
    if (random_.chance(entry->second)) fault.apply(answer);
  }
  return std::move(answer.line);
}

}  // namespace uhfsim
