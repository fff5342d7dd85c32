// The plug-in's conversation with the reader, out of a recording.
#pragma once

#include <functional>
#include <string_view>

#include "line/conversation.h"
#include "line/recorder.h"

namespace line {

// Times go forward, from call to call. One thread uses it.
class RecordedConversation {
 public:
  // on_exchange: called for each question that is done with, as LineOptions::on_exchange.
  explicit RecordedConversation(std::function<void(const Exchange&)> on_exchange)
      : on_exchange_(std::move(on_exchange)) {}

  void pass(Clock::time_point now) { done_with(conversation_.settle(now)); }

  // What the line asks for itself goes between the plug-in's questions, and may stand in the middle of one.
  void take(Direction direction, ByteView bytes, Clock::time_point at);

  // While the line is lent the plug-in has no part in what goes over it.
  void note(std::string_view text);

 private:
  void done_with(const std::optional<Exchange>& exchange);

  const std::function<void(const Exchange&)> on_exchange_;
  Conversation conversation_;
  bool is_lent_ = false;
  Code own_ = Code::failure;       // the latest that the line asked for while the plug-in waited,
  Clock::time_point own_until_{};  // whose answer may come until then
};

}  // namespace line
