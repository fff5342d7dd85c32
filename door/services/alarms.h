// What is wrong with the door until it is mended.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace achost {

struct Alarm {
  std::string name;  // of what it is about, one word: "disk"
  std::string text;  // one line for a person: what is wrong, and the way out
};

// The alarms that stand. Each change is announced as message "alarm": string "name", string "text", int "standing".
// Any thread may call.
class Alarms {
 public:
  // It stands from now on, with this text; an alarm that stands with the same text already is not announced again.
  void raise(const std::string& name, const std::string& text);

  // It is over, if it stood.
  void clear(const std::string& name);

  // Those that stand, by name.
  std::vector<Alarm> standing() const;

 private:
  mutable std::mutex mutex_;                  // guards texts_, and the order of what is announced
  std::map<std::string, std::string> texts_;  // by name
};

}  // namespace achost
