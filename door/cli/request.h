// Asking whoever owns what is asked for.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "door/control/control.h"

namespace achost {

// How long a host may take to answer; for ever when nothing is given.
using Patience = std::optional<std::chrono::milliseconds>;

// The answer without "ok" of the host that runs there. Throws NoHost when none does, Failure with the host's own words
// when it refuses, and ac::ac_exception when it takes longer.
Json ask(const std::filesystem::path& state, const Json& request, Patience patience = ControlClient::kPatience);

// The same; nothing when no host runs there.
std::optional<Json> ask_if_running(const std::filesystem::path& state, const Json& request,
                                   Patience patience = ControlClient::kPatience);

// Hand each line that comes before the answer to a function, until it returns false. Throws as ask() does.
void follow(const std::filesystem::path& state, const Json& request, const std::function<bool(const Json&)>& take);

// What goes with a request to the owner of the stores, and comes with its answer.
struct Exchange {
  std::function<std::string()> give = nullptr;           // the next bytes of the request; empty at their end
  std::function<void(std::string_view)> take = nullptr;  // bytes of the answer
  std::function<void(const Json&)> take_line = nullptr;  // a line before the answer
};

// Whoever owns the stores of a state directory: the daemon that runs there, which is asked, or this process, which runs
// the same commands itself. Then it holds the directory's lock when they change something, from the first of those on.
// For one thread.
class StoreOwner {
 public:
  // How long a daemon may take for a part of an answer: it may wait for a reader that does not answer, or have much to
  // look through.
  static constexpr std::chrono::seconds kPatience{60};

  explicit StoreOwner(std::filesystem::path directory);
  ~StoreOwner();
  StoreOwner(const StoreOwner&) = delete;
  StoreOwner& operator=(const StoreOwner&) = delete;

  // The answer without "ok". Throws as the command does, Failure where a daemon refuses, and ac::ac_exception when
  // there is no answer; then a request that changes something may have been done.
  Json ask(const Json& request, const Exchange& exchange = {}, Patience patience = kPatience);

  // The same in two steps, so that a daemon works meanwhile; for a request that changes nothing. A connection that has
  // ended is made again.
  void begin(const Json& request);
  Json finish(const Exchange& exchange, Patience patience = kPatience);

  // Whether a daemon has answered.
  bool is_daemon() const { return client_ != nullptr; }

 private:
  struct Own;

  void find(const Json& request);
  bool is_own_enough_for(const Json& request) const;
  Json receive(const Exchange& exchange, Patience patience);
  Json run(const Json& request, const Exchange& exchange);

  const std::filesystem::path directory_;
  std::unique_ptr<ControlClient> client_;  // where a daemon runs
  std::unique_ptr<Own> own_;
  Json begun_;
};

// Ask for all parts of an answer and hand each to a function, with its bytes; the owner makes the next one meanwhile.
// Returns the last answer.
Json ask_for_parts(StoreOwner& owner, const Json& request,
                   const std::function<void(const Json& answer, std::string_view bytes)>& take);

}  // namespace achost
