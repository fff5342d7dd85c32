#include "cli/command_tree.h"

#include <algorithm>
#include <cctype>

namespace cli {

namespace {

void collect(const CLI::App& app, const std::string& path, std::vector<Command>& all) {
  all.push_back({&app, path});
  for (const auto* command : commands_of(app)) {
    collect(*command, path.empty() ? command->get_name() : path + " " + command->get_name(), all);
  }
}

// Names of types, as the library gives them to what has no name of its own.
bool is_of_library(const std::string& name) {
  return name == "TEXT" || name == "INT" || name == "UINT" || name == "FLOAT" || name == "BOOLEAN";
}

// Where the ranges of an option's checks begin, behind a colon. A name is in capitals, and may have colons of its own.
std::size_t end_of_name(const std::string& type) {
  for (auto colon = type.find(':'); colon != std::string::npos; colon = type.find(':', colon + 1)) {
    if (colon + 1 == type.size() || std::isupper(static_cast<unsigned char>(type[colon + 1])) == 0) {
      return colon;
    }
  }
  return std::string::npos;
}

std::string in_capitals(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  std::ranges::replace(text, '-', '_');
  return text;
}

// "with --simulate", of options that are needed or in the way.
void add_others(std::vector<std::string>& notes, const std::string& word, const std::set<CLI::Option*>& others) {
  for (const auto* other : others) {
    notes.push_back(word + " " + other->get_name());
  }
}

}  // namespace

std::vector<const CLI::App*> commands_of(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_name().empty(); });
}

std::vector<Command> every_command(const CLI::App& app) {
  std::vector<Command> all;
  collect(app, "", all);
  return all;
}

std::vector<const CLI::Option*> options_of(const CLI::App& app) { return app.get_options(nullptr); }

bool takes_value(const CLI::Option& option) { return option.get_expected_max() > 0 && option.get_type_size_max() > 0; }

std::vector<std::string> names_of(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const auto& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  for (const auto& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

std::string value_name(const CLI::Option& option) {
  if (!takes_value(option)) {
    return "";
  }
  auto type = option.get_type_name().substr(0, end_of_name(option.get_type_name()));
  if (!is_of_library(type)) {
    return type;
  }
  return in_capitals(option.get_lnames().empty() ? option.get_name(true) : option.get_lnames().front());
}

std::string meaning_of(const CLI::Option& option) {
  std::vector<std::string> notes;
  const auto type = takes_value(option) ? option.get_type_name() : "";
  if (const auto colon = end_of_name(type); colon != std::string::npos) {
    notes.push_back(type.substr(colon + 1));
  }
  if (!option.get_default_str().empty()) {
    notes.push_back("default: " + option.get_default_str());
  }
  if (!option.get_envname().empty()) {
    notes.push_back("default: $" + option.get_envname());
  }
  add_others(notes, "with", option.get_needs());
  add_others(notes, "not with", option.get_excludes());
  if (notes.empty()) {
    return option.get_description();
  }
  // Behind what the description has in brackets already.
  auto text = option.get_description();
  const bool bracket = text.ends_with(")");
  text = bracket ? text.substr(0, text.size() - 1) + "; " : text + (text.empty() ? "(" : " (");
  return text + joined(notes, "; ") + ")";
}

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const auto& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

}  // namespace cli
