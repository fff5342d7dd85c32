#include <algorithm>

#include "door/control/control.h"

namespace achost {
namespace {

using Type = ControlField::Type;

bool is_of(const Json& value, Type type) {
  switch (type) {
    case Type::text:
      return value.is_string();
    case Type::integer:
      return value.is_number_integer() && (!value.is_number_unsigned() || value.get<std::uint64_t>() <= INT64_MAX);
    case Type::texts:
      return value.is_array() && std::ranges::all_of(value, [](const Json& one) { return one.is_string(); });
    default:
      return value.is_boolean();
  }
}

const char* name_of(Type type) {
  return type == Type::text      ? "a text"
         : type == Type::integer ? "a whole number"
         : type == Type::texts   ? "a list of texts"
                                 : "true or false";
}

// "a, b and c".
template <typename Things>
std::string names_of(const Things& things) {
  std::string names;
  for (std::size_t i = 0; i < things.size(); ++i) {
    names += (i == 0 ? "" : i + 1 == things.size() ? " and " : ", ") + things[i].name;
  }
  return names;
}

void check_field(const ControlField& field, const Json& request, const std::string& command) {
  const auto found = request.find(field.name);
  if (found == request.end()) {
    if (field.required) {
      throw RequestError("\"" + command + "\" without \"" + field.name + "\", " + name_of(field.type));
    }
  } else if (!is_of(*found, field.type)) {
    throw RequestError("\"" + field.name + "\" of \"" + command + "\" is to be " + name_of(field.type));
  }
}

void check_known(const ControlCommand& command, const std::string& field) {
  if (std::ranges::find(command.fields, field, &ControlField::name) == command.fields.end()) {
    const std::string way_out = command.fields.empty() ? "" : ": there are " + names_of(command.fields);
    throw RequestError("\"" + command.name + "\" has no \"" + field + "\"" + way_out);
  }
}

// It stands in the journal, in a line of its own at a terminal.
void check_behalf(const Json& name) {
  const bool is_text = name.is_string();
  const auto text = is_text ? name.get<std::string>() : "";
  if (text.empty() || text.size() > kLongestBehalf ||
      std::ranges::any_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7f; })) {
    throw RequestError("\"" + std::string(kOnBehalfOf) + "\" is to be a name of 1 to " +
                       std::to_string(kLongestBehalf) + " bytes");
  }
}

}  // namespace

std::string line_of(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"; }

const ControlCommand& ControlTable::check(const Json& request) const {
  if (!request.is_object() || !request.contains("command") || !request["command"].is_string()) {
    throw RequestError("a request is an object with a text \"command\", such as {\"command\": \"status\"}");
  }
  const auto name = request["command"].get<std::string>();
  const auto command = std::ranges::find(commands_, name, &ControlCommand::name);
  if (command == commands_.end()) {
    throw RequestError("unknown command \"" + name + "\": there are " + names_of(commands_));
  }
  for (const ControlField& field : command->fields) {
    check_field(field, request, name);
  }
  for (const auto& [key, value] : request.items()) {
    if (key == kOnBehalfOf) {
      check_behalf(value);
    } else if (key != "command") {
      check_known(*command, key);
    }
  }
  return *command;
}

}  // namespace achost
