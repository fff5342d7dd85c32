#include "player.h"

#include <algorithm>

#include "frame.h"

namespace uhfctl {

namespace {

using Code = ac::UHF::Frame::CommandType;

// What tells the reader something, and the question for the same. There is none for region and channels.
struct Pair {
  Code tells;
  Code asks;
};
constexpr Pair kPairs[] = {{Code::SetTransmitPower, Code::GetTransmitPower},
                           {Code::SetRxSensitive, Code::GetRxSensitive}};

std::uint8_t code_of(const std::vector<unsigned char>& command) { return command.size() > 2 ? command[2] : 0; }

}  // namespace

Player::Player(const std::vector<Piece>& recording) {
  for (const auto& piece : recording) {
    if (piece.direction == Direction::to_reader) {
      exchanges_.push_back({.command = piece, .replies = {}});
    } else if (!exchanges_.empty()) {
      exchanges_.back().replies.push_back(piece);
    }
  }
  if (!exchanges_.empty() && exchanges_.back().replies.empty()) {
    exchanges_.pop_back();  // the recording ended before its answer
  }
  for (std::size_t i = 0; i < exchanges_.size(); ++i) {
    places_[exchanges_[i].command.bytes].push_back(i);
  }
}

const Player::Exchange* Player::recorded(const std::vector<unsigned char>& command) {
  const auto known = places_.find(command);
  if (known == places_.end() || outdated_.contains(code_of(command))) {
    return nullptr;
  }
  const auto& places = known->second;
  const auto next = std::ranges::lower_bound(places, next_);
  const auto place = next == places.end() ? places.front() : *next;
  next_ = place + 1;
  return &exchanges_[place];
}

Player::Answer Player::answer_to(const std::vector<unsigned char>& command) {
  const auto plain = plain_.feed(command);  // also when it is not used: it keeps what it is told
  const auto* const exchange = recorded(command);
  for (const auto& [tells, asks] : kPairs) {
    if (code_of(command) == static_cast<std::uint8_t>(tells)) {
      const auto question = static_cast<std::uint8_t>(asks);
      if (exchange != nullptr) {
        outdated_.erase(question);
      } else {
        outdated_.insert(question);
      }
    }
  }
  Answer answer{.pieces = {}, .recorded = exchange != nullptr};
  if (exchange != nullptr) {
    answer.pieces = exchange->replies;
    for (auto& piece : answer.pieces) {
      piece.at -= exchange->command.at;
    }
    return answer;
  }
  for (const auto& reply : plain) {
    answer.pieces.push_back({.at = {}, .direction = Direction::from_reader, .bytes = reply});
  }
  return answer;
}

}  // namespace uhfctl
