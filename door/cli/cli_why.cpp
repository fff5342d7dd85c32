// Why a card opened the door, or did not.
#include <algorithm>
#include <cctype>
#include <chrono>

#include "cli/command_line.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/base/time_of.h"
#include "door/cli/card_argument.h"
#include "door/cli/card_mask.h"
#include "door/cli/cli.h"
#include "door/cli/request.h"
#include "door/why/recollection.h"

namespace achost {
namespace {

constexpr std::int64_t kUsualSpan = std::int64_t{10} * 60 * 1000;  // ms

struct WhyOptions {
  std::string state;
  std::string what;
  std::string at;
  std::string last;
  std::string recording;
  bool now = false;
  bool json = false;
  bool shows_cards = false;
};

// More digits than a card value has, or letters of a hexadecimal number: an EPC.
bool is_epc(const std::string& text) {
  constexpr std::size_t kLongestCard = 20;
  const bool is_hexadecimal = std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
  const bool has_letters = std::ranges::any_of(text, [](unsigned char c) { return std::isalpha(c) != 0; });
  return is_hexadecimal && text.size() % 2 == 0 && text.size() >= 4 && (has_letters || text.size() > kLongestCard);
}

// "10m": a span of time that ends now.
std::int64_t span_of(const std::string& text) {
  const auto now = std::chrono::system_clock::now();
  const auto ends = std::chrono::floor<std::chrono::milliseconds>(now).time_since_epoch().count();
  try {
    return ends - time_of("-" + text, now);
  } catch (const Failure&) {
    throw Failure(kUsage, "\"" + text + "\" is no span of time: such as 30s, 10m, 2h or 1h30min");
  }
}

std::string epc_of(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

Json request_of(const WhyOptions& options) {
  Json request = {{"command", "why"}};
  if (is_epc(options.what)) {
    request["epc"] = epc_of(options.what);
  } else {
    request["card"] = std::to_string(asked_card(options.what));
  }
  const auto span = options.last.empty() ? kUsualSpan : span_of(options.last);
  const auto now = time_of("now");
  if (options.at.empty()) {
    request["from"] = now - span;
    request["to"] = now + 1000;  // what happens meanwhile, too
  } else {
    const auto at = time_of(options.at);
    request["from"] = at - span;
    request["to"] = std::min(at + span, now + 1000);
    request["at"] = at;
  }
  return request;
}

// A time of day is one of the recording's last day, and "-1m" is before its end.
void ask_for_time(const WhyOptions& options, const why::Recollection& known, why::Question& question) {
  question.from = known.begins;
  question.to = known.ends + 1;
  const auto span = options.last.empty() ? kUsualSpan : span_of(options.last);
  if (options.at.empty()) {
    question.from = options.last.empty() ? question.from : std::max(question.from, question.to - span);
    return;
  }
  const Milliseconds end{std::chrono::milliseconds(known.ends)};
  const auto at = time_of(options.at, std::chrono::system_clock::time_point(end));
  if (at < known.begins - 1000 || at > known.ends + 1000) {
    const auto show = [](std::int64_t time) { return iso_time(Milliseconds(std::chrono::milliseconds(time))); };
    throw Failure(kUsage, options.recording + " knows nothing of " + show(at) + ": it goes from " + show(known.begins) +
                              " to " + show(known.ends));
  }
  question.at = at;
  question.from = std::max(question.from, at - span);
  question.to = std::min(question.to, at + span);
}

Json explain_recording(const WhyOptions& options) {
  why::Question question{.card = {}, .at = {}};
  if (is_epc(options.what)) {
    question.epc = epc_of(options.what);
  } else {
    question.card = asked_card(options.what);
  }
  const auto known = why::recall(options.recording, question);
  ask_for_time(options, known, question);
  const auto explanation = why::explain(question, known.evidence, [&known](std::int64_t user) {
    const auto found = known.names.find(user);
    return found == known.names.end() ? std::string() : found->second;
  });
  const Milliseconds begin{std::chrono::milliseconds(known.begins)};
  const Milliseconds end{std::chrono::milliseconds(known.ends)};
  Json answer = json_of(explanation);
  answer["recording"] = {{"begins", iso_time(begin)}, {"ends", iso_time(end)}, {"unknown", known.unknown}};
  std::string text = why::text_of(explanation, local_time(end, "%Y-%m-%d"));
  for (const auto& unknown : known.unknown) {
    text += (&unknown == known.unknown.data() ? "\nNot known from the recording:\n  " : "  ") + unknown + "\n";
  }
  answer["text"] = text;
  return answer;
}

Json answer_to(const WhyOptions& options) {
  if (options.now) {
    if (!options.recording.empty()) {
      throw Failure(kUsage, "--now asks a host that runs; a recording is asked for a card or an EPC, and --at TIME");
    }
    return ask(state_directory(options.state), {{"command", "why_now"}});
  }
  if (options.what.empty()) {
    throw Failure(kUsage, "whose card? give a card or an EPC" +
                              std::string(options.recording.empty() ? ", or --now for what lies in the field" : ""));
  }
  return options.recording.empty() ? StoreOwner(state_directory(options.state)).ask(request_of(options))
                                   : explain_recording(options);
}

void print_why(const WhyOptions& options) {
  Json answer = answer_to(options);
  if (options.json) {
    answer.erase("text");
    print(answer.dump() + "\n");
  } else {
    print(for_this_output(answer.at("text").get<std::string>(), options.shows_cards));
  }
}

}  // namespace

void add_why(CLI::App& app) {
  CLI::App& command = *app.add_subcommand("why", "Tell why a card opened the door, or did not");
  const auto options = std::make_shared<WhyOptions>();
  const auto state = add_state(command);
  command.add_option("CARD|EPC", options->what, "The card, such as 33 or 0x21, or the tag's EPC in hexadecimal")
      ->type_name("CARD|EPC");
  auto* const at = command.add_option("--at", options->at, "What happened around that time")->type_name("TIME");
  command.add_option("--last", options->last, "So far back, or so far around the time: 30s, 10m, 2h (default: 10m)")
      ->type_name("SPAN");
  command
      .add_option("--recording", options->recording,
                  "Ask a recording (achost recording save) in place of a host; its end is \"now\"")
      ->type_name("FILE");
  command.add_flag("--now", options->now, "What lies in the field now")->excludes(at);
  command.add_flag("--json", options->json, "One JSON object");
  command.add_flag("--show-cards", options->shows_cards,
                   "Show card values in full, also where the output is no terminal");
  command.footer(kTimesHelp);
  command.callback([=] {
    options->state = *state;
    print_why(*options);
  });
}

}  // namespace achost
