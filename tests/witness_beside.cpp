#include "witness_beside.h"

#include <utility>

#include "line/frames.h"

namespace reading_story {

namespace {

void append(line::Bytes& bytes, const line::Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

line::Bytes nothing_read() { return frame_of(line::FrameType::response, line::Code::failure, line::Bytes{0x17}); }

line::Bytes report(const line::Bytes& epc) {
  line::Bytes parameters{200, 0x30, 0};
  append(parameters, epc);
  append(parameters, {0, 0});
  return frame_of(line::FrameType::notice, line::Code::inventory, parameters);
}

line::Exchange exchange_of(line::Bytes bytes, Time asked, Time there) {
  line::Exchange exchange;
  exchange.code = line::Code::inventory;
  exchange.answer = line::answer_of(exchange.code, bytes);
  exchange.bytes = std::move(bytes);
  exchange.asked = asked;
  exchange.last_byte = there;
  return exchange;
}

}  // namespace

WitnessBeside::WitnessBeside(const why::WitnessSettings& settings, Time start, std::optional<int> level)
    : probe_interval_(settings.probe_interval),
      witness_(
          settings, start, [this](const why::Sighting& sighting) { add(sighting); },
          [this](const why::Disagreement& one) { disagreement_ = disagreement_ ? disagreement_ : one; }) {
  witness_.answer(level, start);
}

void WitnessBeside::answered(std::span<const line::Bytes> epcs, Time there, Time noted) {
  line::Bytes bytes;  // a half that does not count, and one that does
  for (std::size_t i = 0; i < epcs.size(); ++i) {
    append(bytes, nothing_read());
  }
  for (const auto& epc : epcs) {
    append(bytes, report(epc));
  }
  untold_.push_back(exchange_of(bytes, there - std::chrono::milliseconds(3), there));
  const Time next = noted + probe_interval_;
  untold_.push_back(exchange_of(nothing_read(), next, next));
}

void WitnessBeside::apply(const why::WitnessSettings& settings, Time at) {
  probe_interval_ = settings.probe_interval;
  witness_.apply(settings, at);
}

void WitnessBeside::tell_answers() {
  for (const auto& exchange : std::exchange(untold_, {})) {
    witness_.saw(exchange);
  }
}

void WitnessBeside::pass(Time now) {
  tell_answers();
  witness_.pass(now);
}

void WitnessBeside::end() {
  tell_answers();
  witness_.end();
}

void WitnessBeside::add(const why::Sighting& sighting) {
  for (const auto& fate : sighting.fates) {
    for (const auto& because : fate.reasons) {
      readings_.by_reason[because.reason] += fate.polls;
    }
    readings_.at_boundary += fate.at_boundary ? fate.polls : 0;
  }
}

}  // namespace reading_story
