#include "line/onlookers.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <utility>

namespace line {
namespace {

constexpr std::size_t kMostWaiting = 1U << 20U;  // bytes

}  // namespace

struct Onlookers::Shared {
  std::atomic<int> count = 0;  // of the queues; read without the lock
  std::mutex mutex;            // guards all below, and what the queues hold
  std::list<Queue*> queues;
};

class Onlookers::Queue : public Onlooker {
 public:
  explicit Queue(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {
    const std::lock_guard lock(shared_->mutex);
    shared_->queues.push_back(this);
    ++shared_->count;
  }

  ~Queue() override {
    const std::lock_guard lock(shared_->mutex);
    shared_->queues.remove(this);
    --shared_->count;
  }

  std::optional<Piece> next(std::chrono::milliseconds timeout) override {
    std::unique_lock lock(shared_->mutex);
    if (!came_.wait_for(lock, timeout, [this] { return !pieces_.empty(); })) {
      return std::nullopt;
    }
    Piece piece = std::move(pieces_.front());
    pieces_.pop_front();
    waiting_ -= piece.bytes.size() + sizeof piece;
    return piece;
  }

  std::uint64_t dropped() const override {
    const std::lock_guard lock(shared_->mutex);
    return dropped_;
  }

  // With the lock held.
  void put(Clock::time_point at, Direction direction, ByteView bytes) {
    if (waiting_ + bytes.size() + sizeof(Piece) > kMostWaiting) {
      dropped_ += bytes.size();
      return;
    }
    waiting_ += bytes.size() + sizeof(Piece);
    pieces_.push_back({.at = at, .direction = direction, .bytes = Bytes(bytes.begin(), bytes.end())});
    came_.notify_one();
  }

 private:
  const std::shared_ptr<Shared> shared_;
  std::condition_variable came_;
  // With the lock held:
  std::deque<Piece> pieces_;
  std::size_t waiting_ = 0;  // bytes
  std::uint64_t dropped_ = 0;
};

Onlookers::Onlookers() : shared_(std::make_shared<Shared>()) {}
Onlookers::~Onlookers() = default;

std::unique_ptr<Onlooker> Onlookers::add() { return std::make_unique<Queue>(shared_); }

void Onlookers::show(Clock::time_point at, Direction direction, ByteView bytes) {
  if (shared_->count.load(std::memory_order_relaxed) == 0) {
    return;
  }
  const std::lock_guard lock(shared_->mutex);
  for (Queue* const queue : shared_->queues) {
    queue->put(at, direction, bytes);
  }
}

}  // namespace line
