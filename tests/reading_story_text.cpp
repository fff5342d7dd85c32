#include <sstream>

#include "reading_story.h"

namespace reading_story {

std::string text_of(const Start& start, const std::vector<Step>& steps) {
  constexpr std::array kNames{"time",      "input", "answer", "notify", "store",       "take",
                              "lose_mode", "bits",  "type",   "pass",   "missed pass", "round"};
  std::ostringstream text;
  text << "start " << start.clock.count() << " ns, level " << start.level << ", read " << start.read_before.count()
       << " ns before;";
  for (std::size_t place = 0; place < kKeys.size(); ++place) {
    text << ' ' << kKeys[place] << '=' << start.settings[place];
  }
  for (const auto& step : steps) {
    text << "\n  " << kNames.at(static_cast<std::size_t>(step.kind));
    if (step.kind == Kind::kStore || step.kind == Kind::kTake) {
      text << ' ' << kKeys.at(static_cast<std::size_t>(step.what));
    } else if (step.kind == Kind::kPass || step.kind == Kind::kMissedPass) {
      text << " tags " << step.what << " in";
    }
    text << ' ' << step.number;
  }
  return text.str();
}

}  // namespace reading_story
