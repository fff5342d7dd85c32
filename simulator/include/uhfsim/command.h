#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "uhfsim/faults.h"
#include "uhfsim/field.h"

namespace uhfsim {

/// A line that is no command; what() is one line: what was found; what was expected.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct AddTag {
  Tag tag;
  bool operator==(const AddTag&) const = default;
};

struct RemoveTag {
  Bytes epc;
  bool operator==(const RemoveTag&) const = default;
};

struct ClearField {
  bool operator==(const ClearField&) const = default;
};

struct SetFault {
  std::string name;
  double probability;
  bool operator==(const SetFault&) const = default;
};

/// Something that is not the reader's business: a line for the host beside it.
struct TellHost {
  std::string line;
  bool operator==(const TellHost&) const = default;
};

/// Something that happens to the field or the line, or to the host, by a scenario or by hand.
using Command = std::variant<AddTag, RemoveTag, ClearField, SetFault, TellHost>;

/// How a command is written, and what it does.
struct CommandHelp {
  std::string_view usage;
  std::string_view meaning;
};

/// Every command, in the order in which help shows them.
std::vector<CommandHelp> command_help();

/// The first words of all commands.
std::vector<std::string_view> command_names();

/// Reads one command, already cut into words (at least one):
///   add EPCHEX [rssi=0..255] [pc=HHHH] [p=0.0..1.0] [power=0..65535]
///   remove EPCHEX
///   clear
///   fault NAME PROBABILITY
///   host LINE...
/// An EPC has 2 to 62 bytes, an even number. Throws CommandError.
Command parse_command(const std::vector<std::string_view>& words);

/// Carries a command out; a line for the host is left to the caller. Removing a tag that is not there is no error: in a
/// scenario it may have been taken by hand.
void apply(const Command& command, Field& field, FaultInjector& faults);

}  // namespace uhfsim
