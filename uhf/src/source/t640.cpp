#include "t640.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <type_traits>
#include <typeinfo>

#include "ac/exception.h"
#include "frame_catalogue.h"

namespace ac::UHF {

namespace {

// line: filters of the log know some lines by their numbers, so those stay when the code moves.
void debug(const std::string& text, const char* function, int line) {
  vexlog::debug(text, "uhf/src/source/t640", function, line);
}

// The module's region codes, by Region. BRAZIL and AMERICA share one.
constexpr std::array<unsigned char, 6> REGION_CODES{2, 1, 4, 2, 3, 6};

// The answer as the class that was asked for; null when it is another.
template <class Response>
const Response* as(const std::unique_ptr<Frame>& answer) {
  static_assert(std::is_final_v<Response>, "the class of the answer is this one, or another");
  const Frame* const frame = answer.get();
  return frame != nullptr && typeid(*frame) == typeid(Response) ? static_cast<const Response*>(frame) : nullptr;
}

// A frame of an inventory's answer: whether its checksum is right, and its fields when it is a notice. A notice is read
// where it stands, as there are many of them; its class ignores no byte, so the checksum is the same.
std::pair<bool, std::optional<CardNoticeView>> examine(const Frame::View& frame) {
  if (frame.is(Frame::Type::Notice, Frame::CommandType::InventoryCard)) {
    return {frame.calculateChecksum() == frame.checksum, CardNoticeView::read(ByteReader(frame.parameters))};
  }
  return {Frame::create(frame)->validateCheckSum(), std::nullopt};
}

// Appends the frames at the front of an inventory's answer, up to the first that is no good.
void split(std::span<const unsigned char> answer, std::vector<std::optional<CardNoticeView>>& frames) {
  constexpr std::size_t LEAST_NOTICE = Frame::MIN_FRAME_SIZE + 5;
  frames.reserve(answer.size() / LEAST_NOTICE);
  for (auto rest = answer;;) {
    const auto [frame, consumed] = Frame::cut(rest);
    if (!frame.has_value()) {
      return;
    }
    const auto [valid, notice] = examine(*frame);
    if (!valid) {
      return;
    }
    frames.push_back(notice);
    rest = rest.subspan(consumed);
  }
}

}  // namespace

std::pair<bool, std::vector<InventoryCardInfo>> T640::doInventoryCard() const {
  serialPort_.send(InventoryCardFrame().toData());
  std::vector<unsigned char> buffer;
  auto frames = receiveFrames(buffer);
  std::vector<InventoryCardInfo> tags;
  tags.reserve((frames.size() + 1) / 2);
  std::string line;  // of the debug log, kept for all tags
  line.reserve(64);
  // The newest frames first, until as many are done as are left: the last half of an answer, rounded up.
  while (!frames.empty()) {
    const auto notice = frames.back();
    frames.pop_back();
    if (!notice.has_value()) {  // a response, a CRC error, an echoed command: the reader broke the inventory off
      break;
    }
    line = "Card detected! EPC: ";
    Frame::printBytes(notice->epc, line);
    debug(line, __func__, 40);
    tags.push_back({notice->rssi, notice->pc, {notice->epc.begin(), notice->epc.end()}, notice->crc});
    if (tags.size() >= frames.size()) {
      return {true, std::move(tags)};
    }
  }
  return {false, std::move(tags)};
}

std::pair<bool, unsigned short> T640::doGetTransmitPower() const {
  const auto answer = sendFrame(GetTransmitPowerFrame());
  const auto* response = as<GetTransmitPowerResponse>(answer);
  if (response == nullptr) {
    return {false, 0};
  }
  debug("Transmit power: " + std::to_string(response->power()), __func__, 58);
  return {true, response->power()};
}

bool T640::doSetTransmitPower(unsigned short power) const { return sendFrame(SetTransmitPowerFrame(power)) != nullptr; }

bool T640::doSetWorkArea(Region region) const {
  const auto index = static_cast<std::size_t>(region);
  if (index >= REGION_CODES.size()) {
    throw ac_exception("Invalid Region!", true);
  }
  return sendFrame(SetWorkAreaFrame(REGION_CODES[index])) != nullptr;
}

bool T640::doSetWorkChannel(std::vector<unsigned char> channels) const {
  // An empty list clears the reader's.
  return sendFrame(InsertWorkChannelFrame(std::vector<unsigned char>())) != nullptr &&
         sendFrame(InsertWorkChannelFrame(std::move(channels))) != nullptr;
}

std::pair<bool, DemodSensitivityInfo> T640::doGetDemodulationSensitivity() const {
  const auto answer = sendFrame(GetRxSensitiveFrame());
  const auto* response = as<GetRxSensitiveResponse>(answer);
  if (response == nullptr) {
    return {false, {}};
  }
  const auto& info = response->info();
  debug("RxSensitivity M: " + std::to_string(info.m), __func__, __LINE__);
  debug("RxSensitivity I: " + std::to_string(info.i), __func__, __LINE__);
  debug("RxSensitivity sensitivity: " + std::to_string(info.sensitivity), __func__, __LINE__);
  return {true, info};
}

bool T640::doSetDemodulationSensitivity(const DemodSensitivityInfo& info) const {
  return sendFrame(SetRxSensitiveFrame(info.m, info.i, info.sensitivity)) != nullptr;
}

std::vector<std::optional<CardNoticeView>> T640::receiveFrames(std::vector<unsigned char>& buffer) const {
  std::vector<std::optional<CardNoticeView>> frames;
  do {
    auto [received, chunk] = serialPort_.receive();
    if (!received) {
      debug("No response", __func__, 160);
      return frames;
    }
    if (buffer.empty()) {
      buffer = std::move(chunk);
    } else {
      buffer.insert(buffer.end(), chunk.begin(), chunk.end());
    }
    if (buffer.front() != Frame::HEADER) {
      // Out of step with the reader. Whatever follows a header here belongs to an answer whose beginning is lost: it is
      // dropped too, and the next inventory starts afresh.
      if (std::ranges::find(buffer, Frame::HEADER) == buffer.end()) {
        debug("Header not found", __func__, 170);
      }
      return frames;
    }
  } while (buffer.back() != Frame::END);
  try {
    split(buffer, frames);
  } catch (const std::exception& error) {  // std::bad_alloc too: a malformed notice never ends the reading loop
    debug(std::string("Error parsing data: ") + error.what(), __func__, __LINE__);
  }
  return frames;
}

void T640::print_data(const std::vector<unsigned char>& bytes) {
  std::cout << "<<<<<<<<<<<<" << std::hex;
  for (const unsigned char byte : bytes) {
    std::cout << static_cast<unsigned int>(byte) << ' ';
  }
  std::cout << std::dec << ">>>>>>>>>>>>" << std::endl;
}

}  // namespace ac::UHF
