#include <fcntl.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>

#include "cli/failure.h"
#include "gateway/fleet/commands.h"
#include "gateway/fleet/doors.h"
#include "gateway/fleet/entry_line.h"
#include "gateway/fleet/push.h"

namespace fleet {
namespace {

std::string content_of(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (!stream.good() && !stream.eof()) {
    throw cli::Failure(cli::kUsage, "cannot read " + file + ": is it there, and may you read it?");
  }
  return text;
}

template <typename Parse>
auto from_file(const std::string& file, const Parse& parse) {
  return file.empty() ? std::nullopt : std::optional(parse(content_of(file), file));
}

Wanted wanted_of(const PushOptions& options) {
  if (options.people.empty() && options.schedules.empty() && options.settings.empty()) {
    throw cli::Failure(cli::kUsage, "there is nothing to push: give a table of people, --schedules or --settings");
  }
  return {.users = from_file(options.people, user_lines),
          .schedules = from_file(options.schedules, schedule_lines),
          .settings = from_file(options.settings, setting_lines)};
}

std::string size_text(std::size_t bytes) {
  return bytes < 10'000 ? std::to_string(bytes) + " bytes" : std::to_string(bytes / 1000) + " KB";
}

void show_plan(const std::string& door, const Plan& plan, bool with_lines, bool as_json) {
  if (as_json) {
    Json line = {{"door", door},
                 {"revision", plan.after.revision},
                 {"change", plan.change.text()},
                 {"parts", plan.parts_sent()},
                 {"bytes", plan.bytes_sent()}};
    if (with_lines) {
      line["changes"] = plan.change.lines;
    }
    std::puts(line_of(line).c_str());
    return;
  }
  if (plan.is_nothing()) {
    std::printf("%s  is to be so already, revision %lld\n", door.c_str(), static_cast<long long>(plan.after.revision));
    return;
  }
  std::printf("%s  revision %lld: %s (%zu of %zu parts, %s)\n", door.c_str(),
              static_cast<long long>(plan.after.revision), plan.change.text().c_str(), plan.parts_sent(),
              plan.parts.size(), size_text(plan.bytes_sent()).c_str());
  for (const auto& line : with_lines ? plan.change.lines : std::vector<std::string>()) {
    std::printf("  %s\n", line.c_str());
  }
}

// What has become of a door's new revision.
int show_outcome(const std::string& door, std::int64_t revision, bool is_online, const Json* answer, bool as_json) {
  const bool is_taken = answer != nullptr && flag_in(*answer, "applied");
  const std::string error = answer == nullptr ? "" : text_in(*answer, "error");
  if (as_json) {
    Json line = {{"door", door}, {"revision", revision}, {"applied", answer == nullptr ? Json() : Json(is_taken)}};
    if (answer != nullptr && !is_taken) {
      line["error"] = error;
    }
    std::puts(line_of(line).c_str());
  } else if (is_taken) {
    std::printf("%s  has revision %lld\n", door.c_str(), static_cast<long long>(revision));
  } else if (answer != nullptr) {
    std::fprintf(stderr, "achost-fleet: %s refuses revision %lld: %s\n", door.c_str(), static_cast<long long>(revision),
                 shown(error).c_str());
  } else {
    std::fprintf(stderr,
                 is_online ? "achost-fleet: %s has not answered yet: see achost-fleet list\n"
                           : "achost-fleet: %s is offline: it takes the revision when it is back\n",
                 door.c_str());
  }
  std::fflush(stdout);
  return is_taken || (answer == nullptr && !is_online) ? cli::kDone : answer == nullptr ? cli::kNoAnswer : cli::kFailed;
}

}  // namespace

int push(Centre& centre, const PushOptions& options, bool as_json) {
  const Doors doors = doors_of(centre);
  const auto named = named_by(options.to, doors, options.is_new);
  Push push(centre, wanted_of(options), options.anew);
  const auto plans = push.plan(named);
  for (const auto& [door, plan] : plans) {
    show_plan(door, plan, options.dry_run, as_json);
  }
  std::fflush(stdout);
  if (options.dry_run) {
    return cli::kDone;
  }
  for (const auto& [door, plan] : plans) {
    if (plan.removes_most() && !options.remove_most) {
      throw cli::Failure(cli::kUsage, "of the people of " + door + " " + std::to_string(plan.change.users.removed) +
                                          " would go and " + std::to_string(plan.users_after) +
                                          " be there: is the table whole? Where this is meant give --remove-most");
    }
  }
  std::map<std::string, std::int64_t> awaited;
  std::set<std::string> away;
  for (const auto& [door, plan] : plans) {
    if (plan.is_nothing()) {
      continue;
    }
    push.tell(door, plan);
    const auto known = doors.find(door);
    known != doors.end() && known->second.is_online() ? (void)awaited.emplace(door, plan.after.revision)
                                                      : (void)away.insert(door);
  }
  const auto answers = push.answers(awaited, std::chrono::seconds(options.wait));
  int status = cli::kDone;
  for (const auto& [door, revision] : awaited) {
    const auto answer = answers.find(door);
    const Json* const said = answer == answers.end() ? nullptr : &answer->second;
    status = std::max(status, show_outcome(door, revision, true, said, as_json));
  }
  for (const auto& door : away) {
    show_outcome(door, plans.at(door).after.revision, false, nullptr, as_json);
  }
  return status;
}

}  // namespace fleet
