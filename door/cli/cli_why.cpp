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
#include "door/cli/cli.h"
#include "door/cli/request.h"

namespace achost {
namespace {

constexpr std::int64_t kUsualSpan = 10 * 60 * 1000;  // ms

struct WhyOptions {
  std::string state;
  std::string what;
  std::string at;
  std::string last;
  bool now = false;
  bool json = false;
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

Json request_of(const WhyOptions& options) {
  Json request = {{"command", "why"}};
  if (is_epc(options.what)) {
    std::string epc = options.what;
    std::ranges::transform(epc, epc.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    request["epc"] = epc;
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

void print_why(const WhyOptions& options) {
  const auto state = state_directory(options.state);
  Json answer;
  if (options.now) {
    answer = ask(state, {{"command", "why_now"}});
  } else {
    if (options.what.empty()) {
      throw Failure(kUsage, "whose card? give a card or an EPC, or --now for what lies in the field");
    }
    answer = StoreOwner(state).ask(request_of(options));
  }
  if (options.json) {
    answer.erase("text");
    print(answer.dump() + "\n");
  } else {
    print(answer.at("text").get<std::string>());
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
  command.add_flag("--now", options->now, "What lies in the field now")->excludes(at);
  command.add_flag("--json", options->json, "One JSON object");
  command.footer(kTimesHelp);
  command.callback([=] {
    options->state = *state;
    print_why(*options);
  });
}

}  // namespace achost
