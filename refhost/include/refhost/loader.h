// Loading plug-ins.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "refhost/subscriber.h"

namespace refhost {

// A plug-in that could not be loaded or did not start. what() is one line that names the file.
class LoadError : public std::runtime_error {
 public:
  enum class Stage {
    load,   // the file is no plug-in that this host can load
    start,  // its init() reported a failure
  };

  LoadError(Stage stage, const std::string& text) : std::runtime_error(text), stage_(stage) {}

  Stage stage() const { return stage_; }

 private:
  Stage stage_;
};

// Messages that a plug-in gets on a delivery thread of their own, past whatever else its handlers wait for.
struct Lane {
  std::string name;                // the thread's is PLUGIN:NAME
  std::vector<std::string> types;  // of messages
};

// A plug-in whose init() returned true. It stays in the process until its end: its threads never stop.
struct LoadedPlugin {
  std::string path;
  std::string name;        // as it named itself, else the path
  int (*run)() = nullptr;  // its main function
  // Its mailboxes, one for each lane and one for the rest; they deliver from the moment of loading.
  std::vector<std::unique_ptr<Subscriber>> subscribers;
};

// Whether there is a file at that path, the path is absolute, and nobody can replace the file who cannot replace this
// program; load() does it too. Throws LoadError.
void check_plugin_path(const std::string& path);

// Load the shared object at an absolute path and call its init() on this thread. Throws LoadError.
LoadedPlugin load(const std::string& path, const std::vector<Lane>& lanes = {});

// Call the plug-in's main function on this thread. It should never return; how it ended all the same, as one line that
// names the plug-in, is the result.
std::string run_until_it_ends(const LoadedPlugin& plugin);

}  // namespace refhost
