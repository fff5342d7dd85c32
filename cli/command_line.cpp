#include "cli/command_line.h"

#include <algorithm>
#include <optional>
#include <span>

#include "cli/command_tree.h"
#include "cli/paragraph.h"
#include "config/edit_distance.h"

namespace cli {

namespace {

constexpr std::size_t kIndent = 30;
constexpr std::size_t kWidth = 80;  // of the narrowest terminal that is usual

class Help : public CLI::Formatter {
 public:
  std::string make_option(const CLI::Option* option, bool is_positional) const override {
    const auto value = value_name(*option);
    std::string head = "  " + (is_positional ? value : joined(names_of(*option), ","));
    head += is_positional || value.empty() ? "" : " " + value;
    const auto gap = head.size() < kIndent ? std::string(kIndent - head.size(), ' ') : "\n" + std::string(kIndent, ' ');
    return head + gap + wrapped(meaning_of(*option), kIndent, kWidth) + "\n";
  }

  std::string make_option_usage(const CLI::Option* option) const override {
    const auto value = value_name(*option);
    return option->get_required() ? value : "[" + value + "]";
  }
};

// The word that is most like it, unless none is.
std::optional<std::string> nearest(const std::string& word, const std::vector<std::string>& known) {
  const auto distance = [&word](const std::string& other) { return refhost::edit_distance(word, other); };
  const auto found = std::ranges::min_element(known, {}, distance);
  const bool alike = found != known.end() && distance(*found) <= std::max<std::size_t>(1, word.size() / 3);
  return alike ? std::optional(*found) : std::nullopt;
}

std::string unknown(const char* kind, const std::string& path, const std::string& word,
                    const std::vector<std::string>& known) {
  const auto begin = path.empty() ? "" : path + " ";
  const auto text = std::string("there is no ") + kind + " \"";
  if (const auto near = nearest(word, known)) {
    return text + begin + word + "\": did you mean \"" + begin + *near + "\"?";
  }
  return text + begin + word + "\"";
}

// What the parser found, in words that a person has typed or can look up.
std::string found_by_parser(const CLI::ParseError& failure) {
  const std::string text = failure.what();
  return failure.get_name() == "ArgumentMismatch" ? text.substr(0, text.find(':')) + ": a value is missing" : text;
}

std::vector<std::string> command_names(const CLI::App& app) {
  std::vector<std::string> names;
  std::ranges::transform(commands_of(app), std::back_inserter(names),
                         [](const CLI::App* command) { return command->get_name(); });
  return names;
}

// The words of a command line, one after the other.
class Walk {
 public:
  explicit Walk(const CLI::App& app) : app_(&app) {}

  // The first thing that is wrong; nothing when no word is unknown.
  std::optional<std::string> error(std::span<const char* const> words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::string word = words[i];
      if (word == "--") {
        return std::nullopt;
      }
      if (word.starts_with("--")) {
        const auto* option = find(word.substr(0, word.find('=')));
        if (option == nullptr) {
          return unknown("option", "", word.substr(0, word.find('=')), option_names());
        }
        i += takes_value(*option) && word.find('=') == std::string::npos ? 1 : 0;
      } else if (!word.starts_with("-") && !commands_of(*app_).empty() && !enter(word)) {
        return unknown("command", path_, word, command_names(*app_));
      }
    }
    if (commands_of(*app_).empty() || app_->get_require_subcommand_min() == 0) {
      return std::nullopt;
    }
    return "give a command" + (path_.empty() ? "" : " of \"" + path_ + "\"") + ": " +
           joined(command_names(*app_), ", ");
  }

  const std::string& path() const { return path_; }

 private:
  bool enter(const std::string& word) {
    const auto commands = commands_of(*app_);
    const auto found = std::ranges::find(commands, word, [](const CLI::App* command) { return command->get_name(); });
    if (found == commands.end()) {
      return false;
    }
    path_ += (path_.empty() ? "" : " ") + word;
    app_ = *found;
    return true;
  }

  // Those of this command, and of the ones before it where they may stand here too.
  std::vector<const CLI::Option*> options() const {
    std::vector<const CLI::Option*> all;
    for (const auto* app = app_; app != nullptr; app = app->get_fallthrough() ? app->get_parent() : nullptr) {
      const auto own = options_of(*app);
      all.insert(all.end(), own.begin(), own.end());
    }
    return all;
  }

  const CLI::Option* find(const std::string& name) const {
    const auto all = options();
    const auto found =
        std::ranges::find_if(all, [&](const auto* option) { return option->check_lname(name.substr(2)); });
    return found == all.end() ? nullptr : *found;
  }

  std::vector<std::string> option_names() const {
    std::vector<std::string> all;
    for (const auto* option : options()) {
      const auto names = names_of(*option);
      all.insert(all.end(), names.begin(), names.end());
    }
    return all;
  }

  const CLI::App* app_;
  std::string path_;
};

}  // namespace

void set_up_help(CLI::App& app) { app.formatter(std::make_shared<Help>()); }

std::string usage_error(const CLI::App& app, const CLI::ParseError& failure, int argc, const char* const* argv) {
  Walk walk(app);
  const auto words = std::span(argv, static_cast<std::size_t>(argc)).subspan(1);
  const auto error = walk.error(words);
  return error.value_or(found_by_parser(failure)) + "; see " + app.get_name() +
         (walk.path().empty() ? "" : " " + walk.path()) + " --help";
}

}  // namespace cli
