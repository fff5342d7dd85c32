// What a running host is asked for.
#include <csignal>
#include <cstdio>

#include "cli/command_line.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/cli/event_line.h"
#include "door/cli/request.h"
#include "door/cli/status_table.h"
#include "door/services/user.h"

namespace achost {
namespace {

// The greatest that --after takes.
constexpr std::int64_t kMostNumber = 1'000'000'000'000'000;

std::string dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"; }

void add_status(CLI::App& app) {
  CLI::App& command = *app.add_subcommand("status", "Show how the host stands: threads, queues, reader");
  const auto state = add_state(command);
  const auto json = std::make_shared<bool>();
  command.add_flag("--json", *json, "One JSON object");
  command.callback([=] {
    const Json status = ask(state_directory(*state), {{"command", "status"}});
    print(*json ? dump(status) : status_table(status));
  });
}

void add_events(CLI::App& app) {
  CLI::App& command = *app.add_subcommand("events", "Follow the messages on the host's bus until Ctrl-C");
  const auto state = add_state(command);
  const auto json = std::make_shared<bool>();
  const auto types = std::make_shared<std::vector<std::string>>();
  const auto after = std::make_shared<std::optional<std::int64_t>>();
  const auto run = std::make_shared<std::string>();
  command.add_flag("--json", *json, "One JSON object a line");
  command.add_option("--type", *types, "Only messages of this type; may be repeated")
      ->type_name("TYPE")
      ->take_all()
      ->expected(1);
  auto* const number = command
                           .add_option("--after", *after,
                                       "Begin with those kept that have a greater number; with --json the first line "
                                       "says of which run the numbers are")
                           ->type_name("NUMBER")
                           ->check(cli::range<std::int64_t>(0, kMostNumber));
  command.add_option("--run", *run, "The run of the host that gave the number: another one is told")
      ->type_name("RUN")
      ->needs(number);
  command.callback([=] {
    // Ctrl-C is the way out, so it is no failure.
    std::signal(SIGINT, [](int) { std::_Exit(0); });
    std::signal(SIGTERM, [](int) { std::_Exit(0); });
    Json request = {{"command", "events"}, {"types", CLI::detail::join(*types, ",")}};
    if (after->has_value()) {
      request["after"] = **after;
    }
    if (!run->empty()) {
      request["run"] = *run;
    }
    follow(state_directory(*state), request, [json, goes_on = after->has_value()](const Json& line) {
      const bool is_wanted = goes_on || !line.contains("following");
      return print(!*json ? event_line(line) : is_wanted ? dump(line) : "");
    });
  });
}

void add_rex(CLI::App& app) {
  CLI::App& command = *app.add_subcommand("rex", "Press the exit button, and let it go");
  const auto state = add_state(command);
  command.callback([=] {
    ask(state_directory(*state), {{"command", "rex"}});
    print("exit button pressed\n");
  });
}

void add_enroll(CLI::App& app) {
  CLI::App& command = *app.add_subcommand("enroll", "Give the next card that the reader sees to a user");
  const auto state = add_state(command);
  const auto user = std::make_shared<std::int64_t>();
  const auto registration = std::make_shared<std::string>();
  const auto no_save = std::make_shared<bool>();
  command.add_option("--user", *user, "Number of the user, who is made when missing")
      ->required()
      ->type_name("N")
      ->check(cli::whole_number());
  command.add_option("--registration", *registration, "A text to keep with the card");
  command.add_flag("--no-save", *no_save, "Only tell the card: whoever asks keeps it");
  command.callback([=] {
    std::fprintf(stderr, "achost: hold the card of user %lld to the reader\n", static_cast<long long>(*user));
    const Json answer = ask(
        state_directory(*state),
        {{"command", "enroll"}, {"user", *user}, {"registration", *registration}, {"save", !*no_save}, {"wait", true}},
        std::nullopt);
    print("card " + answer.at("card").dump() + " (" + answer.at("card_hex").get<std::string>() + ") is of " +
          named(*user, answer.at("user_name")) + "\n");
  });
}

void add_field(CLI::App& app) {
  CLI::App& field = *app.add_subcommand("field", "Put tags before a simulated reader")->require_subcommand(1);
  CLI::App& show = *field.add_subcommand("show", "Show the tags");
  const auto show_state = add_state(show);
  show.callback([=] {
    std::string text;
    const Json answer = ask(state_directory(*show_state), {{"command", "field_show"}});
    for (const auto& tag : answer.at("tags")) {
      text += tag.at("epc").get<std::string>() + " rssi=" + tag.at("rssi").dump() +
              " p=" + tag.at("probability").dump() + "\n";
    }
    print(text.empty() ? "no tag is there\n" : text);
  });
  struct Verb {
    const char* name;
    const char* words;
    const char* meaning;  // of the words
    const char* help;
  };
  for (const auto& [name, words_name, meaning, help] :
       {Verb{"add", "EPCHEX [rssi=N] [pc=HHHH] [p=PROBABILITY] [power=N]",
             "The tag's EPC; its signal strength, protocol control word, chance of an answer to a poll, and the least "
             "power at which it answers",
             "Put a tag there, or change the one that is"},
        Verb{"remove", "EPCHEX", "The tag's EPC", "Take a tag away"}, Verb{"clear", "", "", "Take all tags away"},
        Verb{"fault", "NAME PROBABILITY", "A fault of uhf-sim (uhf-sim --help names all), and how often: 0.0 to 1.0",
             "Let replies of the reader suffer"}}) {
    CLI::App& command = *field.add_subcommand(name, help);
    const auto state = add_state(command);
    const auto words = std::make_shared<std::vector<std::string>>();
    if (*words_name != '\0') {
      command.add_option(words_name, *words, meaning)->type_name(words_name)->required();
    }
    command.callback([=, verb = std::string(name)] {
      ask(state_directory(*state), {{"command", "field"}, {"line", verb + " " + CLI::detail::join(*words, " ")}});
    });
  }
}

}  // namespace

void add_control(CLI::App& app) {
  add_status(app);
  add_events(app);
  add_door(app);
  add_gpio(app);
  add_rex(app);
  add_enroll(app);
  add_field(app);
}

}  // namespace achost
