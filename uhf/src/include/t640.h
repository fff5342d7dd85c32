// The driver of the T640 reader module.
#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ac/vexlog.h"
#include "frame_catalogue.h"
#include "uhf_module.h"

namespace ac::UHF {

// The public operations are UHFModule's: there stand their threads, lock, units and failures. It keeps nothing of the
// reader's state between operations, and adds nothing to the fields. Its destruction closes the serial line.
//
// A transaction is a command and its answer. It has no time-out of its own, repeats nothing and searches nothing: each
// read waits for the serial time-out, an answer begins with the header as its first byte and is complete when the last
// byte read is an end byte. What arrives later is read by the next transaction, and fails it. The failures of the
// serial port pass to the caller. Any other failure is one line of the debug log, with its file, function and number;
// filters know these:
//
//   text                            for a command and its answer   for an inventory
//   No response                     sendFrame 56                   receiveFrames 160
//   Header not found                sendFrame 64                   receiveFrames 170, without any header
//   Invalid response                sendFrame 75                   none: the frames before it count
//   Error parsing data: <reason>    sendFrame 81                   receiveFrames: the frames before it count
//
// A success is told too: "Card detected! EPC: <bytes>" for each tag (doInventoryCard 40), "Transmit power: <power>"
// (doGetTransmitPower 58) and three lines of the sensitivity.
class T640 : public UHFModule {
 public:
  // Opens the serial line; see SerialPort for the parameters and what it throws.
  using UHFModule::UHFModule;

  // For tracing by hand: the bytes in hexadecimal on standard output. Any thread; lines of several may mix.
  static void print_data(const std::vector<unsigned char>& bytes);

 protected:
  // REQUIRES: the module's mutex held, for each of these.

  // Of an answer of N frames the last half, rounded up, is read, the newest first, as far as they are tags' reports.
  std::pair<bool, std::vector<InventoryCardInfo>> doInventoryCard() const override;

  // The two that read take an answer of another class for none.
  std::pair<bool, unsigned short> doGetTransmitPower() const override;
  std::pair<bool, DemodSensitivityInfo> doGetDemodulationSensitivity() const override;

  // Those that set something take any well-formed answer, whatever its class and status.
  bool doSetTransmitPower(unsigned short power) const override;
  bool doSetWorkArea(Region region) const override;
  bool doSetWorkChannel(std::vector<unsigned char> channels) const override;
  bool doSetDemodulationSensitivity(const DemodSensitivityInfo& info) const override;

 private:
  // Sends a command and waits for the one frame that answers it; bytes behind that frame are dropped. Null, with a
  // debug line, when there is no answer or a bad one. REQUIRES: the module's mutex held.
  template <class RequestFrame>
  std::unique_ptr<Frame> sendFrame(const RequestFrame& request) const;

  // Collects the frames of an answer, in the order received, up to the first that is no good: of a notice its fields,
  // of any other frame nothing. They stand in buffer, which is empty at first and must outlive them. The command was
  // sent before. A frame that cannot be parsed ends the list with a debug line, a wrong checksum without one, silence
  // or a missing header before the answer is complete leave it empty. REQUIRES: the module's mutex held.
  std::vector<std::optional<CardNoticeView>> receiveFrames(std::vector<unsigned char>& buffer) const;
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
