#include "gateway/fleet/push.h"

#include <algorithm>

#include "cli/failure.h"
#include "gateway/mqtt/topics.h"

namespace fleet {
namespace {

namespace topics = mqtt::topics;

const std::string* find(const Parts& parts, const std::string& hash) {
  const auto found = parts.find(hash);
  return found == parts.end() ? nullptr : &found->second;
}

bool same_parts(const Manifest& before, const Parts& after) {
  return before.parts.size() == after.size() &&
         std::ranges::all_of(before.parts, [&](const auto& part) { return after.contains(part.hash); });
}

}  // namespace

bool Plan::removes_most() const {
  const bool is_said_first = before.parts.empty();
  return users_after == 0 ? users_before > 0 || is_said_first : change.users.removed * 2 > users_before;
}

std::size_t Plan::parts_sent() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(parts, [this](const auto& part) { return !before.names(part.first); }));
}

std::size_t Plan::bytes_sent() const {
  std::size_t bytes = 0;
  for (const auto& [hash, text] : parts) {
    bytes += before.names(hash) ? 0 : text.size();
  }
  return bytes;
}

std::map<std::string, Manifest> Push::manifests(const std::set<std::string>& doors) {
  std::map<std::string, Manifest> manifests;
  std::map<std::string, std::string> texts;
  for (const auto& door : doors) {
    centre_.listen(topics::desired(door),
                   [&texts, door](const mqtt::Message& message) { texts[door] = message.payload; });
  }
  centre_.settle();
  for (const auto& door : doors) {
    centre_.leave(topics::desired(door));
    const auto& text = texts[door];
    // Anew, too, each revision is later than the one before.
    const auto revision = number_in(object_of(text), "revision").value_or(0);
    manifests[door] = text.empty() || anew_ ? Manifest{.revision = revision, .parts = {}} : parse_manifest(text);
  }
  return manifests;
}

// Those parts that are in nobody's hands yet.
void Push::fetch(const std::string& door, const Manifest& manifest, const Parts& known) {
  std::set<std::string> missing;
  for (const auto& part : manifest.parts) {
    if (find(known, part.hash) == nullptr && find(fetched_, part.hash) == nullptr) {
      missing.insert(part.hash);
    }
  }
  for (const auto& hash : missing) {
    centre_.listen(topics::desired_part(door, hash), [this, hash](const mqtt::Message& message) {
      if (hash_of(message.payload) == hash) {
        fetched_[hash] = message.payload;
      }
    });
  }
  if (!missing.empty()) {
    centre_.settle();
  }
  for (const auto& hash : missing) {
    centre_.leave(topics::desired_part(door, hash));
    if (find(fetched_, hash) == nullptr) {
      throw cli::Failure(cli::kFailed, "the broker has not all of what " + door + " is to have: push with --anew");
    }
  }
}

Document Push::stored(const Manifest& manifest, const Parts& known) const {
  Document document;
  for (const auto& part : manifest.parts) {
    const std::string* const text = find(known, part.hash);
    add_lines(document, text != nullptr ? *text : fetched_.at(part.hash));
  }
  return document;
}

Plan Push::plan_for(const std::string& door, const Manifest& before, const Parts& users) {
  if (before.parts.empty() && !wanted_.users.has_value()) {
    throw cli::Failure(cli::kUsage, "nobody has said yet who the people of " + door +
                                        " are, and all who are there would go: give their table too (achost user "
                                        "export makes it there)");
  }
  fetch(door, before, users);
  const Document old = stored(before, users);
  Document document = old;
  document.users = wanted_.users.value_or(old.users);
  document.schedules = wanted_.schedules.has_value() ? wanted_.schedules : old.schedules;
  document.settings = wanted_.settings.value_or(old.settings);
  check_schedules(document);
  Plan plan{.before = before,
            .after = before,
            .parts = parts_of(document),
            .change = change_between(old, document),
            .users_before = old.users.size(),
            .users_after = document.users.size()};
  if (anew_ || before.revision == 0 || !same_parts(before, plan.parts)) {
    plan.after = manifest_of(before.revision + 1, plan.parts);
  }
  return plan;
}

std::map<std::string, Plan> Push::plan(const std::set<std::string>& doors) {
  const Parts users =
      wanted_.users.has_value() ? parts_of({.users = *wanted_.users, .schedules = {}, .settings = {}}) : Parts();
  std::map<std::string, Plan> plans;
  for (const auto& [door, before] : manifests(doors)) {
    plans.emplace(door, plan_for(door, before, users));
  }
  return plans;
}

void Push::tell(const std::string& door, const Plan& plan) {
  for (const auto& [hash, text] : plan.parts) {
    if (!plan.before.names(hash)) {
      centre_.tell(topics::desired_part(door, hash), text, true);
    }
  }
  centre_.settle();
  centre_.tell(topics::desired(door), text_of(plan.after), true);
  centre_.settle();
  for (const auto& part : plan.before.parts) {
    if (!plan.parts.contains(part.hash)) {
      centre_.tell(topics::desired_part(door, part.hash), "", true);
    }
  }
  centre_.settle();
}

std::map<std::string, Json> Push::answers(const std::map<std::string, std::int64_t>& revisions,
                                          std::chrono::milliseconds patience) {
  std::map<std::string, Json> answers;
  for (const auto& [door, revision] : revisions) {
    centre_.listen(topics::desired_answer(door),
                   [&answers, door = door, revision = revision](const mqtt::Message& message) {
                     const Json answer = object_of(message.payload);
                     if (number_in(answer, "revision") == revision) {
                       answers[door] = answer;
                     }
                   });
  }
  centre_.wait([&] { return answers.size() == revisions.size(); }, patience);
  for (const auto& [door, revision] : revisions) {
    centre_.leave(topics::desired_answer(door));
  }
  return answers;
}

}  // namespace fleet
