#include "guarded.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <system_error>

#include "notes.h"

namespace plugincheck {
namespace {

constexpr std::size_t kSize = 4096;  // of both, and a page everywhere: larger ones are guarded as a whole

std::atomic<char*> guarded_page = nullptr;  // set once, when it is taken back

// Another address is a crash like every other: the instruction comes again and ends the process.
void tell_of_use(int number, siginfo_t* info, void* /*context*/) {
  char* const page = guarded_page;
  const auto* const address = static_cast<const char*>(info->si_addr);
  if (page != nullptr && address >= page && address < page + kSize) {
    Notes::found("2.10", "they were used after init() had returned");
    Notes::end();
  }
  signal(number, SIG_DFL);
}

}  // namespace

Guarded::Guarded()
    : page_(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)),
      plugin_(nullptr),
      text_(nullptr) {
  if (page_ == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "memory for init()");
  }
  plugin_ = new (page_) ac::Plugin;
  text_ = new (static_cast<char*>(page_) + kSize / 2) std::string;
}

void Guarded::take_back() {
  std::destroy_at(plugin_);
  std::destroy_at(text_);
  guarded_page = static_cast<char*>(page_);
  struct sigaction action {};
  action.sa_sigaction = tell_of_use;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  mprotect(page_, kSize, PROT_NONE);
}

}  // namespace plugincheck
