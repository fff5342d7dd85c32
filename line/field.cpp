#include "line/field.h"

#include <algorithm>
#include <map>
#include <utility>

#include "line/answer.h"
#include "line/conversation.h"

namespace line {

void Field::take(const Piece& piece) {
  if (piece.direction == Direction::from_reader) {
    if (open_.has_value() && open_->came.size() + piece.bytes.size() <= kLongestAnswer) {
      open_->came.insert(open_->came.end(), piece.bytes.begin(), piece.bytes.end());
      read(*open_, piece.at);
    }
    return;
  }
  const auto frames = pieces_of(piece.bytes).frames;
  if (open_.has_value()) {
    open_->came.clear();
    polls_.push_back(*std::exchange(open_, std::nullopt));
  }
  if (!frames.empty() && frames.back().code == Code::inventory) {
    open_ = Poll{.at = piece.at, .came = {}, .tags = {}};
  }
}

// A tag counts once a poll, from the moment its report is whole.
void Field::read(Poll& poll, Clock::time_point now) {
  for (const TagPlace& place : answer_of(Code::inventory, poll.came).tags) {
    const auto epc = ByteView(poll.came).subspan(place.epc, place.size);
    if (std::ranges::none_of(poll.tags, [&](const auto& tag) { return std::ranges::equal(tag.epc, epc); })) {
      poll.tags.push_back({.epc = Bytes(epc.begin(), epc.end()), .rssi = place.rssi, .at = now});
    }
  }
}

void Field::let_go(Clock::time_point now) {
  while (!polls_.empty() && now - polls_.front().at > window_) {
    polls_.pop_front();
  }
}

std::vector<Field::Seen> Field::seen(Clock::time_point now) {
  let_go(now);
  std::map<Bytes, Seen> all;
  const auto add = [&all](const Poll& poll) {
    for (const auto& [epc, rssi, at] : poll.tags) {
      Seen& seen = all[epc];
      seen = {.epc = epc, .rssi = rssi, .polls = seen.polls + 1, .last = at};
    }
  };
  std::ranges::for_each(polls_, add);
  if (open_.has_value()) {
    add(*open_);
  }
  std::vector<Seen> list;
  std::ranges::transform(all, std::back_inserter(list), [](auto& one) { return std::move(one.second); });
  return list;
}

int Field::polls(Clock::time_point now) {
  let_go(now);
  const bool counts = open_.has_value() && !open_->tags.empty();
  return static_cast<int>(polls_.size()) + (counts ? 1 : 0);
}

}  // namespace line
