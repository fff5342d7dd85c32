#include "notes.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <exception>

namespace plugincheck {
namespace {

std::atomic<int> notes_descriptor = -1;  // set before the plug-in is loaded
std::atomic<bool> may_end = false;       // any thread

// In one call, so that the lines of several threads do not mix; the pipe takes as much as this whole.
void note(std::string line) {
  constexpr std::size_t kLongest = 1000;
  std::ranges::replace_if(
      line, [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  line.resize(std::min(line.size(), kLongest));
  line += '\n';
  if (write(notes_descriptor, line.data(), line.size()) < 0) {
    _exit(1);  // nobody listens any more
  }
}

std::string line_of(std::string line, std::initializer_list<ClauseId> clauses) {
  for (const auto id : clauses) {
    line.append(" ").append(id.clause().number);
  }
  return line;
}

[[noreturn]] void tell_of_uncaught() {
  if (may_end) {
    Notes::end();
  }
  std::string text = "an exception that nobody caught";
  try {
    if (const auto current = std::current_exception()) {
      std::rethrow_exception(current);
    }
  } catch (const std::exception& failure) {
    text += std::string(" (") + failure.what() + ")";
  } catch (...) {
    text += " (of no known type)";
  }
  note("ended " + text);
  _exit(1);
}

}  // namespace

void Notes::to(int descriptor) {
  notes_descriptor = descriptor;
  std::set_terminate(tell_of_uncaught);
}

void Notes::examine(std::initializer_list<ClauseId> clauses) { note(line_of("examine", clauses)); }

void Notes::look_at(std::initializer_list<ClauseId> clauses) { note(line_of("look-at", clauses)); }

void Notes::found(ClauseId id, const std::string& text) {
  note("found " + std::string(id.clause().number) + " " + text);
}

void Notes::leave_out(ClauseId id, const std::string& reason) {
  note("left-out " + std::string(id.clause().number) + " " + reason);
}

void Notes::end() {
  note("done");
  _exit(0);
}

void Notes::let_it_end() { may_end = true; }

}  // namespace plugincheck
