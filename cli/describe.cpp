#include "cli/describe.h"

#include <cstdio>
#include <span>
#include <stdexcept>

#include "cli/command_tree.h"
#include "cli/completion.h"
#include "version.h"

namespace cli {

namespace {

// Roff takes a backslash, and a dot or quote that begins a line, for its own.
std::string roff(const std::string& text) {
  std::string result;
  bool begins = true;
  for (const char c : text) {
    if (begins && (c == '.' || c == '\'')) {
      result += "\\&";
    }
    result += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    begins = c == '\n';
  }
  return result;
}

std::string option_as_roff(const CLI::Option& option) {
  const auto names = names_of(option);
  const auto value = value_name(option);
  const auto head = names.empty() ? value : joined(names, ", ") + (value.empty() ? "" : " " + value);
  return ".TP\n\\fB" + roff(head) + "\\fR\n" + roff(meaning_of(option)) + "\n";
}

std::string synopsis(const std::string& name, const std::vector<Command>& commands) {
  std::string text = ".SH SYNOPSIS\n";
  for (const auto& [command, path] : commands) {
    if (!commands_of(*command).empty()) {
      continue;
    }
    text += ".B " + name + (path.empty() ? "" : " " + roff(path)) + "\n[OPTIONS]\n";
    for (const auto* option : options_of(*command)) {
      text += names_of(*option).empty() ? roff(value_name(*option)) + "\n" : "";
    }
    text += ".br\n";
  }
  return text;
}

std::string options(const std::vector<Command>& commands) {
  std::string text = ".SH OPTIONS\n";
  for (const auto& [command, path] : commands) {
    if (!path.empty()) {
      text += ".SS " + roff(path) + "\n" + roff(command->get_description()) + "\n";
    }
    for (const auto* option : options_of(*command)) {
      // The same everywhere, so told once.
      text += path.empty() || !option->check_lname("help") ? option_as_roff(*option) : "";
    }
  }
  return text;
}

std::string section(const std::string& heading, const std::vector<Entry>& entries) {
  std::string text = entries.empty() ? "" : ".SH " + heading + "\n";
  for (const auto& [what, meaning] : entries) {
    text += ".TP\n\\fB" + roff(what) + "\\fR\n" + roff(meaning) + "\n";
  }
  return text;
}

// Lines of a footer stand as they are; the statuses have a section of their own.
std::string notes(const std::string& footer) {
  constexpr const char* kStatuses = "Exit status:";
  const auto lines = [](const std::string& heading, const std::string& text) {
    return text.empty() ? "" : ".SH " + heading + "\n.nf\n" + roff(text) + "\n.fi\n";
  };
  const auto statuses = footer.find(kStatuses);
  if (statuses == std::string::npos) {
    return lines("NOTES", footer);
  }
  // Behind the heading, or in the lines below it, which are indented alike.
  const auto colon = statuses + std::string_view(kStatuses).size();
  const auto end = footer[colon] == '\n' ? colon + 1 : footer.find_first_not_of(' ', colon);
  const auto before = footer.substr(0, footer.find_last_not_of('\n', statuses == 0 ? 0 : statuses - 1) + 1);
  return lines("EXIT STATUS", footer.substr(end)) + lines("NOTES", statuses == 0 ? "" : before);
}

std::string man_page(const CLI::App& app, const Manual& manual, const std::string& number) {
  const auto& name = app.get_name();
  const auto commands = every_command(app);
  return ".TH " + name + " " + number + " \"\" \"uhf " + UHF_VERSION + "\"\n.SH NAME\n" + name + " \\- " +
         roff(app.get_description()) + "\n" + synopsis(name, commands) + options(commands) +
         section("EXAMPLES", manual.examples) + section("FILES", manual.files) +
         section("ENVIRONMENT", manual.environment) + notes(app.get_footer());
}

}  // namespace

std::string describe(const CLI::App& app, const Manual& manual, const std::string& format) {
  if (format.starts_with("man ")) {
    return man_page(app, manual, format.substr(4));
  }
  if (format == "bash") {
    return bash_completion(app, manual.offers);
  }
  if (format == "zsh") {
    return zsh_completion(app, manual.offers);
  }
  if (format == "fish") {
    return fish_completion(app, manual.offers);
  }
  throw std::invalid_argument("no format \"" + format + "\": give \"man SECTION\", bash, zsh or fish");
}

bool described(const CLI::App& app, const Manual& manual, int argc, char** argv) {
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (arguments.size() != 3 || std::string_view(arguments[1]) != "--describe") {
    return false;
  }
  std::fputs(describe(app, manual, arguments[2]).c_str(), stdout);
  return true;
}

}  // namespace cli
