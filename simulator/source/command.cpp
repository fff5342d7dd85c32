#include "uhfsim/command.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <utility>

#include "numbers.h"
#include "uhfsim/text.h"

namespace uhfsim {

namespace {

using Words = std::vector<std::string_view>;

[[noreturn]] void fail(const std::string& found, const std::string& expected) {
  throw CommandError(found + "; expected " + expected);
}

bool is_hex_digit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

Bytes parse_epc(std::string_view text) {
  constexpr std::string_view kExpected = "2 to 62 bytes, an even number of them, as hexadecimal digits";
  const bool digits = std::ranges::all_of(text, is_hex_digit);
  if (!digits || text.size() % 4 != 0 || text.empty() || text.size() > 2 * kMaxEpcBytes) {
    const std::string what = digits ? " has " + std::to_string(text.size()) + " digits" : " is not hexadecimal";
    fail("EPC " + quoted(text) + what, std::string(kExpected));
  }
  Bytes epc;
  for (std::size_t i = 0; i < text.size(); i += 2) epc.push_back(*number_from<std::uint8_t>(text.substr(i, 2), 16));
  return epc;
}

double parse_probability(std::string_view text) {
  const auto value = number_from<double>(text, std::chars_format::fixed);
  if (!value || !(*value >= 0.0 && *value <= 1.0)) fail("probability " + quoted(text), "0.0 to 1.0");
  return *value;
}

void set_rssi(Tag& tag, std::string_view text) {
  const auto value = number_from<std::uint8_t>(text, 10);
  if (!value) fail("rssi " + quoted(text), "0 to 255");
  tag.rssi = *value;
}

void set_pc(Tag& tag, std::string_view text) {
  const auto value = number_from<std::uint16_t>(text, 16);
  if (!value || text.size() != 4) fail("pc " + quoted(text), "four hexadecimal digits");
  tag.pc = *value;
}

void set_probability(Tag& tag, std::string_view text) { tag.probability = parse_probability(text); }

void set_least_power(Tag& tag, std::string_view text) {
  const auto value = number_from<std::uint16_t>(text, 10);
  if (!value) fail("power " + quoted(text), "0 to 65535");
  tag.least_power = *value;
}

struct TagOption {
  std::string_view name;
  void (*set)(Tag& tag, std::string_view text);
};

constexpr TagOption kTagOptions[] = {
    {"rssi", set_rssi}, {"pc", set_pc}, {"p", set_probability}, {"power", set_least_power}};

void apply_option(Tag& tag, std::string_view word) {
  const std::size_t equals = word.find('=');
  const auto* option = std::ranges::find(kTagOptions, word.substr(0, equals), &TagOption::name);
  if (equals == word.npos || option == std::end(kTagOptions)) {
    fail("unknown option " + quoted(word), "rssi=N, pc=HHHH, p=PROBABILITY or power=N");
  }
  option->set(tag, word.substr(equals + 1));
}

Command parse_add(const Words& words) {
  Tag tag{.epc = parse_epc(words[1])};
  for (std::size_t i = 2; i < words.size(); ++i) apply_option(tag, words[i]);
  return AddTag{std::move(tag)};
}

Command parse_remove(const Words& words) { return RemoveTag{parse_epc(words[1])}; }

Command parse_clear(const Words&) { return ClearField{}; }

Command parse_fault(const Words& words) {
  const auto names = FaultInjector::names();
  if (std::ranges::find(names, words[1]) == names.end()) {
    fail("unknown fault " + quoted(words[1]), alternatives(names));
  }
  return SetFault{std::string(words[1]), parse_probability(words[2])};
}

Command parse_host(const Words& words) {
  std::string line;
  for (std::size_t i = 1; i < words.size(); ++i) line.append(i == 1 ? "" : " ").append(words[i]);
  return TellHost{std::move(line)};
}

constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

struct Verb {
  std::string_view name;
  CommandHelp help;
  std::size_t least_words, most_words;  // its name included
  Command (*parse)(const Words& words);
};

constexpr Verb kVerbs[] = {
    {"add",
     {"add EPCHEX [rssi=N] [pc=HHHH] [p=PROBABILITY] [power=N]",
      "put a tag into the field, or replace the one with this EPC"},
     2,
     6,
     parse_add},
    {"remove", {"remove EPCHEX", "take a tag out of the field"}, 2, 2, parse_remove},
    {"clear", {"clear", "take every tag out of the field"}, 1, 1, parse_clear},
    {"fault",
     {"fault NAME PROBABILITY", "let replies suffer a fault; probability 0 switches it off"},
     3,
     3,
     parse_fault},
    {"host",
     {"host LINE", "a line for the host that plays the scenario; nothing happens here"},
     2,
     kAnyNumber,
     parse_host},
};

}  // namespace

std::vector<CommandHelp> command_help() {
  std::vector<CommandHelp> help;
  for (const Verb& verb : kVerbs) help.push_back(verb.help);
  return help;
}

std::vector<std::string_view> command_names() {
  std::vector<std::string_view> names;
  for (const Verb& verb : kVerbs) names.push_back(verb.name);
  return names;
}

Command parse_command(const Words& words) {
  const auto* verb = std::ranges::find(kVerbs, words.at(0), &Verb::name);
  if (verb == std::end(kVerbs)) fail("unknown command " + quoted(words[0]), alternatives(command_names()));
  if (words.size() < verb->least_words || words.size() > verb->most_words) {
    const std::string found = words.size() < verb->least_words ? "too few words" : "too many words";
    fail(found + " after " + quoted(words[0]), quoted(verb->help.usage));
  }
  return verb->parse(words);
}

void apply(const Command& command, Field& field, FaultInjector& faults) {
  struct Visitor {
    Field& field;
    FaultInjector& faults;
    void operator()(const AddTag& add) const { field.add(add.tag); }
    void operator()(const RemoveTag& remove) const { field.remove(remove.epc); }
    void operator()(const ClearField&) const { field.clear(); }
    void operator()(const SetFault& fault) const { faults.set(fault.name, fault.probability); }
    void operator()(const TellHost&) const {}
  };
  std::visit(Visitor{field, faults}, command);
}

}  // namespace uhfsim
