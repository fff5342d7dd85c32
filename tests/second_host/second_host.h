// A second host: the example of a host with recording fakes around it. The plug-in's own tests run against it, and it
// proves that uhf.so runs in a host that is not the reference host.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "message.h"

namespace second_host {

using example::deliver;
using example::Fields;
using example::Listeners;
using example::Value;

// What the host's clock shows, as text.
inline constexpr const char* kNow = "2026-11-20 21:30:00.123";

struct SentMessage {
  std::string type;
  int argument;
  bool has_callback;
  bool synchronous;
  Fields fields;
};

struct DebugLine {
  std::string text;
  std::string source;
  std::string function;
  int line;
};

struct AuditRecord {
  std::string time;
  int type;
  std::string details;
};

// All that the plug-in does to its host, and what the host is to answer. Thread-safe: mutex_ guards every member.
class Host {
 public:
  // Back to a host that was just started, with no settings.
  void reset();

  // Settings of section "uhf".
  void set(const std::string& key, const std::string& value);
  void set(const std::string& key, int value) { set(key, std::to_string(value)); }
  std::optional<std::string> get(const std::string& section, const std::string& key) const;
  void store(const std::string& section, const std::string& key, const std::string& value);

  // What the plug-in writes to the store, unless it is told to refuse.
  void write(const std::string& section, const std::string& key, const std::string& value);
  void refuse_writes();

  // Answers synchronous messages; no value leaves the reply ungiven. Without it nothing is answered.
  using Answer = std::function<std::optional<Fields>(const SentMessage&)>;
  void answer_with(Answer answer);
  // Called on every keep-alive, on the caller's thread; may throw, to leave a loop of the plug-in's.
  void on_keep_alive(std::function<void(const std::string&)> hook);

  // Called after each call of those below is recorded, on the caller's thread; may throw, to fail it.
  void on_call(std::function<void(const std::string& call)> hook);

  // Every call of the plug-in that has an order worth testing, as text: "get_int uhf trig_gpio true".
  void called(const std::string& call);
  std::vector<std::string> calls() const;

  // For the fakes: record what happened.
  std::optional<Fields> sent(SentMessage message);
  void kept(const std::string& name);
  void logged(DebugLine line);
  void created(AuditRecord record);
  void ran(const std::string& command);

  // What was sent, in order: of one type, or all.
  std::vector<SentMessage> messages(const std::string& type) const;
  std::vector<SentMessage> messages() const;
  std::size_t keep_alives(const std::string& name) const;
  std::vector<DebugLine> debug_lines() const;
  std::vector<std::string> debug_texts() const;
  std::vector<AuditRecord> audit_records() const;

  // Called in the middle of each insert of an audit record, and of each shell command, on the caller's thread.
  void on_create(std::function<void()> hook);
  void on_system(std::function<void(const std::string& command)> hook);

  // Waits until condition holds; false when it does not within 30 s.
  bool wait_until(const std::function<bool()>& condition);

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::pair<std::string, std::string>, std::string> settings_;
  bool refuses_writes_ = false;
  Answer answer_;
  std::function<void(const std::string&)> call_hook_;
  std::function<void(const std::string&)> keep_alive_hook_;
  std::function<void()> create_hook_;
  std::function<void(const std::string&)> system_hook_;
  std::vector<std::string> calls_;
  std::vector<SentMessage> messages_;
  std::map<std::string, std::size_t> keep_alives_;
  std::vector<DebugLine> debug_lines_;
  std::vector<AuditRecord> audit_records_;
};

Host& host();

// What the plug-in told an ac::Plugin.
const ac::Plugin::Impl& record_of(const ac::Plugin& plugin);
const Listeners& listeners_of(const ac::MessageEnqueuer& queue);

// A message as a sender makes it.
std::unique_ptr<ac::Message> make_message(const std::string& type, const Fields& fields = {});

// Whether a handler has called set_handled().
bool is_handled(const ac::Message& message);

}  // namespace second_host
