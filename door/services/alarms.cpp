#include "door/services/alarms.h"

#include "refhost/send.h"

namespace achost {
namespace {

void announce(const std::string& name, const std::string& text, bool stands) {
  refhost::send("alarm", {{"name", name}, {"text", text}, {"standing", stands ? 1 : 0}});
}

}  // namespace

void Alarms::raise(const std::string& name, const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (const auto found = texts_.find(name); found != texts_.end() && found->second == text) {
    return;
  }
  texts_[name] = text;
  announce(name, text, true);
}

void Alarms::clear(const std::string& name) {
  const std::lock_guard lock(mutex_);
  if (const auto found = texts_.find(name); found != texts_.end()) {
    announce(name, found->second, false);
    texts_.erase(found);
  }
}

std::vector<Alarm> Alarms::standing() const {
  const std::lock_guard lock(mutex_);
  std::vector<Alarm> result;
  for (const auto& [name, text] : texts_) {
    result.push_back({name, text});
  }
  return result;
}

}  // namespace achost
