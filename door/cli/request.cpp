#include "door/cli/request.h"

#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/control/answer_parts.h"
#include "door/control/own_stores.h"
#include "door/control/why_commands.h"

namespace achost {
namespace {

using std::chrono::steady_clock;

// How long a directory may be in use by one that serves nobody: a daemon that starts or ends, another command.
constexpr std::chrono::seconds kBusy(2);

// The answer when the line is one that says that it went well. Throws Failure when it says that it did not.
Json checked(Json line) {
  if (!line.value("ok", true)) {
    const int status = line.value("status", 1);
    const bool is_known = status == kUsage || status == kNotInForce || status == kDamaged;
    throw Failure(is_known ? static_cast<Status>(status) : kFailed, line.value("error", "the host has refused"));
  }
  line.erase("ok");
  return line;
}

// What a command of this process sees in place of a connection.
class OwnStream : public ControlStream {
 public:
  explicit OwnStream(const Exchange& exchange) : exchange_(exchange) {}

  bool send(const Json& line) override {
    if (exchange_.take_line) {
      exchange_.take_line(line);
    }
    return true;
  }
  bool send_lines(const std::string& lines) override {
    std::istringstream all(lines);
    for (std::string line; std::getline(all, line);) {
      send(Json::parse(line));
    }
    return true;
  }
  bool send_bytes(std::string_view bytes) override {
    if (exchange_.take) {
      exchange_.take(bytes);
    }
    return true;
  }
  std::string receive_bytes() override { return exchange_.give ? exchange_.give() : ""; }
  bool is_over() override { return false; }
  int hand_over() override { throw Failure(kFailed, "there is no connection: start a host"); }

 private:
  const Exchange& exchange_;
};

}  // namespace

Json ask(const std::filesystem::path& state, const Json& request, Patience patience) {
  ControlClient client(state);
  client.send(request);
  return checked(client.receive(patience));
}

std::optional<Json> ask_if_running(const std::filesystem::path& state, const Json& request, Patience patience) {
  try {
    return ask(state, request, patience);
  } catch (const NoHost&) {
    return std::nullopt;
  }
}

void follow(const std::filesystem::path& state, const Json& request, const std::function<bool(const Json&)>& take) {
  ControlClient client(state);
  client.send(request);
  Json line = client.receive(ControlClient::kPatience);
  for (; !line.contains("ok"); line = client.receive()) {
    if (!take(line)) {
      return;
    }
  }
  checked(line);
}

struct StoreOwner::Own {
  explicit Own(const std::filesystem::path& directory) : stores(directory), table(commands(stores)) {}

  static std::vector<ControlCommand> commands(OwnStores& stores) {
    auto all = store_commands(stores);
    all.push_back(why_command({.state = stores.directory(),
                               .name_of = [&stores](std::int64_t user) { return stores.users().name_of(user); }}));
    return all;
  }

  OwnStores stores;
  const ControlTable table;
  bool is_locked = false;
};

StoreOwner::StoreOwner(std::filesystem::path directory) : directory_(std::move(directory)) {}

StoreOwner::~StoreOwner() = default;

// The daemon, if there is one; else this process becomes the owner as far as the request needs that. Whoever holds the
// directory meanwhile is about to serve its socket, or to end.
void StoreOwner::find(const Json& request) {
  constexpr std::chrono::milliseconds kPause(20);
  for (const auto deadline = steady_clock::now() + kBusy; client_ == nullptr && !is_own_enough_for(request);) {
    try {
      client_ = std::make_unique<ControlClient>(directory_);
      return;
    } catch (const NoHost&) {
    }
    try {
      auto own = std::make_unique<Own>(directory_);
      if (own->table.check(request).changes) {
        own->stores.lock();
        own->is_locked = true;
      }
      own_ = std::move(own);
    } catch (const refhost::DirectoryInUse&) {
      if (steady_clock::now() >= deadline) {
        throw;
      }
      std::this_thread::sleep_for(kPause);
    }
  }
}

bool StoreOwner::is_own_enough_for(const Json& request) const {
  return own_ != nullptr && (own_->is_locked || !own_->table.check(request).changes);
}

Json StoreOwner::run(const Json& request, const Exchange& exchange) {
  OwnStream stream(exchange);
  const MakerScope scope(own_maker());
  try {
    return own_->table.check(request).run(request, stream);
  } catch (const RequestError& failure) {
    throw Failure(kUsage, failure.what());
  }
}

Json StoreOwner::receive(const Exchange& exchange, Patience patience) {
  for (;;) {
    Json line = client_->receive(patience);
    if (line.contains("ok")) {
      return line;
    }
    if (line.contains("bytes")) {
      const auto bytes = client_->receive_bytes(line, patience);
      if (exchange.take) {
        exchange.take(bytes);
      }
    } else if (exchange.take_line) {
      exchange.take_line(line);
    }
  }
}

Json StoreOwner::ask(const Json& request, const Exchange& exchange, Patience patience) {
  find(request);
  if (client_ == nullptr) {
    return run(request, exchange);
  }
  client_->send(request);
  if (exchange.give) {
    for (bool wanted = true; wanted;) {
      const auto bytes = exchange.give();
      wanted = client_->send_bytes(bytes) && !bytes.empty();
    }
  }
  return checked(receive(exchange, patience));
}

void StoreOwner::begin(const Json& request) {
  begun_ = request;
  find(request);
  if (client_ != nullptr) {
    client_->send(request);
  }
}

// Bytes of an answer that is cut off are not taken: those of the other connection are.
Json StoreOwner::finish(const Exchange& exchange, Patience patience) {
  for (bool is_first = true; client_ != nullptr; is_first = false) {
    std::string bytes;
    Json line{{"ok", false}, {"again", true}};
    try {
      line = receive({.take = [&bytes](std::string_view more) { bytes += more; }}, patience);
    } catch (const HostGone&) {
      if (!is_first) {
        throw;
      }
    }
    if (!is_first || !line.value("again", false)) {
      auto answer = checked(std::move(line));
      exchange.take(bytes);
      return answer;
    }
    client_.reset();
    begin(begun_);
  }
  return run(begun_, exchange);
}

Json ask_for_parts(StoreOwner& owner, const Json& request,
                   const std::function<void(const Json& answer, std::string_view bytes)>& take) {
  Json answer;
  owner.begin(request);
  do {
    std::string bytes;
    answer = owner.finish({.take = [&bytes](std::string_view more) { bytes += more; }});
    if (answer.at("more")) {
      owner.begin(request_behind(request, answer));
    }
    take(answer, bytes);
  } while (answer.at("more"));
  return answer;
}

}  // namespace achost
