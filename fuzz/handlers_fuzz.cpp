// Every message handler of the plug-in, with any fields and any settings in the store.
#include <array>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>

#include "globals.h"
#include "input.h"
#include "memory_line.h"
#include "plugin.h"
#include "private_etc.h"
#include "second_host.h"
#include "uhfsim/reader.h"

using second_host::host;

// In place of the system's, which would wait for every disk of the machine.
extern "C" void __wrap_sync();
extern "C" void __wrap_sync() {}

namespace {

// A reader that answers everything.
class AnsweringLine : public memory_line::Line {
 public:
  bool write(std::span<const unsigned char> bytes) override {
    for (const auto& reply : reader_.feed(bytes)) {
      pending_.insert(pending_.end(), reply.begin(), reply.end());
    }
    return true;
  }

  std::vector<unsigned char> read(std::size_t, std::chrono::milliseconds) override {
    return std::exchange(pending_, {});
  }

 private:
  uhfsim::Field field_;
  uhfsim::Reader reader_{field_, {}};
  std::vector<unsigned char> pending_;
};

constexpr std::array kFields{"type",  "user_id",        "save",    "registration", "user_card",
                             "error", "gpio",           "value",   "active",       "module",
                             "param", "previous_value", "details", "sys_config",   "previous_time"};
constexpr std::array kTexts{"card",
                            "uhf",
                            "0",
                            "1",
                            "region",
                            "AMERICA",
                            "work_channel",
                            "0-10;26-51",
                            "operation_mode",
                            "trigger",
                            "read_interval",
                            "read_interval_diff_tags",
                            "tag_detector_enabled",
                            "transmit_power",
                            "probe_interval",
                            "trig_idle",
                            "trigger_timeout",
                            "inhibit",
                            "usb_port_enabled"};
constexpr std::array kSettings{"region",
                               "transmit_power",
                               "work_channel",
                               "operation_mode",
                               "trig_idle",
                               "trigger_timeout",
                               "read_interval",
                               "read_interval_diff_tags",
                               "tag_detector_enabled",
                               "tag_detector_relay",
                               "probe_interval"};

constexpr std::array MODES{"inhibit", "trigger", "continuous"};

std::string text_of(fuzz::Input& input) {
  return input.below(2) == 0 ? kTexts[input.below(kTexts.size())] : input.text();
}

second_host::Fields fields_of(fuzz::Input& input) {
  second_host::Fields fields;
  for (std::size_t i = input.below(8); i > 0; --i) {
    const std::string name = kFields[input.below(kFields.size())];
    switch (input.below(3)) {
      case 0:
        fields.emplace_back(name, static_cast<int>(input.number()));
        break;
      case 1:
        fields.emplace_back(name, static_cast<std::int64_t>(input.number()));
        break;
      default:
        fields.emplace_back(name, text_of(input));
    }
  }
  return fields;
}

// What the plug-in asked to hear, its queue's part included.
const second_host::Listeners& listeners() {
  static const second_host::Listeners all = [] {
    static AnsweringLine line;
    memory_line::connect(&line);
    host().set("serial_port_path", memory_line::kPath);
    host().set("serial_port_timeout", 100);
    host().set("region", "AMERICA");
    host().set("transmit_power", 2600);
    host().set("trig_gpio", 0);  // what a field has that no input tells
    host().set("watchdog_timeout", 20);
    ac::Plugin plugin;
    std::string error;
    fuzz::require(init(&plugin, &error), error.c_str());
    auto wanted = second_host::record_of(plugin).interested;
    const auto& queued = second_host::listeners_of(enqueuer);
    wanted.insert(wanted.end(), queued.begin(), queued.end());
    std::cerr.rdbuf(nullptr);
    return wanted;
  }();
  return all;
}

// The USB port's file is the machine's own, unless this process may have an /etc of its own.
bool touches_the_machine(const second_host::Fields& fields) {
  static const bool is_private = [] {
    static const PrivateEtc etc;
    std::error_code failure;
    return etc.refusal().empty() && std::filesystem::create_directories("/etc/udev/mount.blacklist.d", failure);
  }();
  return !is_private && std::ranges::any_of(fields, [](const auto& field) {
    const auto* text = std::get_if<std::string>(&field.second);
    return field.first == "param" && text != nullptr && *text == "usb_port_enabled";
  });
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto& all = listeners();
  fuzz::Input input(data, size);
  host().reset();
  host().set("operation_mode", MODES[input.below(MODES.size())]);
  for (int i = 0; i < 16 && !input.empty(); ++i) {
    if (input.below(3) == 0) {
      host().set(kSettings[input.below(kSettings.size())], text_of(input));
      continue;
    }
    const auto& listener = all[input.below(all.size())];
    const auto fields = fields_of(input);
    if (touches_the_machine(fields)) {
      continue;
    }
    try {
      listener.handler(second_host::make_message(listener.type, fields).get());
    } catch (const std::exception&) {  // the host's to handle
    }
  }
  return 0;
}
