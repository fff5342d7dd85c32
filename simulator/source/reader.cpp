#include "uhfsim/reader.h"

#include <algorithm>
#include <cstddef>

#include "crc16.h"
#include "frame.h"

namespace uhfsim {

namespace {

enum Code : std::uint8_t {
  kSetWorkArea = 0x07,
  kInventory = 0x22,
  kInsertChannels = 0xA9,
  kSetPower = 0xB6,
  kGetPower = 0xB7,
  kSetSensitivity = 0xF0,
  kGetSensitivity = 0xF1,
  kFailure = 0xFF,
};

constexpr std::uint8_t kDone = 0x00;

std::uint8_t high(std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); }
std::uint8_t low(std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xFF); }
std::uint16_t word_at(ByteView bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

Bytes response(Code code, const Bytes& parameters) { return encode_frame(FrameType::response, code, parameters); }
Bytes failure(std::uint8_t status) { return response(kFailure, {status}); }

// Notice parameters: RSSI, PC, EPC, and the CRC over PC and EPC that the tag itself sends.
Bytes notice(const Tag& tag) {
  Bytes parameters{tag.rssi, high(tag.pc), low(tag.pc)};
  parameters.insert(parameters.end(), tag.epc.begin(), tag.epc.end());
  const std::uint16_t crc = crc16(ByteView(parameters).subspan(1));
  parameters.push_back(high(crc));
  parameters.push_back(low(crc));
  return encode_frame(FrameType::notice, kInventory, parameters);
}

}  // namespace

struct Reader::Command {
  Code code;
  std::size_t least_parameters;  // fewer are refused, what follows is ignored
  Bytes (Reader::*answer)(ByteView parameters);
};

constexpr Reader::Command Reader::kCommands[] = {
    {kSetWorkArea, 1, &Reader::set_work_area},
    {kInventory, 0, &Reader::inventory},
    {kInsertChannels, 1, &Reader::insert_channels},
    {kSetPower, 2, &Reader::set_power},
    {kGetPower, 0, &Reader::get_power},
    {kSetSensitivity, 4, &Reader::set_sensitivity},
    {kGetSensitivity, 0, &Reader::get_sensitivity},
};

Reader::Reader(const Field& field, Options options)
    : field_(field), options_(options), random_(options.seed), scanner_(std::make_unique<CommandScanner>()) {}

Reader::~Reader() = default;

std::vector<Bytes> Reader::feed(ByteView bytes) {
  scanner_->push(bytes);
  std::vector<Bytes> replies;
  while (const auto command = scanner_->next()) {
    ++commands_;
    Bytes reply = answer(*command);
    if (!reply.empty()) replies.push_back(std::move(reply));
  }
  return replies;
}

void Reader::forget_input() { scanner_->clear(); }

ReaderCounters Reader::counters() const { return {commands_, notices_, scanner_->skipped()}; }

Bytes Reader::answer(const CommandFrame& frame) {
  const auto* command = std::ranges::find(kCommands, frame.code, &Command::code);
  if (command == std::end(kCommands)) return failure(kUnknownCommand);
  if (frame.parameters.size() < command->least_parameters) return failure(kBadParameters);
  return (this->*command->answer)(frame.parameters);
}

Bytes Reader::set_work_area(ByteView parameters) {
  state_.region = parameters[0];
  return response(kSetWorkArea, {kDone});
}

Bytes Reader::inventory(ByteView) {
  const std::vector<Tag> read = read_round();
  notices_ += read.size();
  if (read.empty()) return options_.quiet_when_empty ? Bytes{} : failure(kNoTag);
  Bytes reply;
  for (const Tag& tag : read) {
    const Bytes frame = notice(tag);
    reply.insert(reply.end(), frame.begin(), frame.end());
  }
  return reply;
}

// The first byte counts the channels that follow. They join those that are there; none at all clears the list.
Bytes Reader::insert_channels(ByteView parameters) {
  const std::size_t count = parameters[0];
  if (parameters.size() < 1 + count) return failure(kBadParameters);
  auto& channels = state_.channels;
  if (count == 0) channels.clear();
  for (const std::uint8_t channel : parameters.subspan(1, count)) {
    if (std::ranges::find(channels, channel) == channels.end()) channels.push_back(channel);
  }
  return response(kInsertChannels, {kDone});
}

Bytes Reader::set_power(ByteView parameters) {
  state_.power = word_at(parameters, 0);
  return response(kSetPower, {kDone});
}

Bytes Reader::get_power(ByteView) { return response(kGetPower, {high(state_.power), low(state_.power)}); }

Bytes Reader::set_sensitivity(ByteView parameters) {
  state_.sensitivity = {parameters[0], parameters[1], word_at(parameters, 2)};
  return response(kSetSensitivity, {kDone});
}

Bytes Reader::get_sensitivity(ByteView) {
  const auto& [m, i, threshold] = state_.sensitivity;
  return response(kGetSensitivity, {m, i, high(threshold), low(threshold)});
}

// Each tag is read or missed by its own probability; who answers first is chance, as in a real anti-collision round.
std::vector<Tag> Reader::read_round() {
  std::vector<Tag> tags = field_.snapshot();
  std::erase_if(tags, [this](const Tag& tag) {
    const bool is_read = random_.chance(tag.probability);  // drawn in any case, so that power does not shift the chance
    return !is_read || tag.least_power > state_.power;
  });
  random_.shuffle(std::span(tags));
  return tags;
}

}  // namespace uhfsim
