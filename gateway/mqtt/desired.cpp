#include "gateway/mqtt/desired.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <utility>

#include "gateway/base/memory.h"
#include "gateway/base/state_file.h"
#include "gateway/mqtt/outbox.h"
#include "gateway/mqtt/text.h"
#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

using std::chrono::seconds;

constexpr seconds kForAPart{10};
constexpr seconds kApplying{120};   // for the daemon
constexpr seconds kBeforeAgain{5};  // before it is tried again
constexpr const char* kAppliedFile = "applied.json";

// It may go better later.
class Later : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string content_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string file_text_of(const Manifest& manifest) {
  Json json = {{"revision", manifest.revision}, {"parts", Json::array()}};
  for (const std::string& hash : manifest.parts) {
    json["parts"].push_back({{"hash", hash}});
  }
  return json.dump() + "\n";
}

// Those of the first that the second has not.
std::vector<std::string> without(const std::vector<std::string>& some, const std::vector<std::string>& others) {
  std::vector<std::string> left;
  std::ranges::copy_if(some, std::back_inserter(left),
                       [&](const std::string& one) { return std::ranges::find(others, one) == others.end(); });
  return left;
}

}  // namespace

Desired::Desired(Needs needs) : needs_(std::move(needs)), wake_(needs_.context, kNever) {
  std::filesystem::create_directories(needs_.directory);
  try {
    if (const std::string text = content_of(needs_.directory / kAppliedFile); !text.empty()) {
      applied_ = manifest_of(text);
    }
  } catch (const BadManifest&) {
    // Then the next one goes as a whole.
  }
}

void Desired::broker_is_up() { wake_.cancel(); }

void Desired::look_again() {
  wanted_ = newest_;
  wake_.cancel();
}

void Desired::take_manifest(std::string_view payload) {
  if (payload.empty()) {
    newest_.reset();  // nothing is desired any more; what the door is it stays
    return;
  }
  try {
    newest_ = manifest_of(payload);
    wanted_ = newest_;
  } catch (const BadManifest& failure) {
    answer({{"revision", nullptr}, {"applied", false}, {"error", failure.what()}});
  }
  wake_.cancel();
}

void Desired::take_part(std::string_view hash, std::string_view payload) {
  if (hash == fetched_hash_ && payload.size() <= kLargestPart && !payload.empty()) {
    fetched_ = payload;
    wake_.cancel();
  }
}

net::awaitable<void> Desired::run() {
  for (;;) {
    while (!wanted_.has_value() || !needs_.broker.is_up()) {
      wake_.expires_at(again_at_);
      co_await wait_for(wake_);
      if (std::chrono::steady_clock::now() >= again_at_) {
        again_at_ = kNever;
        wanted_ = newest_;
      }
    }
    again_at_ = kNever;
    const Manifest manifest = *std::exchange(wanted_, std::nullopt);
    std::string failure;
    bool comes_again = false;
    try {
      co_await fulfil(manifest);
    } catch (const gateway::Refused& refused) {
      failure = refused.what();
      again_at_ = std::chrono::steady_clock::now() + needs_.after_refusal;
    } catch (const std::exception& other) {
      failure = other.what();
      comes_again = true;
    }
    if (failure.empty()) {
      answer({{"revision", manifest.revision}, {"applied", true}, {"at", now_ms()}});
      continue;
    }
    answer({{"revision", manifest.revision}, {"applied", false}, {"error", failure}});
    if (comes_again) {
      co_await pause(needs_.context, kBeforeAgain);
      wanted_ = wanted_.has_value() ? wanted_ : manifest;
    }
  }
}

net::awaitable<void> Desired::fulfil(const Manifest manifest) {
  const Json request = {{"command", "desired_state"}};
  const auto connection = needs_.daemon.connect();
  co_await connection->send(request);
  Json line = co_await connection->receive();
  bool has_drifted = false;
  while (!line.contains("ok")) {  // what somebody has changed at the door since
    has_drifted = true;
    line = co_await connection->receive();
  }
  const auto& revision = line["revision"];
  if (revision == manifest.revision) {
    co_return;
  }
  for (const std::string& hash : manifest.parts) {
    if (!has(hash)) {
      co_await fetch(hash);
    }
  }
  // Of what was changed at the door a difference would leave what it does not name.
  bool is_applied = false;
  if (applied_.has_value() && revision == applied_->revision && !has_drifted) {
    is_applied = co_await apply_difference(manifest);
  }
  if (!is_applied) {
    co_await apply_whole(manifest);
  }
  gateway::replace_file(needs_.directory / kAppliedFile, file_text_of(manifest));
  applied_ = manifest;
  forget_others(manifest);
  gateway::give_back_memory();
}

net::awaitable<void> Desired::fetch(const std::string& hash) {
  const std::string topic = topics::desired_part(needs_.door, hash);
  fetched_hash_ = hash;
  fetched_.reset();
  needs_.broker.subscribe(topic);
  const auto deadline = std::chrono::steady_clock::now() + kForAPart;
  while (!fetched_.has_value() && std::chrono::steady_clock::now() < deadline) {
    wake_.expires_at(deadline);
    co_await wait_for(wake_);
  }
  needs_.broker.unsubscribe(topic);
  fetched_hash_.clear();
  const auto text = std::exchange(fetched_, std::nullopt);
  if (!text.has_value()) {
    throw Later("the part " + hash + " does not come: publish it, retained, before the manifest");
  }
  if (hash_of(*text) != hash) {
    throw Later("the part " + hash + " is not what its name says: publish it anew");
  }
  gateway::replace_file(needs_.directory / hash, *text);
}

