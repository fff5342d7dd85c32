// What lies before the reader, for who stands there with a card.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "door/control/control.h"
#include "door/why/sighting.h"
#include "line/field.h"
#include "refhost/settings_store.h"

namespace achost {

// Looks on at the line from its making on. One thread uses it.
class FieldWatch {
 public:
  // window: of the polls that count.
  FieldWatch(line::Line& line, const refhost::SettingsStore& settings, std::chrono::milliseconds window);

  // Take what comes within that time: all that is there, or the first that comes.
  void wait(std::chrono::milliseconds longest);

  // The EPCs of the tags, in their order.
  std::vector<line::Bytes> epcs();

  // {"polls", "tags": [{"epc", "card", "rssi", "share" (of the polls), "read_at" (ms since 1970 UTC)}]}.
  Json seen();

 private:
  const refhost::SettingsStore& settings_;
  const std::unique_ptr<line::Onlooker> onlooker_;
  line::Field field_;
};

// Sends a line {"field"} at once when a tag comes or goes, and else some times a second, until the client goes: what
// FieldWatch::seen() says with each tag's "reason" of late, and {"power", "most", "region", "trial_s"} in "radio".
Json follow_field(line::Line& line, const refhost::SettingsStore& settings,
                  const std::function<std::vector<why::ToldSighting>()>& sightings, ControlStream& stream);

}  // namespace achost
