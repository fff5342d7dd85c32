// The smallest whole host: loads a plug-in, says what it announces, and does what is typed.
//
//   example-host SETTINGS PLUGIN
//
// SETTINGS is a file of KEY=VALUE lines. Typed on standard input, KEY=VALUE changes a setting and "rex" presses the
// exit button. With EXAMPLE_VERBOSE in the environment the plug-in's calls and debug lines are shown. Ends on SIGINT
// (Ctrl-C) with status 0, with 1 when the plug-in did not start or has ended, with 2 when called wrongly, with 7
// when a thread hangs.
#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <fstream>
#include <iostream>
#include <mutex>
#include <thread>

#include "host.h"

namespace {

constexpr const char* kSection = "uhf";  // whose settings the file holds

std::mutex mutex;  // guards the two below
std::map<std::string, std::string> settings;
std::map<int, int> lines;  // the levels of inputs and relays; one that nobody has set is 0

void say(const std::string& text) { std::cout << text << std::endl; }

example::Fields level_of(const ac::Message& message) {
  int line = 0;
  message.get_int("gpio", &line);
  const std::lock_guard lock(mutex);
  return {{"value", lines[line]}};
}

void announce_card(ac::Message* message) {
  std::int64_t card = 0;
  message->get_int64("value", &card);
  say("card " + std::to_string(static_cast<std::uint64_t>(card)));
}

void switch_line(ac::Message* message) {
  int line = 0;
  int value = 0;
  message->get_int("gpio", &line);
  message->get_int("value", &value);
  say("line " + std::to_string(line) + " is " + std::to_string(value));
  const std::lock_guard lock(mutex);
  lines[line] = value;
}

// What this host itself does with messages; whoever has a lock moves it here.
const example::Listeners kOwnListeners = {{"identifier_new_card", announce_card, true},
                                          {"gpio_set_value", switch_line, true},
                                          {"actuator_open_door", [](ac::Message*) { say("door opens"); }, true}};

// The place of the = in KEY=VALUE; nothing when the line is none.
std::optional<std::size_t> key_length(const std::string& line) {
  const auto equals = line.find('=');
  return equals == std::string::npos || equals == 0 ? std::nullopt : std::optional(equals);
}

bool read_settings(const char* file) {
  std::ifstream input(file);
  for (std::string line; std::getline(input, line);) {
    const auto length = key_length(line);
    if (length) {
      settings[line.substr(0, *length)] = line.substr(*length + 1);
    } else if (!line.empty() && line[0] != '#') {
      std::cerr << file << ": \"" << line << "\" is not KEY=VALUE\n";
      return false;
    }
  }
  if (!input.eof()) {
    std::cerr << file << " cannot be read\n";
  }
  return input.eof();
}

void read_commands() {
  for (std::string line; std::getline(std::cin, line);) {
    if (const auto length = key_length(line)) {
      example::keep_setting(kSection, line.substr(0, *length), line.substr(*length + 1));
    } else if (line == "rex") {
      example::send("sec_box_rex_changed", {{"active", 0}});
    } else {
      std::cerr << "\"" << line << "\" is neither KEY=VALUE nor rex\n";
    }
  }
}

// The plug-in's threads go on, so nothing may be destroyed under them.
[[noreturn]] void end(const std::string& reason) {
  std::cerr << reason << std::endl;
  _exit(1);
}

[[noreturn]] void run_until_it_ends(int (*run)()) {
  try {
    end("the plug-in has ended: it returned " + std::to_string(run()));
  } catch (const std::exception& failure) {
    end(std::string("the plug-in has ended: ") + failure.what());
  }
}

void start(const char* path) {
  void* const handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  void* const entry = handle == nullptr ? nullptr : dlsym(handle, "init");
  if (entry == nullptr) {
    end(dlerror());
  }
  const auto init = reinterpret_cast<bool (*)(ac::Plugin*, std::string*)>(entry);
  ac::Plugin plugin;
  std::string error;
  if (!init(&plugin, &error)) {
    end("the plug-in did not start: " + error);
  }
  const auto& described = ac::Plugin::Impl::of(plugin);
  auto listeners = kOwnListeners;
  listeners.insert(listeners.end(), described.interested.begin(), described.interested.end());
  example::start_bus(std::move(listeners), {{"gpio_current_state", level_of}});
  example::start_watchdog();
  say(described.name + " runs");
  std::thread(run_until_it_ends, described.run).detach();
}

}  // namespace

std::optional<std::string> example::setting(const std::string& section, const std::string& key) {
  const std::lock_guard lock(mutex);
  const auto found = settings.find(key);
  return section != kSection || found == settings.end() ? std::nullopt : std::optional(found->second);
}

void example::keep_setting(const std::string& section, const std::string& key, const std::string& value) {
  std::unique_lock lock(mutex);
  const std::string previous = std::exchange(settings[key], value);
  lock.unlock();
  send("config_param_set", {{"module", section}, {"param", key}, {"value", value}, {"previous_value", previous}});
}

int main(int count, char** words) {
  if (count != 3) {
    std::cerr << "usage: example-host SETTINGS PLUGIN\n";
    return 2;
  }
  if (!read_settings(words[1])) {
    return 1;
  }
  std::signal(SIGINT, [](int) { _exit(0); });
  start(words[2]);
  read_commands();
  while (pause() != 0) {
  }
}
