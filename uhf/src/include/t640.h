// The driver of the T640 reader module.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ac/vexlog.h"
#include "frame.h"
#include "uhf_module.h"

namespace ac::UHF {

// Keeps nothing of the reader's state between operations. Its destruction closes the serial line.
class T640 : public UHFModule {
 public:
  using UHFModule::UHFModule;

  // For tracing by hand: the bytes in hexadecimal on standard output.
  static void print_data(const std::vector<unsigned char>& bytes);

 protected:
  std::pair<bool, std::vector<InventoryCardInfo>> doInventoryCard() const override;
  std::pair<bool, unsigned short> doGetTransmitPower() const override;
  bool doSetTransmitPower(unsigned short power) const override;
  bool doSetWorkArea(Region region) const override;
  bool doSetWorkChannel(std::vector<unsigned char> channels) const override;
  std::pair<bool, DemodSensitivityInfo> doGetDemodulationSensitivity() const override;
  bool doSetDemodulationSensitivity(const DemodSensitivityInfo& info) const override;

 private:
  // Sends a command and waits for the one frame that answers it; bytes behind that frame are dropped. Null, with a
  // debug line, when there is no answer or a bad one.
  template <class RequestFrame>
  std::unique_ptr<Frame> sendFrame(const RequestFrame& request) const;

  // Collects the frames of an answer, in the order received, up to the first that is no good. The command was sent
  // before.
  std::vector<std::unique_ptr<Frame>> receiveFrames() const;
};

template <class RequestFrame>
std::unique_ptr<Frame> T640::sendFrame(const RequestFrame& request) const {
  // Filters of the log know these lines by their numbers, which stay when the code moves.
  const auto debug = [](const std::string& text, int line) {
    vexlog::debug(text, "uhf/src/include/t640", "sendFrame", line);
  };
  serialPort_.send(request.toData());
  std::vector<unsigned char> buffer;
  do {
    const auto [received, chunk] = serialPort_.receive();
    if (!received) {
      debug("No response", 56);
      return nullptr;
    }
    buffer.insert(buffer.end(), chunk.begin(), chunk.end());
    if (buffer.front() != Frame::HEADER) {
      debug("Header not found", 64);
      return nullptr;
    }
  } while (buffer.back() != Frame::END);
  try {
    auto frame = Frame::fromData(buffer).first;
    if (frame == nullptr || !frame->validateCheckSum()) {
      debug("Invalid response", 75);
      return nullptr;
    }
    return frame;
  } catch (const std::exception& error) {  // std::bad_alloc too: a malformed answer never ends its reader
    debug(std::string("Error parsing data: ") + error.what(), 81);
    return nullptr;
  }
}

}  // namespace ac::UHF
