#include <algorithm>
#include <iterator>

#include "second_host.h"

namespace second_host {

Host& host() {
  static Host* const instance = new Host;  // never destroyed: the plug-in's threads do not stop
  return *instance;
}

void Host::reset() {
  const std::lock_guard lock(mutex_);
  settings_.clear();
  refuses_writes_ = false;
  answer_ = nullptr;
  call_hook_ = nullptr;
  keep_alive_hook_ = nullptr;
  create_hook_ = nullptr;
  system_hook_ = nullptr;
  calls_.clear();
  messages_.clear();
  keep_alives_.clear();
  debug_lines_.clear();
  audit_records_.clear();
}

void Host::set(const std::string& key, const std::string& value) { store("uhf", key, value); }

std::optional<std::string> Host::get(const std::string& section, const std::string& key) const {
  const std::lock_guard lock(mutex_);
  const auto entry = settings_.find({section, key});
  return entry == settings_.end() ? std::nullopt : std::optional(entry->second);
}

void Host::store(const std::string& section, const std::string& key, const std::string& value) {
  const std::lock_guard lock(mutex_);
  settings_[{section, key}] = value;
  changed_.notify_all();
}

void Host::write(const std::string& section, const std::string& key, const std::string& value) {
  std::unique_lock lock(mutex_);
  if (!refuses_writes_) {
    lock.unlock();
    store(section, key, value);
  }
}

void Host::refuse_writes() {
  const std::lock_guard lock(mutex_);
  refuses_writes_ = true;
}

void Host::answer_with(Answer answer) {
  const std::lock_guard lock(mutex_);
  answer_ = std::move(answer);
}

void Host::on_keep_alive(std::function<void(const std::string&)> hook) {
  const std::lock_guard lock(mutex_);
  keep_alive_hook_ = std::move(hook);
}

void Host::on_create(std::function<void()> hook) {
  const std::lock_guard lock(mutex_);
  create_hook_ = std::move(hook);
}

void Host::on_system(std::function<void(const std::string&)> hook) {
  const std::lock_guard lock(mutex_);
  system_hook_ = std::move(hook);
}

void Host::on_call(std::function<void(const std::string&)> hook) {
  const std::lock_guard lock(mutex_);
  call_hook_ = std::move(hook);
}

void Host::called(const std::string& call) {
  std::unique_lock lock(mutex_);
  calls_.push_back(call);
  changed_.notify_all();
  const auto hook = call_hook_;
  lock.unlock();
  if (hook) {
    hook(call);
  }
}

std::vector<std::string> Host::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

std::optional<Fields> Host::sent(SentMessage message) {
  std::unique_lock lock(mutex_);
  messages_.push_back(message);
  const auto answer = answer_;
  lock.unlock();
  called("send " + message.type);
  return message.synchronous && answer ? answer(message) : std::nullopt;
}

void Host::kept(const std::string& name) {
  std::unique_lock lock(mutex_);
  ++keep_alives_[name];
  const auto hook = keep_alive_hook_;
  lock.unlock();
  called("keep_alive " + name);
  if (hook) {
    hook(name);
  }
}

void Host::logged(DebugLine line) {
  const std::lock_guard lock(mutex_);
  debug_lines_.push_back(std::move(line));
  changed_.notify_all();
}

void Host::created(AuditRecord record) {
  std::unique_lock lock(mutex_);
  const auto hook = create_hook_;
  lock.unlock();
  if (hook) {
    hook();
  }
  lock.lock();
  audit_records_.push_back(std::move(record));
  changed_.notify_all();
}

void Host::ran(const std::string& command) {
  called("system " + command);
  std::unique_lock lock(mutex_);
  const auto hook = system_hook_;
  lock.unlock();
  if (hook) {
    hook(command);
  }
}

std::vector<SentMessage> Host::messages(const std::string& type) const {
  const std::lock_guard lock(mutex_);
  std::vector<SentMessage> found;
  std::ranges::copy_if(messages_, std::back_inserter(found), [&](const auto& message) { return message.type == type; });
  return found;
}

std::vector<SentMessage> Host::messages() const {
  const std::lock_guard lock(mutex_);
  return messages_;
}

std::size_t Host::keep_alives(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto entry = keep_alives_.find(name);
  return entry == keep_alives_.end() ? 0 : entry->second;
}

std::vector<DebugLine> Host::debug_lines() const {
  const std::lock_guard lock(mutex_);
  return debug_lines_;
}

std::vector<std::string> Host::debug_texts() const {
  std::vector<std::string> texts;
  for (const auto& line : debug_lines()) {
    texts.push_back(line.text);
  }
  return texts;
}

std::vector<AuditRecord> Host::audit_records() const {
  const std::lock_guard lock(mutex_);
  return audit_records_;
}

bool Host::wait_until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    // A while at most, as what is waited for may change after the call that announces it, or without one.
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace second_host
