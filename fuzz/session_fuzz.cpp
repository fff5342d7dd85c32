// The driver in session with a reader that says anything at any time: raw bytes, whole frames, silence, a hang-up.
#include <cstring>

#include "ac/exception.h"
#include "input.h"
#include "memory_line.h"
#include "second_host.h"
#include "t640.h"

namespace {

using Bytes = std::vector<unsigned char>;

class FuzzedLine : public memory_line::Line {
 public:
  explicit FuzzedLine(fuzz::Input& input) : input_(input) {}

  bool write(std::span<const unsigned char>) override {
    hung_up = hung_up || input_.below(64) == 63;
    return !hung_up;
  }

  Bytes read(std::size_t most, std::chrono::milliseconds) override {
    if (pending_.empty()) {
      pending_ = input_.below(4) == 0 ? input_.bytes() : frame();
    }
    const Bytes chunk(pending_.begin(),
                      pending_.begin() + static_cast<std::ptrdiff_t>(std::min(most, pending_.size())));
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(chunk.size()));
    return chunk;
  }

  bool hung_up = false;

 private:
  // A frame with a right checksum and length; nothing at the input's end.
  Bytes frame() {
    if (input_.empty()) {
      return {};
    }
    constexpr unsigned char kCommands[] = {0x07, 0x22, 0xA9, 0xB6, 0xB7, 0xF0, 0xF1, 0xFF};
    Bytes bytes{0x7F, static_cast<unsigned char>(input_.below(4)), kCommands[input_.below(std::size(kCommands))]};
    const Bytes parameters = input_.bytes();
    bytes.push_back(0);
    bytes.push_back(static_cast<unsigned char>(parameters.size()));
    bytes.insert(bytes.end(), parameters.begin(), parameters.end());
    unsigned sum = 0;
    for (std::size_t i = 1; i < bytes.size(); ++i) {
      sum += bytes[i];
    }
    bytes.push_back(static_cast<unsigned char>(sum));
    bytes.push_back(0x7E);
    return bytes;
  }

  fuzz::Input& input_;
  Bytes pending_;
};

void operate(const ac::UHF::T640& driver, fuzz::Input& input) {
  switch (input.below(7)) {
    case 0:
      for (const auto& tag : driver.inventoryCard().second) {
        fuzz::require(tag.epc.size() <= 65535, "an EPC is no longer than a frame");
      }
      break;
    case 1:
      driver.getTransmitPower();
      break;
    case 2:
      driver.setTransmitPower(static_cast<unsigned short>(input.number()));
      break;
    case 3:
      driver.setWorkArea(static_cast<ac::UHF::Region>(input.below(6)));
      break;
    case 4:
      driver.setWorkChannel(input.bytes());
      break;
    case 5:
      driver.getDemodulationSensitivity();
      break;
    default:
      driver.setDemodulationSensitivity({input.byte(), input.byte(), static_cast<unsigned short>(input.number())});
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  second_host::host().reset();
  fuzz::Input input(data, size);
  FuzzedLine line(input);
  memory_line::connect(&line);
  const ac::UHF::T640 driver(memory_line::kPath, std::chrono::milliseconds(100));
  try {
    for (int i = 0; i < 32 && !input.empty(); ++i) {
      operate(driver, input);
    }
  } catch (const ac::ac_exception&) {
    fuzz::require(line.hung_up, "only a failing line makes an operation throw");
  }
  return 0;
}
