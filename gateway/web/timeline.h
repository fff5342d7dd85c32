// The latest entries of the door's journal, for who comes and for who comes back.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/web/http.h"

namespace web {

// An event as it goes over the line; id: where a browser that comes back goes on.
std::string event_text(const std::string& name, const Json& data, const std::string& id = "");

// Entries are told as events "entry". The event "timeline" comes before others than those that go on from where the
// page was: it empties its list.
class Timeline {
 public:
  static constexpr std::size_t kMost = 200;

  // The request that goes on from here.
  Json request() const;

  // What a line of the daemon's "journal_follow" means to a page that has had all until now; empty: nothing.
  std::string take(const Json& line);

  // What a page needs that has last had an event of that id; "": none.
  std::string since(std::string_view id) const;

 private:
  struct Told {
    std::int64_t number;
    std::string text;
  };

  std::string begin_anew();

  std::string journal_;  // which one: another has other entries of the same numbers
  std::optional<std::int64_t> last_;
  std::deque<Told> entries_;
};

}  // namespace web
