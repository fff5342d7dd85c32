#include "refhost/loader.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "loader/plugin_impl.h"
#include "loader/writers.h"

namespace refhost {
namespace {

using InitFunction = bool (*)(ac::Plugin*, std::string*);

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw LoadError(LoadError::Stage::load, "cannot load the plug-in " + path + ": " + reason);
}

std::string demangled(const std::string& symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status),
                                                         &std::free);
  return name == nullptr ? symbol : name.get();
}

// What the dynamic loader reported, without the path that its text begins with and with the name of a missing symbol as
// the programmer wrote it.
std::string readable(std::string text, const std::string& path) {
  constexpr std::string_view kMissing = "undefined symbol: ";
  if (text.starts_with(path + ": ")) {
    text.erase(0, path.size() + 2);
  }
  const auto found = text.find(kMissing);
  if (found == std::string::npos) {
    return text;
  }
  const std::string symbol = text.substr(found + kMissing.size());
  return "this host does not have " + demangled(symbol.substr(0, symbol.find_first_of(", "))) + ", which it needs";
}

// Whoever can put another plug-in there can do all that this process can, unless that is so already, because this
// program is theirs as well.
void check_writers(const std::string& path, const Writers& writers) {
  const auto able_already = walk(std::filesystem::canonical("/proc/self/exe")).writers;
  for (const auto& [who, where] : writers) {
    if (!able_already.contains(who)) {
      std::string reason = who;
      reason += " can put another one there, as " + where;
      refuse(path, reason + " may be written: only root and the user that runs this program may be able to");
    }
  }
}

bool is_file(const Descriptor& opened) {
  struct stat status {};
  return fstat(opened.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// The plug-in, which nobody else can have put there.
Descriptor open_trusted(const std::string& path) {
  if (!path.starts_with('/')) {
    refuse(path, "give its absolute path");
  }
  try {
    Reached reached = walk(path);
    if (!is_file(reached.file)) {
      refuse(path, "there is no such file");
    }
    check_writers(path, reached.writers);
    return std::move(reached.file);
  } catch (const std::system_error& failure) {
    const bool is_missing = failure.code() == std::errc::no_such_file_or_directory;
    refuse(path, is_missing ? "there is no such file" : failure.what());
  }
}

// By its descriptor: what was looked at is what is loaded. The descriptor stays open, since the dynamic loader knows a
// library by its name and would take the next one at the same number for this one.
InitFunction find_init(const std::string& path, Descriptor file) {
  void* const handle = dlopen(file.path().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    refuse(path, readable(dlerror(), file.path()));
  }
  file.release();
  void* const entry = dlsym(handle, "init");
  if (entry == nullptr) {
    refuse(path, "it has no entry \"init\"");
  }
  return reinterpret_cast<InitFunction>(entry);
}

void call_init(InitFunction init, ac::Plugin& plugin, const std::string& path) {
  std::string reason;
  bool started = false;
  try {
    started = init(&plugin, &reason);
  } catch (const std::exception& failure) {
    reason = failure.what();
  } catch (...) {
    reason = "unknown exception";
  }
  if (!started) {
    throw LoadError(LoadError::Stage::start,
                    "the plug-in " + path + " did not start: " + (reason.empty() ? "it gave no reason" : reason));
  }
}

// A handler that sets a reader up which does not answer waits for several of its time-outs.
constexpr int kPatience = 4;

// A mailbox for each lane that has a listener, and one for the others.
std::vector<std::unique_ptr<Subscriber>> subscribe(const std::string& name, std::vector<ac::MessageListener> listeners,
                                                   const std::vector<Lane>& lanes) {
  std::vector<std::unique_ptr<Subscriber>> subscribers;
  for (const Lane& lane : lanes) {
    const auto first = std::stable_partition(listeners.begin(), listeners.end(), [&](const auto& listener) {
      return std::ranges::find(lane.types, listener.type) == lane.types.end();
    });
    if (first != listeners.end()) {
      subscribers.push_back(std::make_unique<Subscriber>(name + ":" + lane.name, std::vector(first, listeners.end())));
      listeners.erase(first, listeners.end());
    }
  }
  subscribers.push_back(std::make_unique<Subscriber>(name, listeners, Subscriber::kDefaultBound, kPatience));
  return subscribers;
}

}  // namespace

void check_plugin_path(const std::string& path) { open_trusted(path); }

LoadedPlugin load(const std::string& path, const std::vector<Lane>& lanes) {
  const InitFunction init = find_init(path, open_trusted(path));
  ac::Plugin plugin;
  call_init(init, plugin, path);
  auto& described = ac::Plugin::Impl::of(plugin);
  if (described.run == nullptr) {
    refuse(path, "its init set no main function (ac::Plugin::set_run)");
  }
  const std::string name = described.name.empty() ? path : described.name;
  return {path, name, described.run, subscribe(name, std::move(described.listeners), lanes)};
}

std::string run_until_it_ends(const LoadedPlugin& plugin) {
  try {
    const int result = plugin.run();
    return "the plug-in " + plugin.name + " ended: its main function returned " + std::to_string(result);
  } catch (const std::exception& failure) {
    return "the plug-in " + plugin.name + " ended: " + failure.what();
  } catch (...) {
    return "the plug-in " + plugin.name + " ended: unknown exception";
  }
}

}  // namespace refhost
