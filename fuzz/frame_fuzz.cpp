// The codec: any bytes, and any bytes with a right checksum.
#include "ac/exception.h"
#include "frame.h"
#include "input.h"

using ac::UHF::Frame;

namespace {

using Bytes = std::vector<unsigned char>;

// Lets what is otherwise right get past the gate of the checksum.
void mend_checksum(Bytes& bytes) {
  if (bytes.size() < Frame::MIN_FRAME_SIZE) {
    return;
  }
  unsigned sum = 0;
  for (std::size_t i = 1; i + 2 < bytes.size(); ++i) {
    sum += bytes[i];
  }
  bytes[bytes.size() - 2] = static_cast<unsigned char>(sum);
}

void check(const Frame& frame, std::span<const unsigned char> wire) {
  const Bytes again = frame.toData();
  frame.validateCheckSum();
  Frame::printVector(frame.parameterToData());
  fuzz::require(again.front() == Frame::HEADER && again.back() == Frame::END, "a frame has its marks");
  if (frame.command() == Frame::CommandType::InventoryCard && frame.type() == Frame::Type::Notice) {
    fuzz::require(std::ranges::equal(again, wire), "a notice encodes to what it was decoded from");
  }
}

void decode_all(const Bytes& bytes) {
  for (std::span<const unsigned char> rest = bytes;;) {
    const auto [frame, consumed] = Frame::decode(rest);
    fuzz::require(consumed <= rest.size(), "no more is consumed than there is");
    fuzz::require(frame == nullptr || consumed >= Frame::MIN_FRAME_SIZE, "a frame is consumed whole");
    if (consumed == 0) {
      return;
    }
    if (frame != nullptr) {
      check(*frame, rest.first(consumed));
    }
    rest = rest.subspan(consumed);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const bool mended = input.below(2) == 1;
  Bytes bytes = input.all();
  if (mended) {
    mend_checksum(bytes);
  }
  try {
    decode_all(bytes);
    Frame::fromData(bytes);
  } catch (const ac::ac_exception&) {  // one of the documented outcomes
  } catch (const std::bad_alloc&) {    // a notice of 3 or 4 bytes
  }
  return 0;
}
