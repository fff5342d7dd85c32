// Who is connected: a bounded number.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <utility>

namespace web {

// When all places are taken, whoever has waited longest without asking for anything goes: first those who have no
// session, so that a crowd of strangers keeps nobody out. One thread uses it.
class Places {
 public:
  struct Place {
    std::function<void()> end;  // the connection
    bool waits = true;          // for a request, or the rest of it
    bool is_known = false;      // has had a session
  };
  using Handle = std::list<Place>::iterator;

  explicit Places(std::size_t most) : most_(most) {}

  // Whether there is room, or somebody has been sent away for it.
  bool make_room();

  Handle take(std::function<void()> end) { return places_.insert(places_.end(), Place{.end = std::move(end)}); }
  void leave(Handle place) { places_.erase(place); }

  // It waits again, the last of all.
  void wait(Handle place);

  std::size_t taken() const { return places_.size(); }

 private:
  const std::size_t most_;
  std::list<Place> places_;  // the longest wait first
};

}  // namespace web
