// Chapter 1, and the beginning of chapter 2: whether it can be used at all.
#include <dlfcn.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

#include "dynamic_symbols.h"
#include "notes.h"
#include "scenes.h"

namespace plugincheck {
namespace {

// What belongs to the process as a whole, in words.
std::map<std::string, std::string> process_state() {
  std::map<std::string, std::string> state;
  const mode_t mask = umask(0);
  umask(mask);
  state["the umask"] = std::to_string(mask);
  state["the working directory"] = std::filesystem::current_path();
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  for (int number = 1; number < SIGRTMIN; ++number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    state["the handling of signal " + std::to_string(number)] =
        std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) +
        (sigismember(&blocked, number) == 1 ? " blocked" : "");
  }
  return state;
}

void compare_process(const std::map<std::string, std::string>& before) {
  for (const auto& [what, value] : process_state()) {
    if (before.at(what) != value) {
      Notes::found("1.7", what + " has changed");
    }
  }
}

// A name in an executable that loads it counts, too: a host exports what a plug-in asks it for.
void look_for_collisions(const DynamicSymbols& symbols) {
  for (const auto& name : symbols.exports) {
    if (dlsym(RTLD_DEFAULT, name.c_str()) != nullptr) {
      Notes::found("1.3", "it exports " + demangled(name));
    }
  }
}

void look_at_libraries(const DynamicSymbols& symbols) {
  constexpr auto kUsual = std::to_array<std::string_view>(
      {"libc.so", "libstdc++.so", "libm.so", "libgcc_s.so", "ld-linux", "libasan.so", "libubsan.so", "libtsan.so"});
  for (const auto& library : symbols.libraries) {
    if (std::ranges::none_of(kUsual, [&](auto usual) { return library.starts_with(usual); })) {
      Notes::found("1.5", "it needs " + library);
    }
  }
}

void look_for_exports(void* handle) {
  constexpr auto kWanted = std::to_array<const char*>({"run",
                                                       "_Z14setWorkChannelv",
                                                       "trigAntiesmagGPIO",
                                                       "watchdogTimeout",
                                                       "tagDetectorTagPresentTimeout",
                                                       "tagDetectorRelayGPIO",
                                                       "probeInterval",
                                                       "tagDetectorEnabled",
                                                       "tagDetectorValue",
                                                       "uhf_operation_mode_",
                                                       "trigger_idle_",
                                                       "trigger_timeout_",
                                                       "same_tag_timeout_",
                                                       "different_tag_timeout_",
                                                       "lastTriggerTimePoint",
                                                       "lastTriggerTimePointMutex",
                                                       "cardsReadMutex_",
                                                       "db_create_mutex",
                                                       "lastCardsRead_",
                                                       "lastCardsSent_",
                                                       "enqueuer",
                                                       "t640_module"});
  for (const auto* const name : kWanted) {
    if (dlsym(handle, name) == nullptr) {
      Notes::found("1.6", "it does not export " + demangled(name));
    }
  }
}

std::string readable(std::string text) {
  constexpr std::string_view kMissing = "undefined symbol: ";
  if (const auto found = text.find(kMissing); found != std::string::npos) {
    const auto symbol = text.substr(found + kMissing.size());
    return "the interface has no " + demangled(symbol.substr(0, symbol.find_first_of(", ")));
  }
  return text;
}

void load(const Plan& plan) {
  int sent = 0;
  const refhost::BusTap tap([&sent](const ac::Message&) { ++sent; });
  DynamicSymbols symbols;
  try {
    symbols = dynamic_symbols_of(plan.file);
  } catch (const std::exception& failure) {
    Notes::found("1.1", failure.what());
    return;
  }
  Notes::examine({"1.3", "1.5"});
  look_for_collisions(symbols);
  look_at_libraries(symbols);
  Notes::examine({"1.1", "1.4", "1.7"});
  const auto threads = threads_of_process().size();
  const auto before = process_state();
  void* const handle = dlopen(plan.file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    Notes::found("1.1", readable(dlerror()));
    return;
  }
  if (threads_of_process().size() > threads || sent > 0) {
    Notes::found("1.4", sent > 0 ? "it sent a message" : "it started a thread");
  }
  compare_process(before);
  Notes::examine({"1.2", "1.6"});
  if (dlsym(handle, "init") == nullptr) {
    Notes::found("1.2", "there is no init");
  }
  look_for_exports(handle);
}

void start(const Plan& plan) {
  Stage& stage = *new Stage(plan, {});
  const auto before = process_state();
  Notes::look_at({"2.2", "2.4", "2.7", "2.8", "2.9", "2.10"});
  const auto outcome = stage.init();
  if (!outcome.started) {
    Notes::found("2.1", "it failed: " + outcome.text);
    return;
  }
  auto after = process_state();
  const std::string guard = "the handling of signal " + std::to_string(SIGSEGV);
  Notes::examine({"1.7"});
  auto expected = before;
  expected[guard] = after.at(guard);  // the check's own
  compare_process(expected);
}

}  // namespace

std::vector<Scene> loading_scenes() {
  return {{"load", {"1.1"}, load, Scene::Act::loading}, {"start", {"2.1"}, start, Scene::Act::starting}};
}

}  // namespace plugincheck
