// Those who look on at the line.
#pragma once

#include <list>
#include <memory>
#include <mutex>

#include "line/line.h"

namespace line {

// Any thread may call.
class Onlookers {
 public:
  Onlookers();
  ~Onlookers();

  std::unique_ptr<Onlooker> add();

  // Show everybody a piece. It costs nothing while nobody looks on.
  void show(Clock::time_point at, Direction direction, ByteView bytes);

 private:
  class Queue;
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace line
