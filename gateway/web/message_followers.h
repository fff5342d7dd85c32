// Where each of those who look on at the messages of the door's bus has got to.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/web/http.h"
#include "gateway/web/onlookers.h"

namespace web {

// One question to the daemon serves all: it begins behind the message that the last of them has, and each gets those
// that he has not had. Told as events "message", and "gap" for what cannot be had; each has an id, from which its
// onlooker goes on when he comes back. One thread uses it.
class MessageFollowers {
 public:
  // last_event: the id of the last that he has had; empty: he begins with what passes. Whether the daemon is to be
  // asked anew, as it is past what he has not had.
  bool add(const std::shared_ptr<Onlooker>& onlooker, std::string_view last_event);

  void remove(const std::shared_ptr<Onlooker>& onlooker);

  // The request that goes on from here; what was asked before is over.
  Json request();

  // Hands on what a line of the daemon's "events" tells. False when the daemon is to be asked anew.
  bool take(const Json& line);

 private:
  // A message that he has had, with all before it.
  struct Place {
    std::string run;  // of the daemon
    std::int64_t number = 0;
  };
  using Places = std::map<std::shared_ptr<Onlooker>, std::optional<Place>>;  // nothing: he begins with what passes

  void begin_at(Places::value_type& one);
  bool begin(const Json& line);
  void tell(const std::function<std::string(std::int64_t)>& text_behind);

  Places places_;
  // Of the question under way, once the daemon has begun to answer it.
  bool is_told_ = false;
  std::string run_;
  std::int64_t at_ = 0;      // it has told up to here
  std::int64_t newest_ = 0;  // that there was when it began
};

}  // namespace web
