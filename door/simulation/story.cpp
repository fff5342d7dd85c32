#include "door/simulation/story.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <utility>

#include "refhost/log.h"
#include "refhost/settings_schema.h"
#include "uhfsim/command.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using uhfsim::CommandError;
using uhfsim::quoted;
using Words = std::vector<std::string_view>;
using Action = std::function<void(StoryHost& host)>;

// The commands of a story wait for nothing and follow nothing.
class NoStream : public ControlStream {
 public:
  bool send(const Json& /*line*/) override { return false; }
  bool send_lines(const std::string& /*lines*/) override { return false; }
  bool send_bytes(std::string_view /*bytes*/) override { return false; }
  std::string receive_bytes() override { return ""; }
  bool is_over() override { return true; }
  int hand_over() override { throw std::logic_error("a story has no connection"); }
};

Action request(Json json) {
  return [json = std::move(json)](StoryHost& host) {
    NoStream stream;
    host.commands.check(json).run(json, stream);
  };
}

template <typename Number>
Number number_of(std::string_view word) {
  Number number = 0;
  const auto result = std::from_chars(word.data(), word.data() + word.size(), number);
  if (result.ec != std::errc() || result.ptr != word.data() + word.size()) {
    throw CommandError(quoted(word) + "; expected a whole number");
  }
  return number;
}

Assignment assignment_of(const Words& words, std::size_t at) {
  try {
    return checked_assignment(std::string(words[at]), std::string(words[at + 1]));
  } catch (const refhost::SettingError& failure) {
    throw CommandError(failure.what());
  }
}

Action say(const Words& words) {
  std::string text;
  for (std::size_t i = 1; i < words.size(); ++i) {
    text += (i == 1 ? "" : " ") + std::string(words[i]);
  }
  return [text](StoryHost& host) { host.say(text); };
}

// Done before the story begins.
Action given(const Words& /*words*/) {
  return [](StoryHost&) {};
}

Action card(const Words& words) {
  const auto value = number_of<std::uint64_t>(words[1]);
  const auto user = words[2] == "nobody" ? std::nullopt : std::optional(number_of<std::int64_t>(words[2]));
  return [value, user](StoryHost& host) {
    host.users.remove_card(value);
    if (user.has_value()) {
      host.users.bind(value, *user, "");
    }
  };
}

Action config_set(const Words& words) {
  const auto [section, key, value] = assignment_of(words, 2);
  return request({{"command", "config_set"}, {"section", section}, {"key", key}, {"value", value}});
}

Action gpio_set(const Words& words) {
  return request({{"command", "gpio_set"},
                  {"line", number_of<std::int64_t>(words[2])},
                  {"value", number_of<std::int64_t>(words[3])}});
}

Action rex(const Words& /*words*/) { return request({{"command", "rex"}}); }

Action enroll(const Words& words) {
  return request({{"command", "enroll"}, {"user", number_of<std::int64_t>(words[1])}});
}

struct Verb {
  std::string_view name;  // one or two words
  std::string_view usage;
  std::size_t least_words, most_words;
  Action (*make)(const Words& words);
};

constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

constexpr Verb kVerbs[] = {{"say", "say TEXT", 2, kAnyNumber, say},
                           {"given", "given [SECTION.]KEY VALUE", 3, 3, given},
                           {"card", "card CARD USER|nobody", 3, 3, card},
                           {"config set", "config set [SECTION.]KEY VALUE", 4, 4, config_set},
                           {"gpio set", "gpio set LINE VALUE", 4, 4, gpio_set},
                           {"rex", "rex", 1, 1, rex},
                           {"enroll", "enroll USER", 2, 2, enroll}};

bool begins_with(const Words& words, std::string_view name) {
  const auto parts = uhfsim::words_of(name);
  return words.size() >= parts.size() && std::equal(parts.begin(), parts.end(), words.begin());
}

Action action_of(const Words& words) {
  const auto* const verb = std::ranges::find_if(kVerbs, [&](const Verb& v) { return begins_with(words, v.name); });
  if (verb == std::end(kVerbs)) {
    Words names;
    std::ranges::transform(kVerbs, std::back_inserter(names), &Verb::name);
    throw CommandError("unknown word " + quoted(words.at(0)) + " after \"host\"; expected " +
                       uhfsim::alternatives(names));
  }
  if (words.size() < verb->least_words || words.size() > verb->most_words) {
    throw CommandError(std::string(words.size() < verb->least_words ? "too few" : "too many") + " words after " +
                       quoted(verb->name) + "; expected " + quoted(verb->usage));
  }
  return verb->make(words);
}

}  // namespace

void Story::check(const std::string& line) {
  const Words words = uhfsim::words_of(line);
  action_of(words);
  if (words[0] == "given") {
    givens_.push_back(assignment_of(words, 1));
  }
}

void Story::tell(const std::string& line) {
  {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
  }
  told_.notify_one();
}

void Story::begin(StoryHost host) {
  std::thread([this, host = std::move(host)]() mutable { run(host); }).detach();
}

void Story::run(StoryHost& host) {
  for (;;) {
    std::unique_lock lock(mutex_);
    told_.wait(lock, [this] { return !lines_.empty(); });
    const std::string line = std::move(lines_.front());
    lines_.pop_front();
    lock.unlock();
    try {
      action_of(uhfsim::words_of(line))(host);
    } catch (const std::exception& failure) {
      refhost::log::warning("scenario: " + line + ": " + failure.what());
    }
  }
}

}  // namespace achost
