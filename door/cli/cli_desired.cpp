// What the door is to be like, from whoever keeps many.
#include <chrono>
#include <memory>
#include <optional>

#include "cli/text_table.h"
#include "door/base/local_time.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/cli/file_content.h"
#include "door/cli/request.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

struct DesiredOptions {
  std::shared_ptr<std::string> state;
  bool json = false;
  std::string file;
  std::int64_t revision = 0;
  std::optional<std::int64_t> from;
};

std::string text_of(const Json& value) {
  const std::string text = value.is_null()     ? "nothing"
                           : value.is_string() ? value.get<std::string>()
                                               : value.dump(-1, ' ', false, Json::error_handler_t::replace);
  return refhost::log::escape(text.empty() ? "\"\"" : text);
}

// A row for each thing that is different: "user 7 name", "Ana", "Anna".
void add_rows(std::vector<std::vector<std::string>>& rows, const Json& drift) {
  const auto subject = drift.begin();
  const std::string name = subject.key() + " " + text_of(subject.value());
  const auto& desired = drift.at("desired");
  const auto& stored = drift.at("stored");
  if (desired.is_object() && stored.is_object()) {
    for (const auto& [key, value] : desired.items()) {
      if (stored.at(key) != value) {
        rows.push_back({name + " " + key, text_of(value), text_of(stored.at(key))});
      }
    }
  } else {
    const auto shown = [](const Json& side) { return side.is_object() ? "there" : text_of(side); };
    rows.push_back({name, shown(desired), shown(stored)});
  }
}

void show_desired(const DesiredOptions& options) {
  StoreOwner owner(existing_state(*options.state));
  std::vector<std::vector<std::string>> rows = {{"DIFFERENCE", "WANTED", "FOUND"}};
  std::string lines;
  const auto answer = owner.ask({{"command", "desired_state"}}, {.take_line = [&](const Json& line) {
                                  if (options.json) {
                                    lines += line_of(line);
                                  } else {
                                    add_rows(rows, line.at("drift"));
                                  }
                                }});
  if (options.json) {
    print(lines + line_of(answer));
  } else if (answer.at("revision").is_null()) {
    print("this door has no desired state\n");
  } else {
    const auto at = Milliseconds(std::chrono::milliseconds(answer.at("at").get<std::int64_t>()));
    const auto by = answer.at("by").get<std::string>();
    print("revision " + text_of(answer.at("revision")) + ", since " + local_time(at, "%Y-%m-%d %H:%M:%S") +
          (by.empty() ? "" : ", by " + refhost::log::escape(by)) +
          (rows.size() == 1 ? "; the door is as it says\n" : "; changed at the door since:\n" + aligned(rows)));
  }
}

void apply_desired(const DesiredOptions& options) {
  const auto text = content_of(options.file);
  StoreOwner owner(writable_state(*options.state));
  std::string_view left = text;
  const auto give = [&left] {
    const auto piece = left.substr(0, kLongestPiece);
    left.remove_prefix(piece.size());
    return std::string(piece);
  };
  Json request = {{"command", "desired_apply"}, {"revision", options.revision}, {"name", name_of_input(options.file)}};
  if (options.from.has_value()) {
    request["from"] = *options.from;
  }
  const auto answer = owner.ask(request, {.give = give});
  const auto warning = answer.at("warning").get<std::string>();
  print("revision " + std::to_string(options.revision) + ": " + answer.at("done").get<std::string>() + "\n" +
        (warning.empty() ? "" : warning + "; the host tries again until it is\n"));
}

}  // namespace

void add_desired(CLI::App& app) {
  CLI::App& desired =
      *app.add_subcommand("desired", "Show and take what the door is to be like")->require_subcommand(1);
  const auto options = std::make_shared<DesiredOptions>();
  CLI::App& show = *desired.add_subcommand(
      "show", "Show which revision the door has, and what somebody has changed at the door since");
  options->state = add_state(show);
  show.add_flag("--json", options->json, "One JSON object a line");
  show.callback([options] { show_desired(*options); });
  CLI::App& apply = *desired.add_subcommand(
      "apply", "Have people, cards, schedules and settings as a file says, as a whole or not at all");
  const auto applied = std::make_shared<DesiredOptions>();
  applied->state = add_state(apply);
  apply.add_option("FILE", applied->file, "One JSON object a line; - is standard input")->type_name("FILE")->required();
  apply.add_option("--revision", applied->revision, "What it is called afterwards")->type_name("N")->required();
  apply.add_option("--from", applied->from, "The file is what is different from this revision (default: it is all)")
      ->type_name("N");
  apply.callback([applied] { apply_desired(*applied); });
  apply.footer(
      "A line is a user with his cards, {\"user\": 7, \"name\": \"Ana\", \"cards\": [\"33\"]}, a row of schedules,\n"
      "{\"schedule\": \"office\", \"days\": \"mon-fri\", \"from\": \"08:00\", \"to\": \"18:00\"}, or a setting,\n"
      "{\"setting\": \"uhf.region\", \"value\": \"EU\"}. Users and cards that it does not name go; so do\n"
      "schedules, where it names one. It removes all of them where a line says {\"remove_users\": true} or\n"
      "{\"remove_schedules\": true}. {\"lines\": N} in front refuses a file that was cut off.");
}

}  // namespace achost
