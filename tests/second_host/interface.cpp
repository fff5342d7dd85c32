// The host interface, defined once more.
#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <sstream>

#include "ac/config.h"
#include "ac/config_util.h"
#include "ac/exception.h"
#include "ac/message_enqueuer.h"
#include "ac/plugin.h"
#include "ac/post_office.h"
#include "ac/util.h"
#include "ac/vexlog.h"
#include "ac/watchdog.h"
#include "ac_dal/audit_logs.h"
#include "ac_dal/device.h"
#include "second_host.h"

using second_host::Fields;
using second_host::host;

namespace {

std::string text(bool flag) { return flag ? "true" : "false"; }

template <class T>
bool find(const Fields& fields, const std::string& name, T* value) {
  for (const auto& [field, content] : fields) {
    if (const auto* found = std::get_if<T>(&content); field == name && found != nullptr) {
      *value = *found;
      return true;
    }
  }
  return false;
}

std::optional<int> to_int(const std::string& digits) {
  int value = 0;
  const auto* const end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, value);
  return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

}  // namespace

namespace ac {

struct MessageReply::Impl {
  std::optional<Fields> answer;
  static Impl& of(MessageReply& reply) { return *reply.impl_; }
};

MessageReply::MessageReply() : impl_(std::make_unique<Impl>()) {}
MessageReply::~MessageReply() = default;
bool MessageReply::replied() const { return impl_->answer.has_value(); }
bool MessageReply::get_int(std::string name, int* value) const {
  return replied() && find(*impl_->answer, name, value);
}
bool MessageReply::get_int64(std::string name, std::int64_t* value) const {
  return replied() && find(*impl_->answer, name, value);
}
bool MessageReply::get_string(std::string name, std::string* value) const {
  return replied() && find(*impl_->answer, name, value);
}

struct Message::Impl {
  second_host::SentMessage content;
  MessageReply* reply = nullptr;
  bool handled = false;
  MessageEnqueuer* next_queue = nullptr;
  static Impl& of(Message& message) { return *message.impl_; }
  static const Impl& of(const Message& message) { return *message.impl_; }
};

Message::Message(const std::string& type, int argument, ReplyCallback callback)
    : impl_(std::make_unique<Impl>(Impl{.content = {type, argument, callback != nullptr, false, {}}})) {}
Message::~Message() = default;
void Message::add_int(const std::string& name, int value) { impl_->content.fields.emplace_back(name, value); }
void Message::add_int64(const std::string& name, std::int64_t value) {
  impl_->content.fields.emplace_back(name, value);
}
void Message::add_string(const std::string& name, const std::string& value) {
  impl_->content.fields.emplace_back(name, value);
}
bool Message::get_int(std::string name, int* value) const { return find(impl_->content.fields, name, value); }
bool Message::get_int64(std::string name, std::int64_t* value) const {
  return find(impl_->content.fields, name, value);
}
bool Message::get_string(std::string name, std::string* value) const {
  return find(impl_->content.fields, name, value);
}
const std::string& Message::type() const { return impl_->content.type; }
void Message::set_reply(MessageReply* reply) { impl_->reply = reply; }
void Message::set_handled() {
  host().called("set_handled " + type());
  impl_->handled = true;
}
void Message::transfer(MessageEnqueuer* queue) {
  host().called("transfer " + type());
  impl_->next_queue = queue;
}

struct MessageEnqueuer::Impl {
  second_host::Listeners listeners;  // set before process(); read by its thread
  std::mutex mutex;                  // guards waiting
  std::condition_variable filled;
  std::deque<std::unique_ptr<Message>> waiting;
  static Impl& of(MessageEnqueuer& queue) { return *queue.impl_; }
  static const Impl& of(const MessageEnqueuer& queue) { return *queue.impl_; }

  void put(std::unique_ptr<Message> message) {
    const std::lock_guard lock(mutex);
    waiting.push_back(std::move(message));
    filled.notify_one();
  }

  // Null when none comes in that time.
  std::unique_ptr<Message> take(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex);
    if (!filled.wait_for(lock, timeout, [this] { return !waiting.empty(); })) {
      return nullptr;
    }
    auto message = std::move(waiting.front());
    waiting.pop_front();
    return message;
  }
};

MessageEnqueuer::MessageEnqueuer() : impl_(std::make_unique<Impl>()) {}
MessageEnqueuer::~MessageEnqueuer() = default;
void MessageEnqueuer::listen(const MessageListener* listeners, std::size_t count) {
  impl_->listeners.assign(listeners, listeners + count);
  for (const auto& listener : impl_->listeners) {
    host().called("listen " + listener.type + " " + text(listener.flag));
  }
}
void MessageEnqueuer::process(int timeout_ms, const std::function<void()>& on_timeout) {
  host().called("process " + std::to_string(timeout_ms));
  for (;;) {
    auto message = impl_->take(std::chrono::milliseconds(timeout_ms));
    if (message == nullptr) {
      on_timeout();
      continue;
    }
    const std::string type = message->type();
    try {
      second_host::deliver(impl_->listeners, std::move(message));
    } catch (const std::exception& failure) {
      host().called("failed " + type + ": " + failure.what());
    }
  }
}

struct Plugin::Impl {
  second_host::PluginRecord record;
  static const Impl& of(const Plugin& plugin) { return *plugin.impl_; }
};

