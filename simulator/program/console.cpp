#include "console.h"

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "cli/paragraph.h"
#include "uhfsim/command.h"
#include "uhfsim/text.h"

namespace uhfsim {

namespace {

constexpr CommandHelp kOwnCommands[] = {
    {"list", "show the tags in the field"},
    {"status", "show what the reader has been told and what went over the line"},
    {"help", "show the commands"},
    {"quit", "end the program"},
};

Bytes big_endian(std::uint16_t word) { return {static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>(word)}; }

}  // namespace

std::string Console::help() {
  std::vector<CommandHelp> lines = command_help();
  lines.insert(lines.end(), std::begin(kOwnCommands), std::end(kOwnCommands));
  const std::size_t commands = lines.size();
  for (const auto& [name, meaning] : FaultInjector::help()) lines.push_back({name, meaning});
  constexpr std::size_t kIndent = 20;
  constexpr std::size_t kWidth = 80;
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    text += i == commands ? "\nFaults of the line:\n" : "";
    const std::string usage = "  " + std::string(lines[i].usage);
    text += usage;
    // What is too long for the column stands above its meaning.
    text += usage.size() + 2 > kIndent ? "\n" + std::string(kIndent, ' ') : std::string(kIndent - usage.size(), ' ');
    text += cli::wrapped(std::string(lines[i].meaning), kIndent, kWidth) + "\n";
  }
  return text;
}

bool Console::feed(std::string_view text) {
  rest_ += text;
  std::size_t begin = 0;
  for (std::size_t end; (end = rest_.find('\n', begin)) != rest_.npos; begin = end + 1) {
    if (!execute(std::string_view(rest_).substr(begin, end - begin))) return false;
  }
  rest_.erase(0, begin);
  return true;
}

bool Console::finish() { return execute(std::exchange(rest_, {})); }

bool Console::execute(std::string_view line) {
  const auto words = words_of(line);
  if (words.empty()) return true;
  if (words.size() == 1) {
    if (words[0] == "quit") return false;
    if (words[0] == "list") return list(), true;
    if (words[0] == "status") return status(), true;
    if (words[0] == "help") return answers_ << help() << std::flush, true;
  }
  try {
    apply(parse_command(words), reader_.field(), reader_.faults());
  } catch (const CommandError& error) {
    errors_ << "uhf-sim: " << error.what() << "; \"help\" shows all commands" << std::endl;
  }
  return true;
}

// Each line can be given back behind "add".
void Console::list() {
  for (const Tag& tag : reader_.field().snapshot()) {
    answers_ << hex_of(tag.epc) << " rssi=" << static_cast<int>(tag.rssi) << " pc=" << hex_of(big_endian(tag.pc))
             << " p=" << tag.probability;
    if (tag.least_power != 0) answers_ << " power=" << tag.least_power;
    answers_ << '\n';
  }
  answers_ << std::flush;
}

void Console::status() {
  const State state = reader_.state();
  const Counters counters = reader_.counters();
  answers_ << "power " << state.power << "\nregion " << static_cast<int>(state.region) << "\nchannels";
  for (const std::uint8_t channel : state.channels) answers_ << ' ' << static_cast<int>(channel);
  answers_ << "\nsensitivity m=" << static_cast<int>(state.sensitivity.m)
           << " i=" << static_cast<int>(state.sensitivity.i) << " threshold=" << state.sensitivity.threshold;
  answers_ << "\ncommands " << counters.commands << "\nnotices " << counters.notices << "\nskipped " << counters.skipped
           << "\nbytes_in " << counters.bytes_in << "\nbytes_out " << counters.bytes_out << "\noverruns "
           << counters.overruns << std::endl;
}

}  // namespace uhfsim
