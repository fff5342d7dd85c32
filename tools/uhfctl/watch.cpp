#include "watch.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "failure.h"
#include "frame_catalogue.h"
#include "onlooker.h"
#include "terminal.h"

namespace uhfctl {

namespace {

class OwnPolls : public Watch {
 public:
  OwnPolls(const Common& common, Claim claim) : port_(common, std::move(claim)) {
    catch_interrupts();
    port_.power_or_nobody();
  }

  std::optional<Poll> next(const Tap& tap) override { return tap ? port_.poll(tap) : port_.poll_living(); }

 private:
  Port port_;
};

// A poll lasts from its question to the next question of anybody's.
class DoorsPolls : public Watch {
 public:
  DoorsPolls(const Common& common, const Door& door) : path_(common.port), door_(door.name()), line_(door) {
    catch_interrupts();
    note("looking on at the polls of " + door_);
  }

  std::optional<Poll> next(const Tap& tap) override {
    const auto piece = line_.next(kMoment);
    if (!piece.has_value()) {
      return std::nullopt;
    }
    if (tap) {
      tap(piece->at, piece->direction, piece->bytes);
    }
    if (piece->direction == Direction::to_reader) {
      return begin(*piece);
    }
    go_on(*piece);
    return std::nullopt;
  }

  std::uint64_t left_out() const override { return line_.left_out(); }
  std::string whose() const override { return door_; }

 private:
  static constexpr std::chrono::milliseconds kMoment{100};
  static constexpr std::chrono::seconds kSilence{3};
  static constexpr std::size_t kLongestAnswer = 65'536;

  std::optional<Poll> begin(const SeenPiece& piece) {
    auto done = std::exchange(poll_, std::nullopt);
    if (done.has_value()) {
      take_frames(rest_, true, *done);
    }
    rest_.clear();
    if (piece.bytes == ac::UHF::InventoryCardFrame().toData()) {
      poll_.emplace();
      asked_ = piece.at;
    }
    if (!unanswered_since_.has_value()) {
      unanswered_since_ = piece.at;
    }
    if (piece.at - *unanswered_since_ > kSilence) {
      throw Failure(kNoAnswer, "the reader at " + path_ + " does not answer " + door_ + ": `achost health` tells more");
    }
    return done;
  }

  void go_on(const SeenPiece& piece) {
    unanswered_since_.reset();
    if (!poll_.has_value()) {
      return;  // the answer to another question
    }
    poll_->answered = true;
    poll_->took = piece.at - asked_;
    if (rest_.size() + piece.bytes.size() > kLongestAnswer) {
      poll_->fault = LineFault::flood;
      rest_.clear();
      return;
    }
    rest_.insert(rest_.end(), piece.bytes.begin(), piece.bytes.end());
    const auto left = take_frames(rest_, false, *poll_);
    rest_.erase(rest_.begin(), rest_.end() - static_cast<std::ptrdiff_t>(left));
  }

  const std::string path_;
  const std::string door_;
  Onlooker line_;
  std::optional<Poll> poll_;  // the one that is under way
  Clock::time_point asked_{};
  std::optional<Clock::time_point> unanswered_since_;
  std::vector<unsigned char> rest_;  // of which no frame is made yet
};

}  // namespace

std::unique_ptr<Watch> watch(const Common& common) {
  Claim claim(common.port);
  if (claim.door.has_value()) {
    return std::make_unique<DoorsPolls>(common, *claim.door);
  }
  return std::make_unique<OwnPolls>(common, std::move(claim));
}

}  // namespace uhfctl
