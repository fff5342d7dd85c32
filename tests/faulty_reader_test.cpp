// The built uhf.so on a reader whose line suffers one fault after the other, on a real pseudo-terminal: it announces no
// card that is not there, none of its threads ends, and it announces again once the faults are over.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "loaded_plugin.h"
#include "second_host.h"
#include "uhfsim/simulated_reader.h"

using second_host::entry;
using second_host::Fields;
using second_host::host;
using std::chrono::milliseconds;

namespace {

constexpr int kRounds = 3;
constexpr milliseconds kOfEachFault(150);

std::int64_t announced(const second_host::SentMessage& message) {
  for (const auto& [name, value] : message.fields) {
    if (name == "value") {
      return std::get<std::int64_t>(value);
    }
  }
  return -1;
}

void prepare(const std::string& port) {
  for (const auto& [key, value] : {std::pair{"trig_gpio", 5},
                                   {"watchdog_timeout", 20},
                                   {"serial_port_timeout", 100},
                                   {"transmit_power", 2600},
                                   {"identification_bits", 32},
                                   {"probe_interval", 2},
                                   {"read_interval", 20},
                                   {"read_interval_diff_tags", 0}}) {
    host().set(key, value);
  }
  host().set("serial_port_path", port);
  host().set("region", "EUROPE");
  host().set("operation_mode", "continuous");
  host().answer_with([](const auto&) { return Fields{{"value", 0}}; });
}

}  // namespace

TEST(FaultyReader, AnnouncesNoCardThatIsNotThereAndReadsAgainAfterwards) {
  static uhfsim::SimulatedReader reader({.seed = 7, .baud = 0});
  std::set<std::int64_t> cards;
  for (unsigned char number = 1; number <= 3; ++number) {
    reader.field().add({.epc = {0xE2, 0x7E, 0x11, number}});  // with the byte that ends a frame inside
    cards.insert(0xE27E1100 + number);
  }
  prepare(reader.path());
  ac::Plugin record;
  std::string error;
  ASSERT_TRUE(entry<second_host::InitEntry>("init")(&record, &error)) << error;
  std::thread(entry<second_host::RunEntry>("run")).detach();

  for (int round = 0; round < kRounds; ++round) {
    for (const auto name : uhfsim::FaultInjector::names()) {
      if (name != "hang-up") {  // which ends run()
        reader.faults().set(name, 0.7);
        std::this_thread::sleep_for(kOfEachFault);
        reader.faults().clear();
      }
    }
  }
  const auto before = host().messages("identifier_new_card").size();
  const auto kept = host().keep_alives("uhf");
  EXPECT_TRUE(host().wait_until([&] { return host().messages("identifier_new_card").size() > before + 10; }));
  EXPECT_GT(host().keep_alives("uhf"), kept);
  for (const auto& message : host().messages("identifier_new_card")) {
    EXPECT_TRUE(cards.contains(announced(message))) << announced(message);
  }
  EXPECT_GT(before, 10U) << "nothing was read between the faults";
  const auto texts = host().debug_texts();
  EXPECT_TRUE(std::ranges::any_of(texts, [](const auto& text) { return text.starts_with("Error parsing data: "); }));
}
