// What the host knows of a loaded plug-in.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "ac/message_listener.h"

namespace ac {

// Made by the host, one for each plug-in, and passed to the plug-in's init(); used during init() only, on its thread,
// so that nothing here takes a lock. None of it fails but for lack of memory.
class Plugin {
 public:
  struct Impl;

  Plugin();
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // The plug-in's name, for logs and for people.
  void set_name(const std::string& name);

  // The plug-in's main function, which the host calls once init() has returned true, on a thread of
  // the host's. One that returns or throws has ended: the host ends the process with a reason.
  void set_run(int (*run)());

  // Subscribe handlers, which the host calls on its own delivery thread when a message of their type arrives. The
  // listeners are copied.
  void add_messages_interested(const MessageListener* listeners, std::size_t count);

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace ac
