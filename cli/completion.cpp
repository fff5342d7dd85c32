#include "cli/completion.h"

#include <algorithm>

#include "cli/command_tree.h"

namespace cli {

namespace {

// Text in single quotes.
std::string quoted(std::string text) {
  for (std::size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4) {
    text.replace(at, 1, "'\\''");
  }
  return "'" + text + "'";
}

// Whether files are what an option takes, or a command that nothing is offered for.
bool is_file(const std::string& value) {
  return value == "FILE" || value == "DIR" || value == "PATH" || value == "DEVICE" || value == "WHAT";
}

// A place on the command line, and what may come next there.
struct Place {
  std::string path;
  const CLI::App* app = nullptr;  // null where only values may follow
  std::vector<std::string> values;
};

// Every command, and behind it the values that lead to others.
std::vector<Place> places_of(const CLI::App& app, const std::vector<Offer>& offers) {
  std::vector<Place> places;
  for (const auto& [command, path] : every_command(app)) {
    places.push_back({.path = path, .app = command, .values = {}});
  }
  for (const auto& offer : offers) {
    if (!offer.option.empty()) {
      continue;
    }
    const auto found = std::ranges::find(places, offer.path, &Place::path);
    if (found == places.end()) {
      places.push_back({.path = offer.path, .app = nullptr, .values = offer.words});
    } else {
      found->values = offer.words;
    }
  }
  return places;
}

std::string words_of(const Place& place) {
  std::vector<std::string> words = place.values;
  if (place.app != nullptr) {
    for (const auto* command : commands_of(*place.app)) {
      words.push_back(command->get_name());
    }
    for (const auto* option : options_of(*place.app)) {
      const auto names = names_of(*option);
      words.insert(words.end(), names.begin(), names.end());
    }
  }
  return joined(words, " ");
}

std::vector<std::string> offered(const std::vector<Offer>& offers, const std::string& path, const CLI::Option& option) {
  const auto found = std::ranges::find_if(offers, [&](const Offer& offer) {
    return !offer.option.empty() && offer.path == path && option.check_name(offer.option);
  });
  return found == offers.end() ? std::vector<std::string>() : found->words;
}

// For each option that takes a value, the line that tells a shell's `case` about it.
std::string cases_of_values(const std::vector<Place>& places, const std::vector<Offer>& offers) {
  std::string cases;
  for (const auto& place : places) {
    for (const auto* option : place.app == nullptr ? std::vector<const CLI::Option*>() : options_of(*place.app)) {
      for (const auto& name : takes_value(*option) ? names_of(*option) : std::vector<std::string>()) {
        const auto words = joined(offered(offers, place.path, *option), " ");
        cases += "    " + quoted(place.path + " " + name) + ") values=" + quoted(words) +
                 (is_file(value_name(*option)) ? " files=1" : "") + " wanted=1 ;;\n";
      }
    }
  }
  return cases;
}

std::string pattern_of(const std::vector<Place>& places) {
  std::string pattern;
  for (const auto& place : places) {
    pattern += place.path.empty() ? "" : (pattern.empty() ? "" : "|") + quoted(place.path);
  }
  return pattern.empty() ? "''" : pattern;
}

// How fish asks whether a command's words have been given.
std::string fish_condition(const Place& place) {
  if (place.path.empty()) {
    return commands_of(*place.app).empty() ? "" : " -n __fish_use_subcommand";
  }
  std::string tests;
  for (std::size_t begin = 0; begin < place.path.size();) {
    const auto end = std::min(place.path.find(' ', begin), place.path.size());
    tests += (tests.empty() ? "" : "; and ") + ("__fish_seen_subcommand_from " + place.path.substr(begin, end - begin));
    begin = end + 1;
  }
  return " -n " + quoted(tests);
}

std::string fish_option(const std::string& begin, const CLI::Option& option, const std::vector<std::string>& values) {
  std::string line = begin;
  for (const auto& letter : option.get_snames()) {
    line += " -s " + letter;
  }
  for (const auto& word : option.get_lnames()) {
    line += " -l " + word;
  }
  if (takes_value(option)) {
    line += is_file(value_name(option)) ? " -r -F" : " -x";
    line += values.empty() ? "" : " -a " + quoted(joined(values, " "));
  }
  return line + " -d " + quoted(option.get_description()) + "\n";
}

}  // namespace

std::string bash_completion(const CLI::App& app, const std::vector<Offer>& offers) {
  const auto& name = app.get_name();
  const auto places = places_of(app, offers);
  std::string cases;
  for (const auto& place : places) {
    cases += "    " + quoted(place.path) + ") words=" + quoted(words_of(place)) + " ;;\n";
  }
  return "# Completion of " + name + " for bash.\n_" + name +
         "() {\n  local path='' word next words='' values='' files='' wanted='' current=\"${COMP_WORDS[COMP_CWORD]}\"\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n    next=\"${path:+$path }$word\"\n"
         "    case $next in\n      " +
         pattern_of(places) + ") path=$next ;;\n    esac\n  done\n  case \"$path ${COMP_WORDS[COMP_CWORD-1]}\" in\n" +
         cases_of_values(places, offers) +
         "  esac\n  if [ -n \"$wanted\" ]; then\n    words=$values\n"
         "    # Files are nothing to offer for what takes none.\n"
         "    [ -n \"$files\" ] || compopt +o default +o bashdefault 2>/dev/null || true\n  else\n  case $path in\n" +
         cases +
         "  esac\n  fi\n  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "  [ -z \"$files\" ] || mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n}\ncomplete -o bashdefault -o "
         "default -F _" +
         name + " " + name + "\n";
}

std::string zsh_completion(const CLI::App& app, const std::vector<Offer>& offers) {
  const auto& name = app.get_name();
  const auto places = places_of(app, offers);
  std::string cases;
  for (const auto& place : places) {
    cases += "    " + quoted(place.path) + ")\n      values=" + quoted(joined(place.values, " ")) + "\n      known=(";
    if (place.app != nullptr) {
      for (const auto* next : commands_of(*place.app)) {
        cases += quoted(next->get_name() + ":" + next->get_description()) + " ";
      }
      for (const auto* option : options_of(*place.app)) {
        for (const auto& option_name : names_of(*option)) {
          cases += quoted(option_name + ":" + option->get_description()) + " ";
        }
      }
    }
    cases += ") ;;\n";
  }
  return "#compdef " + name + "\n# Completion of " + name +
         " for zsh.\nlocal at='' word next values='' files='' wanted=''\nlocal -a known\n"
         "for word in ${words[2,CURRENT-1]}; do\n  next=\"${at:+$at }$word\"\n  case $next in\n    (" +
         pattern_of(places) + ") at=$next ;;\n  esac\ndone\ncase \"$at ${words[CURRENT-1]}\" in\n" +
         cases_of_values(places, offers) +
         "esac\nif [[ -n $files ]]; then\n  _files\n  return\nfi\nif [[ -n $wanted ]]; then\n  compadd -- ${=values}\n"
         "  return\nfi\ncase $at in\n" +
         cases + "esac\n[[ -z $values ]] || compadd -- ${=values}\n_describe 'option or command' known || _files\n";
}

std::string fish_completion(const CLI::App& app, const std::vector<Offer>& offers) {
  std::string script = "# Completion of " + app.get_name() + " for fish.\n";
  for (const auto& place : places_of(app, offers)) {
    const auto begin = "complete -c " + app.get_name() + fish_condition(place);
    if (!place.values.empty()) {
      script.append(begin).append(" -f -a ").append(quoted(joined(place.values, " "))).append("\n");
    }
    if (place.app == nullptr) {
      continue;
    }
    for (const auto* next : commands_of(*place.app)) {
      script.append(begin).append(" -f -a ").append(next->get_name()).append(" -d ");
      script.append(quoted(next->get_description())).append("\n");
    }
    for (const auto* option : options_of(*place.app)) {
      script += names_of(*option).empty() ? "" : fish_option(begin, *option, offered(offers, place.path, *option));
    }
  }
  return script;
}

}  // namespace cli
