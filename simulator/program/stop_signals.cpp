#include "stop_signals.h"

#include <pthread.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace uhfsim {

StopSignals::StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  struct sigaction hang_up {};
  sigaction(SIGHUP, nullptr, &hang_up);
  // Not under nohup, where a closed terminal is no reason to end. A signal that is blocked would come all the same.
  if (hang_up.sa_handler != SIG_IGN) sigaddset(&signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  descriptor_ = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
  if (fd() < 0) throw std::system_error(errno, std::generic_category(), "waiting for signals");
}

}  // namespace uhfsim
