// What the plug-in calls, recorded; messages and the reading of settings are those of the example of a host.
#include <atomic>
#include <cstring>

#include "ac/config_util.h"
#include "ac/post_office.h"
#include "ac/util.h"
#include "ac/vexlog.h"
#include "ac/watchdog.h"
#include "ac_dal/audit_logs.h"
#include "ac_dal/device.h"
#include "host.h"
#include "second_host.h"

using second_host::host;

namespace {

second_host::SentMessage content_of(const ac::Message& message, bool synchronous) {
  const auto& impl = ac::Message::Impl::of(message);
  return {impl.type, impl.argument, impl.callback != nullptr, synchronous, impl.fields};
}

}  // namespace

void example::called(const std::string& call) { host().called(call); }

std::optional<std::string> example::setting(const std::string& section, const std::string& key) {
  return host().get(section, key);
}

void example::keep_setting(const std::string& section, const std::string& key, const std::string& value) {
  host().write(section, key, value);
}

namespace ac {

void PostOffice::send_message(std::unique_ptr<Message> message) { host().sent(content_of(*message, false)); }

void PostOffice::send_message_sync(std::unique_ptr<Message> message) {
  auto answer = host().sent(content_of(*message, true));
  if (auto* const reply = Message::Impl::of(*message).reply; reply != nullptr) {
    MessageReply::Impl::of(*reply).answer = std::move(answer);
  }
}

int config_util::relay_gpio(int relay) {
  host().called("relay_gpio " + std::to_string(relay));
  return 100 + relay;
}

void config_util::relay_enabled(int relay, bool enabled) {
  host().called("relay_enabled " + std::to_string(relay) + " " + (enabled ? "true" : "false"));
}

void watchdog::keep_alive(const std::string& name) { host().kept(name); }

void util::set_thread_name(const std::string& name, pthread_t thread) {
  host().called("set_thread_name " + name + " " + (pthread_equal(thread, pthread_self()) != 0 ? "true" : "false"));
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

const ac::Plugin::Impl& record_of(const ac::Plugin& plugin) { return ac::Plugin::Impl::of(plugin); }

const Listeners& listeners_of(const ac::MessageEnqueuer& queue) {
  return ac::MessageEnqueuer::Impl::of(queue).listeners;
}

std::unique_ptr<ac::Message> make_message(const std::string& type, const Fields& fields) {
  auto message = std::make_unique<ac::Message>(type);
  ac::Message::Impl::of(*message).fields = fields;
  return message;
}

bool is_handled(const ac::Message& message) { return ac::Message::Impl::of(message).handled; }

}  // namespace second_host
