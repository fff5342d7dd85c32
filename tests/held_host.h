// A host as a process of its own, which a test holds up from outside.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "door/control/control.h"
#include "door/tests/process.h"
#include "hold_ups.h"
#include "refhost/tests/support.h"

namespace held {

// Polls; false when it does not come true for long.
bool comes_true(const std::function<bool()>& condition);

// A pipe that is full from the beginning: whoever writes to it without looking waits for ever.
class FullPipe {
 public:
  FullPipe();
  ~FullPipe();
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;

  // Also open in programs that are started now.
  int writer() const { return ends_[1]; }

 private:
  std::array<int, 2> ends_{-1, -1};
};

// One thread of another process, a child's, which does not come out of a call of the kernel while this lives. For the
// thread that makes it.
class StoppedThread {
 public:
  explicit StoppedThread(pid_t thread);
  ~StoppedThread();
  StoppedThread(const StoppedThread&) = delete;
  StoppedThread& operator=(const StoppedThread&) = delete;

  // Wait for the end of its process.
  void await_end();

 private:
  pid_t thread_;
};

// achost with the built plug-in and a simulated reader, and an empty field.
class HeldHost : public testing::Test {
 protected:
  HeldHost();
  ~HeldHost() override;

  // When it returns, the plug-in runs. redirection: of its outputs, as a shell has it.
  void start(const std::vector<std::string>& options = {}, const std::string& redirection = "");

  std::string state() const { return directory_.path() / "state"; }
  achost::test::Achost& host() { return *host_; }

  // The disk below the files whose path begins so does not answer from now on.
  void stall_disk(const std::string& path);
  void let_disk_go() { hold_ups_->disk = false; }
  void fail_memory(bool fails) { hold_ups_->memory = fails; }

  // The process's threads with their names, in the order of their making.
  std::vector<std::pair<pid_t, std::string>> threads() const;

  // What the host answers on a connection of its own.
  achost::Json ask(const achost::Json& request) const;

  // End the process at once, without any notice.
  void kill_host() { host_.reset(); }

 private:
  refhost::test::TemporaryDirectory directory_;
  HoldUps* hold_ups_;
  std::optional<achost::test::Achost> host_;
};

}  // namespace held
