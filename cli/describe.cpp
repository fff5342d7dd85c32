#include "cli/describe.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <span>
#include <stdexcept>
#include <vector>

#include "version.h"

namespace cli {

namespace {

// A command with the words that lead to it: none for the program itself.
struct Command {
  const CLI::App* app;
  std::string path;
};

std::vector<const CLI::App*> commands_of(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_name().empty(); });
}

void collect(const CLI::App& app, const std::string& path, std::vector<Command>& all) {
  all.push_back({&app, path});
  for (const auto* command : commands_of(app)) {
    collect(*command, path.empty() ? command->get_name() : path + " " + command->get_name(), all);
  }
}

std::vector<Command> every_command(const CLI::App& app) {
  std::vector<Command> all;
  collect(app, "", all);
  return all;
}

std::vector<const CLI::Option*> options_of(const CLI::App& app) { return app.get_options(nullptr); }

bool takes_value(const CLI::Option& option) { return option.get_expected_max() > 0 && option.get_type_size_max() > 0; }

// "--port", "-h".
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

// What may stand after these words of the command line: commands and options.
std::vector<std::string> words_of(const CLI::App& app) {
  std::vector<std::string> words;
  for (const auto* command : commands_of(app)) {
    words.push_back(command->get_name());
  }
  for (const auto* option : options_of(app)) {
    const auto names = names_of(*option);
    words.insert(words.end(), names.begin(), names.end());
  }
  return words;
}

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const auto& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

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
  auto names = names_of(option);
  std::string head = names.empty() ? option.get_name(true) : joined(names, ", ");
  if (!names.empty() && takes_value(option) && !option.get_type_name().empty()) {
    head += " " + option.get_type_name();
  }
  const auto fallback = option.get_default_str();
  return ".TP\n\\fB" + roff(head) + "\\fR\n" + roff(option.get_description()) +
         (fallback.empty() ? "" : roff(" (default: " + fallback + ")")) + "\n";
}

std::string man_page(const CLI::App& app, const std::string& section) {
  const auto& name = app.get_name();
  std::string page = ".TH " + name + " " + section + " \"\" \"uhf " + UHF_VERSION + "\"\n.SH NAME\n" + name + " \\- " +
                     roff(app.get_description()) + "\n.SH SYNOPSIS\n";
  const auto commands = every_command(app);
  for (const auto& [command, path] : commands) {
    if (commands_of(*command).empty()) {
      page += ".B " + name + (path.empty() ? "" : " " + roff(path)) + "\n[OPTIONS]\n";
      for (const auto* option : options_of(*command)) {
        page += names_of(*option).empty() ? roff(option->get_name(true)) + "\n" : "";
      }
      page += ".br\n";
    }
  }
  page += ".SH OPTIONS\n";
  for (const auto& [command, path] : commands) {
    if (!path.empty()) {
      page += ".SS " + roff(path) + "\n" + roff(command->get_description()) + "\n";
    }
    for (const auto* option : options_of(*command)) {
      // The same everywhere, so told once.
      page += path.empty() || !option->check_lname("help") ? option_as_roff(*option) : "";
    }
  }
  // Lines of a footer stand as they are.
  return page + ".SH NOTES\n.nf\n" + roff(app.get_footer()) + "\n.fi\n";
}

std::string bash_completion(const CLI::App& app) {
  const auto& name = app.get_name();
  std::string cases;
  for (const auto& [command, path] : every_command(app)) {
    cases += "    \"" + path + "\") words='" + joined(words_of(*command), " ") + "' ;;\n";
  }
  std::string paths;
  for (const auto& [command, path] : every_command(app)) {
    paths += path.empty() ? "" : "|\"" + path + "\"";
  }
  return "# Completion of " + name + " for bash.\n_" + name + "() {\n  local path='' word next words=''\n" +
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n    next=\"${path:+$path }$word\"\n" +
         "    case $next in\n      " + (paths.empty() ? "''" : paths.substr(1)) +
         ") path=$next ;;\n    esac\n  done\n" + "  case $path in\n" + cases + "  esac\n" +
         "  COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n}\ncomplete -o default -F _" + name +
         " " + name + "\n";
}

// Text in single quotes.
std::string quoted(std::string text) {
  for (std::size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4) {
    text.replace(at, 1, "'\\''");
  }
  return "'" + text + "'";
}

std::string zsh_completion(const CLI::App& app) {
  const auto& name = app.get_name();
  std::string cases;
  for (const auto& [command, path] : every_command(app)) {
    cases += "    " + quoted(path) + ")\n      known=(";
    for (const auto* next : commands_of(*command)) {
      cases += quoted(next->get_name() + ":" + next->get_description()) + " ";
    }
    for (const auto* option : options_of(*command)) {
      for (const auto& option_name : names_of(*option)) {
        cases += quoted(option_name + ":" + option->get_description()) + " ";
      }
    }
    cases += ") ;;\n";
  }
  std::string paths;
  for (const auto& [command, path] : every_command(app)) {
    paths += path.empty() ? "" : "|" + quoted(path);
  }
  return "#compdef " + name + "\n# Completion of " + name + " for zsh.\nlocal at='' word next\nlocal -a known\n" +
         "for word in ${words[2,CURRENT-1]}; do\n  next=\"${at:+$at }$word\"\n  case $next in\n    (" +
         (paths.empty() ? "''" : paths.substr(1)) + ") at=$next ;;\n  esac\ndone\ncase $at in\n" + cases +
         "esac\n_describe 'option or command' known || _files\n";
}

std::string fish_completion(const CLI::App& app) {
  const auto& name = app.get_name();
  std::string script = "# Completion of " + name + " for fish.\n";
  for (const auto& [command, path] : every_command(app)) {
    std::string condition;
    if (path.empty()) {
      condition = commands_of(*command).empty() ? "" : " -n __fish_use_subcommand";
    } else {
      // Each word of the path has been given.
      std::string tests;
      for (std::size_t begin = 0; begin < path.size();) {
        const auto end = std::min(path.find(' ', begin), path.size());
        tests += (tests.empty() ? "" : "; and ") + ("__fish_seen_subcommand_from " + path.substr(begin, end - begin));
        begin = end + 1;
      }
      condition = " -n " + quoted(tests);
    }
    const auto begin = "complete -c " + name + condition;
    for (const auto* next : commands_of(*command)) {
      script.append(begin).append(" -a ").append(next->get_name()).append(" -d ");
      script.append(quoted(next->get_description())).append("\n");
    }
    for (const auto* option : options_of(*command)) {
      if (names_of(*option).empty()) {
        continue;
      }
      script += begin;
      for (const auto& letter : option->get_snames()) {
        script += " -s " + letter;
      }
      for (const auto& word : option->get_lnames()) {
        script += " -l " + word;
      }
      script += (takes_value(*option) ? " -r" : "") + (" -d " + quoted(option->get_description())) + "\n";
    }
  }
  return script;
}

}  // namespace

std::string describe(const CLI::App& app, const std::string& format) {
  if (format.starts_with("man ")) {
    return man_page(app, format.substr(4));
  }
  if (format == "bash") {
    return bash_completion(app);
  }
  if (format == "zsh") {
    return zsh_completion(app);
  }
  if (format == "fish") {
    return fish_completion(app);
  }
  throw std::invalid_argument("no format \"" + format + "\": give \"man SECTION\", bash, zsh or fish");
}

bool described(const CLI::App& app, int argc, char** argv) {
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (arguments.size() != 3 || std::string_view(arguments[1]) != "--describe") {
    return false;
  }
  std::fputs(describe(app, arguments[2]).c_str(), stdout);
  return true;
}

}  // namespace cli
