// What the line makes of any bytes from both sides, at any times: answers within their bounds, every byte looked at
// once, the frames that the codec sees, settings that can be given back, and a recording of them.
#include "ac/exception.h"
#include "frame.h"
#include "input.h"
#include "line/conversation.h"
#include "line/health.h"
#include "line/radio_memory.h"
#include "line/recorder.h"
#include "line/tests/by_codec.h"

namespace {

using line::Bytes;
using line::ByteView;
using line::Clock;
using line::test::size_by_codec;
using std::chrono::milliseconds;

// Frames and gaps in their order, side by side, and the codec's opinion of each place.
void look_at_pieces(const Bytes& bytes) {
  const auto pieces = line::pieces_of(bytes);
  auto frame = pieces.frames.begin();
  auto gap = pieces.gaps.begin();
  for (std::size_t at = 0; at < bytes.size();) {
    if (frame != pieces.frames.end() && frame->offset == at) {
      fuzz::require(size_by_codec(bytes, at) == frame->size, "the codec sees the same frame");
      fuzz::require(frame->type != line::FrameType::notice || line::tag_of(*frame).epc.size() + 5 <= frame->size,
                    "a tag is part of its report");
      at += (frame++)->size;
      continue;
    }
    fuzz::require(gap != pieces.gaps.end() && gap->offset == at && gap->size > 0, "a gap stands between frames");
    for (const std::size_t end = at + (gap++)->size; at < end; ++at) {
      fuzz::require(size_by_codec(bytes, at) <= 1, "the codec sees no frame either");
    }
  }
  fuzz::require(frame == pieces.frames.end() && gap == pieces.gaps.end(), "nothing is behind the end");
}

// Some time, and often one at which something ends.
milliseconds some_time(fuzz::Input& input) {
  constexpr milliseconds kTimes[] = {milliseconds(0),   milliseconds(1),    milliseconds(50),   milliseconds(199),
                                     milliseconds(200), milliseconds(1500), milliseconds(2000), milliseconds(2001)};
  return kTimes[input.below(std::size(kTimes))];
}

// A frame with a right checksum, or any bytes.
Bytes some_bytes(fuzz::Input& input) {
  constexpr line::Code kCodes[] = {line::Code::set_region,      line::Code::inventory, line::Code::set_channels,
                                   line::Code::set_power,       line::Code::get_power, line::Code::set_sensitivity,
                                   line::Code::get_sensitivity, line::Code::failure};
  const auto kind = input.below(8);
  if (kind < 3) {
    const auto code = kCodes[input.below(std::size(kCodes))];
    return line::frame_of(static_cast<line::FrameType>(kind), code, input.bytes());
  }
  Bytes bytes = input.bytes();
  for (auto times = kind == 7 ? input.below(256) : 0; times > 0; --times) {  // a flood
    bytes.insert(bytes.end(), 256, 0x7F);
  }
  return bytes;
}

class Session {
 public:
  void play(fuzz::Input& input) {
    while (!input.empty()) {
      now_ += some_time(input);
      switch (input.below(8)) {
        case 0:
        case 1:
          ask(some_bytes(input));
          break;
        case 6:
          done_with(conversation_.settle(now_));
          break;
        case 7:
          change_port(input.below(4));
          break;
        default:
          take(some_bytes(input));
      }
      look();
    }
    done_with(conversation_.end());
  }

 private:
  void ask(const Bytes& bytes) {
    const bool goes_on = has_asked_ && line::pieces_of(bytes).frames.empty();
    done_with(conversation_.ask(now_, bytes));
    watch_.asked(now_);
    recorder_.add(line::Direction::to_reader, bytes, now_);
    if (!goes_on) {
      has_asked_ = true;
      asked_ = now_;
      taken_ = 0;
    }
  }

  void take(const Bytes& bytes) {
    const auto taken = conversation_.take(now_, bytes);
    fuzz::require(taken <= bytes.size(), "no more is taken than came");
    taken_ += taken;
    fuzz::require(taken == 0 || (has_asked_ && now_ - asked_ <= line::kLatestAnswer), "an answer comes in time");
    fuzz::require(taken_ <= line::kLongestAnswer, "an answer ends");
    watch_.dropped(bytes.size() - taken);
    recorder_.add(line::Direction::from_reader, bytes, now_);
  }

  void done_with(const std::optional<line::Exchange>& exchange) {
    if (!exchange.has_value()) {
      return;
    }
    fuzz::require(exchange->bytes.size() <= line::kLongestAnswer, "an exchange is bounded");
    fuzz::require(exchange->last_byte >= exchange->asked, "an answer comes after its question");
    watch_.answered(exchange->last_byte, exchange->answer, exchange->code == line::Code::inventory);
    radio_.saw(*exchange);
    for (const auto& command : radio_.commands()) {
      const auto pieces = line::pieces_of(command);
      fuzz::require(pieces.frames.size() == 1 && pieces.gaps.empty(), "a setting that is given back is one command");
      fuzz::require(size_by_codec(command, 0) == command.size(), "which the codec takes");
      if (const auto answer = radio_.answer_to(pieces.frames.front())) {
        fuzz::require(line::pieces_of(*answer).frames.size() == 1, "its answer is one frame");
      }
    }
  }

  void change_port(std::size_t how) {
    switch (how) {
      case 0:
        done_with(conversation_.end());
        has_asked_ = false;
        watch_.port_gone("pulled out");
        break;
      case 1:
        watch_.port_back();
        break;
      case 2:
        watch_.lent("somebody");
        break;
      default:
        watch_.returned();
    }
  }

  void look() {
    watch_.look(now_);
    const auto& health = watch_.health();
    fuzz::require(health.bad_share >= 0 && health.bad_share <= 1, "a share is one");
    fuzz::require(health.bad_polls <= health.polls && health.silent_polls <= health.polls, "polls are polls");
    fuzz::require(health.cause.empty() == (health.state == line::State::answering), "what is wrong is said");
    fuzz::require(recorder_.text(1024).starts_with("# uhf recording 1\n"), "a recording is one");
  }

  Clock::time_point now_{std::chrono::hours(1)};
  Clock::time_point asked_;
  bool has_asked_ = false;
  std::size_t taken_ = 0;
  line::Conversation conversation_;
  line::HealthWatch watch_{"/dev/reader", now_};
  line::RadioMemory radio_;
  line::Recorder recorder_{4096};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  look_at_pieces({data, data + std::min<std::size_t>(size, 4096)});
  fuzz::Input input(data, size);
  Session().play(input);
  return 0;
}