bool Desired::has(const std::string& hash) const {
  std::error_code failure;
  return std::filesystem::exists(needs_.directory / hash, failure);
}

std::string Desired::part(const std::string& hash) const {
  std::string text = content_of(needs_.directory / hash);
  if (hash_of(text) != hash) {
    std::filesystem::remove(needs_.directory / hash);
    throw Later("the part " + hash + " is damaged on this door's disk: it is fetched anew");
  }
  if (!text.ends_with('\n')) {
    text += '\n';
  }
  return text;
}

std::optional<std::string> Desired::difference_to(const Manifest& manifest) const {
  const auto gone = without(applied_->parts, manifest.parts);
  const auto come = without(manifest.parts, applied_->parts);
  if ((gone.size() + come.size()) * kLargestPart > kLargestDifference * 2 ||
      !std::ranges::all_of(gone, [this](const std::string& hash) { return has(hash); })) {
    return std::nullopt;
  }
  std::vector<std::string> old_parts;
  std::vector<std::string> new_parts;
  std::ranges::transform(gone, std::back_inserter(old_parts), [this](const std::string& hash) { return part(hash); });
  std::ranges::transform(come, std::back_inserter(new_parts), [this](const std::string& hash) { return part(hash); });
  Difference different = difference(old_parts, new_parts);
  const auto says_nowhere = [&](const char* key) {
    return std::ranges::none_of(manifest.parts, [&](const std::string& hash) { return says(part(hash), key); });
  };
  if (different.removes_users && says_nowhere("user")) {
    return std::nullopt;  // that everybody goes the document is to say
  }
  if (different.needs_schedules) {
    std::string rows;
    for (const std::string& hash : manifest.parts) {
      rows += schedules_of(part(hash));
    }
    if (rows.empty() && says_nowhere("remove_schedules")) {
      return std::nullopt;  // they are the door's own again
    }
    different.lines += rows.empty() ? "{\"remove_schedules\": true}\n" : rows;
  }
  return different.lines;
}

// Sends the request with its bytes; the answer.
net::awaitable<Json> Desired::give(const Json& request, const std::function<bool(std::string&)>& next) {
  const auto connection = needs_.daemon.connect();
  co_await connection->send(request);
  std::string piece;
  bool is_wanted = true;
  while (is_wanted && next(piece)) {
    is_wanted = co_await connection->send_bytes(piece);
  }
  if (is_wanted) {
    const std::string end;
    co_await connection->send_bytes(end);
  }
  Json answer = co_await connection->receive(kApplying);
  co_return answer;
}

// Whether the daemon has taken it.
net::awaitable<bool> Desired::apply_difference(const Manifest& manifest) {
  std::optional<std::string> lines;
  try {
    lines = difference_to(manifest);
  } catch (const BadManifest&) {
    // The whole one tells what is wrong.
  }
  if (!lines.has_value()) {
    co_return false;
  }
  Json request = {{"command", "desired_apply"}, {"revision", manifest.revision}, {"from", applied_->revision}};
  if (!manifest.by.empty()) {
    request["on_behalf_of"] = manifest.by;
  }
  std::string_view left = *lines;
  const std::function<bool(std::string&)> next = [&left](std::string& piece) {
    piece = left.substr(0, kLargestPart);
    left.remove_prefix(piece.size());
    return !piece.empty();
  };
  try {
    co_await give(request, next);
    co_return true;
  } catch (const gateway::Refused&) {
    co_return false;  // the whole one tells what is wrong, should it be wrong too
  }
}

net::awaitable<void> Desired::apply_whole(const Manifest& manifest) {
  Json request = {{"command", "desired_apply"}, {"revision", manifest.revision}};
  if (!manifest.by.empty()) {
    request["on_behalf_of"] = manifest.by;
  }
  std::size_t at = 0;
  const std::function<bool(std::string&)> next = [this, &manifest, &at](std::string& piece) {
    if (at == manifest.parts.size()) {
      return false;
    }
    piece = part(manifest.parts[at++]);
    return true;
  };
  co_await give(request, next);
}

void Desired::forget_others(const Manifest& manifest) const {
  for (const auto& entry : std::filesystem::directory_iterator(needs_.directory)) {
    const std::string name = entry.path().filename();
    if (name != kAppliedFile && std::ranges::find(manifest.parts, name) == manifest.parts.end()) {
      std::error_code ignored;
      std::filesystem::remove(entry.path(), ignored);
    }
  }
}

void Desired::answer(const Json& what) {
  if (what["applied"] == false) {
    needs_.say("what is desired of the door was not applied: " + what.value("error", ""));
  }
  needs_.broker.publish({.topic = topics::desired_answer(needs_.door), .payload = text_of(what), .retain = true});
}

}  // namespace mqtt
