// What a frame costs: the codec beside hand-written code, and the driver on replies of two lengths.
#include <benchmark/benchmark.h>

#include "frame_catalogue.h"
#include "reply_line.h"
#include "t640.h"

using ac::UHF::Frame;
using ac::UHF::InventoryCardNotice;
using Bytes = std::vector<unsigned char>;

namespace {

// A valid notice of 24 bytes: an EPC of 12.
Bytes makeNotice() {
  Bytes frame{0x7F, 0x02, 0x22, 0x00, 0x11, 0xC8, 0x30, 0x00, 0xE2, 0x00, 0x68,
              0x0A, 0x00, 0x01, 0x02, 0x03, 0x12, 0x34, 0x56, 0x78, 0x95, 0x1D};
  unsigned int sum = 0;
  for (std::size_t i = 1; i < frame.size(); ++i) {
    sum += frame[i];
  }
  frame.push_back(static_cast<unsigned char>(sum));
  frame.push_back(0x7E);
  return frame;
}

struct Tag {
  unsigned char rssi;
  unsigned short pc;
  Bytes epc;
  unsigned short crc;
};

// The least that anybody can do: one pass over contiguous bytes, and one vector.
bool decodeByHand(const Bytes& data, Tag& tag) {
  if (data.size() < 12 || data[0] != 0x7F || data[1] != 0x02 || data[2] != 0x22) {
    return false;
  }
  const std::size_t length = static_cast<std::size_t>(data[3]) << 8 | data[4];
  if (length < 5 || length + 7 > data.size() || data[6 + length] != 0x7E) {
    return false;
  }
  unsigned int sum = 0;
  for (std::size_t i = 1; i < 5 + length; ++i) {
    sum += data[i];
  }
  if (static_cast<unsigned char>(sum) != data[5 + length]) {
    return false;
  }
  tag.rssi = data[5];
  tag.pc = static_cast<unsigned short>(data[6] << 8 | data[7]);
  tag.epc = Bytes(data.begin() + 8, data.begin() + 3 + static_cast<std::ptrdiff_t>(length));
  tag.crc = static_cast<unsigned short>(data[3 + length] << 8 | data[4 + length]);
  return true;
}

void decodeByHand(benchmark::State& state) {
  const auto notice = makeNotice();
  for (auto _ : state) {
    Tag tag{};
    benchmark::DoNotOptimize(decodeByHand(notice, tag));
    benchmark::DoNotOptimize(tag);
  }
}
BENCHMARK(decodeByHand)->Name("decode by hand, one vector");

// Bytes to an owned frame with a checked checksum.
void decode(benchmark::State& state) {
  const auto notice = makeNotice();
  for (auto _ : state) {
    const auto frame = Frame::fromData(notice).first;
    benchmark::DoNotOptimize(frame->validateCheckSum());
  }
}
BENCHMARK(decode)->Name("decode and check a notice");

void encode(benchmark::State& state) {
  const ac::UHF::InventoryCardFrame command;
  for (auto _ : state) {
    benchmark::DoNotOptimize(command.toData());
  }
}
BENCHMARK(encode)->Name("encode an inventory command");

// A whole inventory of the driver on a line in memory, per notice of the reply.
void inventory(benchmark::State& state) {
  const auto notice = makeNotice();
  Bytes reply;
  for (int i = 0; i < state.range(0); ++i) {
    reply.insert(reply.end(), notice.begin(), notice.end());
  }
  setReply(reply);
  const ac::UHF::T640 driver("/dev/null", std::chrono::milliseconds(0));
  for (auto _ : state) {
    const auto [succeeded, tags] = driver.inventoryCard();
    if (!succeeded || tags.size() != static_cast<std::size_t>(state.range(0) + 1) / 2) {
      state.SkipWithError("the inventory is not as it should be");
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(inventory)->Name("inventory of notices")->Arg(10)->Arg(1000);

}  // namespace