Plugin::Plugin() : impl_(std::make_unique<Impl>()) {}
Plugin::~Plugin() = default;
void Plugin::set_name(const std::string& name) {
  impl_->record.name = name;
  host().called("set_name " + name);
}
void Plugin::set_run(int (*run)()) {
  impl_->record.run = run;
  host().called("set_run");
}
void Plugin::add_messages_interested(const MessageListener* listeners, std::size_t count) {
  impl_->record.interested.assign(listeners, listeners + count);
  for (const auto& listener : impl_->record.interested) {
    host().called("interested " + listener.type + " " + text(listener.flag));
  }
}

void PostOffice::send_message(std::unique_ptr<Message> message) { host().sent(Message::Impl::of(*message).content); }

void PostOffice::send_message_sync(std::unique_ptr<Message> message) {
  auto& impl = Message::Impl::of(*message);
  impl.content.synchronous = true;
  auto answer = host().sent(impl.content);
  if (impl.reply != nullptr) {
    MessageReply::Impl::of(*impl.reply).answer = std::move(answer);
  }
}

bool config::get_param(const std::string& section, const std::string& key, std::string& value, bool flag) {
  host().called("get_param " + section + " " + key + " " + text(flag));
  const auto stored = host().get(section, key);
  if (stored) {
    value = *stored;
  }
  return stored.has_value();
}

void config::set_param(const std::string& section, const std::string& key, const std::string& value, bool flag) {
  host().called("set_param " + section + " " + key + " " + value + " " + text(flag));
  host().write(section, key, value);
}

int config_util::get_int(const std::string& section, const std::string& key, bool required) {
  host().called("get_int " + section + " " + key + " " + text(required));
  const auto value = to_int(host().get(section, key).value_or(""));
  if (!value && required) {
    throw ac_exception("Missing setting " + key, true);
  }
  return value.value_or(0);
}

std::vector<int> config_util::get_int_range(const std::string& section, const std::string& key, bool required) {
  host().called("get_int_range " + section + " " + key + " " + text(required));
  std::vector<int> numbers;
  std::istringstream ranges(host().get(section, key).value_or(""));
  for (std::string range; std::getline(ranges, range, ';');) {
    const auto hyphen = range.find('-');
    const int first = to_int(range.substr(0, hyphen)).value();
    const int last = hyphen == std::string::npos ? first : to_int(range.substr(hyphen + 1)).value();
    if (std::int64_t{last} - first > 0xFFFF) {
      throw ac_exception("Range too large: " + range, true);
    }
    for (int number = first; number <= last; ++number) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

void config_util::set_int(int value, const std::string& section, const std::string& key, bool flag) {
  host().called("set_int " + std::to_string(value) + " " + section + " " + key + " " + text(flag));
  host().write(section, key, std::to_string(value));
}

int config_util::relay_gpio(int relay) {
  host().called("relay_gpio " + std::to_string(relay));
  return 100 + relay;
}

void config_util::relay_enabled(int relay, bool enabled) {
  host().called("relay_enabled " + std::to_string(relay) + " " + text(enabled));
}

void watchdog::keep_alive(const std::string& name) { host().kept(name); }

void util::set_thread_name(const std::string& name, pthread_t thread) {
  host().called("set_thread_name " + name + " " + text(pthread_equal(thread, pthread_self()) != 0));
}

int util::system(const char* command) {
  host().ran(command);
  return 0;
}

void util::get_formatted_date_and_time_ms(char* buffer) {
  host().called("get_formatted_date_and_time_ms");
  std::strcpy(buffer, second_host::kNow);
}

std::string util::identifier::generate_new_uuid() {
  static std::atomic<unsigned> count;
  return "uuid-" + std::to_string(++count);
}

void vexlog::debug(const std::string& message, const char* source_file, const char* function, int line) {
  host().logged({message, source_file, function, line});
}

}  // namespace ac

namespace ac_dal {

ac_dao::ac_dao() = default;
ac_dao::~ac_dao() = default;
void ac_dao::create() {}

struct audit_logs::Impl {
  second_host::AuditRecord record{};
};

audit_logs::audit_logs() : impl_(std::make_unique<Impl>()) {}
audit_logs::~audit_logs() = default;
void audit_logs::time(std::string value) { impl_->record.time = std::move(value); }
void audit_logs::type(int value) { impl_->record.type = value; }
void audit_logs::details(std::string value) { impl_->record.details = std::move(value); }
void audit_logs::create() { host().created(impl_->record); }

std::int64_t device::this_id() { return 77; }

}  // namespace ac_dal

namespace second_host {

const PluginRecord& record_of(const ac::Plugin& plugin) { return ac::Plugin::Impl::of(plugin).record; }

const Listeners& listeners_of(const ac::MessageEnqueuer& queue) {
  return ac::MessageEnqueuer::Impl::of(queue).listeners;
}

std::unique_ptr<ac::Message> make_message(const std::string& type, const Fields& fields) {
  auto message = std::make_unique<ac::Message>(type);
  ac::Message::Impl::of(*message).content.fields = fields;
  return message;
}

bool is_handled(const ac::Message& message) { return ac::Message::Impl::of(message).handled; }

void deliver(const Listeners& listeners, std::unique_ptr<ac::Message> message) {
  for (const auto& listener : listeners) {
    if (listener.type == message->type()) {
      listener.handler(message.get());
    }
  }
  if (auto* const queue = ac::Message::Impl::of(*message).next_queue; queue != nullptr) {
    ac::Message::Impl::of(*message).next_queue = nullptr;
    ac::MessageEnqueuer::Impl::of(*queue).put(std::move(message));
  }
}

}  // namespace second_host
