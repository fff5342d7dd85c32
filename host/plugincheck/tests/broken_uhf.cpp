// What stands between uhf.so and the host, with one thing broken for each BROKEN_...: the linker sends each call of
// these operations here (--wrap), and those of the real ones to the host.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "ac/message.h"

using std::string;
using MessagePointer = std::unique_ptr<ac::Message>;

// The host's operation, and the one here that stands in its place.
#define INSTEAD(result, name, symbol, ...)                   \
  result real_##name(__VA_ARGS__) __asm__("__real_" symbol); \
  result name(__VA_ARGS__) __asm__("__wrap_" symbol)

#define TEXT "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
INSTEAD(void, send, "_ZN2ac10PostOffice12send_messageESt10unique_ptrINS_7MessageESt14default_deleteIS2_EE",
        MessagePointer);
INSTEAD(string, new_uuid, "_ZN2ac4util10identifier17generate_new_uuidB5cxx11Ev");
INSTEAD(void, keep_alive, "_ZN2ac8watchdog10keep_aliveERK" TEXT, const string&);
INSTEAD(void, name_thread, "_ZN2ac4util15set_thread_nameERK" TEXT "m", const string&, unsigned long);
INSTEAD(std::int64_t, this_id, "_ZN6ac_dal6device7this_idEv");
INSTEAD(void, set_kind, "_ZN6ac_dal10audit_logs4typeEi", void*, int);
INSTEAD(bool, replied, "_ZNK2ac12MessageReply7repliedEv", const ac::MessageReply*);
INSTEAD(bool, reply_int, "_ZNK2ac12MessageReply7get_intE" TEXT "Pi", const ac::MessageReply*, string, int*);
INSTEAD(int, get_int, "_ZN2ac11config_util7get_intERK" TEXT "S8_b", const string&, const string&, bool);
INSTEAD(int, run_plugin, "run");
INSTEAD(bool, get_text, "_ZN2ac6config9get_paramERK" TEXT "S8_RS6_b", const string&, const string&, string&, bool);

namespace {

constexpr std::string_view kCard = "identifier_new_card";

#ifdef LOSES
constexpr std::string_view kLost = LOSES;
#else
constexpr std::string_view kLost = "none of its messages";
#endif

}  // namespace

void send(MessagePointer message) {
  if (message->type() == kLost) {
    return;
  }
#ifdef BROKEN_announces_one
  static std::atomic<bool> has_announced = false;
  if (message->type() == kCard && has_announced.exchange(true)) {
    return;
  }
#endif
#ifdef BROKEN_announces_twice
  if (message->type() == kCard) {
    real_send(std::make_unique<ac::Message>(string(kCard)));
  }
#endif
  real_send(std::move(message));
}

string new_uuid() {
#ifdef BROKEN_same_uuid
  return "0f8fad5b-d9cb-469f-a165-70867728950e";
#else
  return real_new_uuid();
#endif
}

void keep_alive(const string& name) {
#ifdef BROKEN_silent_worker
  if (name == "uhf_worker") {
    return;
  }
#endif
  real_keep_alive(name);
}

void name_thread([[maybe_unused]] const string& name, [[maybe_unused]] unsigned long thread) {
#ifndef BROKEN_unnamed_thread
  real_name_thread(name, thread);
#endif
}

std::int64_t this_id() {
#ifdef BROKEN_wrong_device
  return real_this_id() + 1;
#else
  return real_this_id();
#endif
}

void set_kind(void* record, int kind) {
#ifdef BROKEN_wrong_kind
  kind = 2;
#endif
  real_set_kind(record, kind);
}

bool replied(const ac::MessageReply* reply) {
#ifdef BROKEN_believes_silence
  return real_replied(reply) || true;
#else
  return real_replied(reply);
#endif
}

bool reply_int([[maybe_unused]] const ac::MessageReply* reply, [[maybe_unused]] string name, int* value) {
#if defined(BROKEN_believes_silence) || defined(BROKEN_ignores_answer)
  *value = 0;
  return true;
#else
  return real_reply_int(reply, std::move(name), value);
#endif
}

int get_int(const string& section, const string& key, bool is_required) {
#ifdef BROKEN_requires_nothing
  is_required = false;
#endif
#ifdef BROKEN_ignores_power
  if (key == "transmit_power") {
    return 2600;
  }
#endif
  return real_get_int(section, key, is_required);
}

bool get_text(const string& section, const string& key, string& value, bool flag) {
#ifdef BROKEN_ignores_mode
  if (key == "operation_mode") {
    value = "continuous";
    return true;
  }
#endif
  return real_get_text(section, key, value, flag);
}

int run_plugin() {
#ifdef BROKEN_hides_the_end
  try {
    return real_run_plugin();
  } catch (...) {
    for (;; std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
      real_keep_alive("uhf");
    }
  }
#else
  return real_run_plugin();
#endif
}
