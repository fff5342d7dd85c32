// What a frame costs: the codec beside hand-written code, and the driver on replies of two lengths.
#include <benchmark/benchmark.h>

#include <typeinfo>

#include "frame_catalogue.h"
#include "notice.h"
#include "reply_line.h"
#include "t640.h"

using ac::UHF::Frame;
using ac::UHF::InventoryCardNotice;
using Bytes = std::vector<unsigned char>;

namespace {

struct Tag {
  unsigned char rssi;
  unsigned short pc;
  Bytes epc;
  unsigned short crc;
};

// The least that anybody can do: one pass over contiguous bytes, and one vector.
bool decode_by_hand(const Bytes& data, Tag& tag) {
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

void decode_by_hand(benchmark::State& state) {
  const auto bytes = notice(1);
  for (auto _ : state) {
    Tag tag{};
    benchmark::DoNotOptimize(decode_by_hand(bytes, tag));
    benchmark::DoNotOptimize(tag);
  }
}
BENCHMARK(decode_by_hand)->Name("decode by hand, one vector");

// Bytes to an owned frame with a checked checksum, and that to a tag's record.
void decode(benchmark::State& state) {
  const auto bytes = notice(1);
  for (auto _ : state) {
    const auto owner = Frame::fromData(bytes).first;
    auto* const frame = owner.get();
    if (!frame->validateCheckSum() || typeid(*frame) != typeid(InventoryCardNotice)) {
      state.SkipWithError("the notice is not as it should be");
      break;
    }
    auto* const notice = static_cast<InventoryCardNotice*>(frame);
    const ac::UHF::InventoryCardInfo tag{notice->rssi(), notice->pc(), std::move(*notice).epc(), notice->crc()};
    benchmark::DoNotOptimize(&tag);
    benchmark::ClobberMemory();
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
  set_reply(answer_of(static_cast<int>(state.range(0))));
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
