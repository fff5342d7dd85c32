#include "bus_ways.h"

#include <zmq.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ac/message.h"
#include "ac/post_office.h"
#include "refhost/subscriber.h"

namespace {

// As the plug-in sends it, and as the host's services read it.
class Bus final : public Way {
 public:
  void send(const Identification& identification) override {
    auto message = std::make_unique<ac::Message>("identifier_new_card");
    message->add_int("identifier_id", identification.identifier_id);
    message->add_int64("value", identification.value);
    message->add_int64("device_id", identification.device_id);
    message->add_int("readings_count", identification.readings_count);
    message->add_string("uuid", identification.uuid);
    ac::PostOffice::send_message(std::move(message));
  }

 private:
  void take(const ac::Message& message) const {
    Identification seen{};
    if (!message.get_int("identifier_id", &seen.identifier_id) || !message.get_int64("value", &seen.value) ||
        !message.get_int64("device_id", &seen.device_id) || !message.get_int("readings_count", &seen.readings_count) ||
        !message.get_string("uuid", &seen.uuid)) {
      throw std::runtime_error("a field is missing");
    }
    received(seen);
  }

  refhost::Subscriber subscriber_{
      "bench", {{.type = "identifier_new_card", .handler = [this](ac::Message* m) { take(*m); }, .flag = false}}};
};

// The fields as one block of memory, which is the least there is to hand over.
struct Block {
  std::int64_t value;
  std::int64_t device_id;
  int identifier_id;
  int readings_count;
  std::array<char, 36> uuid;

  static constexpr int kEnd = -1;  // as the identifier: no more will come
};

Block block_of(const Identification& identification) {
  Block block{.value = identification.value,
              .device_id = identification.device_id,
              .identifier_id = identification.identifier_id,
              .readings_count = identification.readings_count,
              .uuid = {}};
  identification.uuid.copy(block.uuid.data(), block.uuid.size());
  return block;
}

Identification read(const Block& block) {
  return {.identifier_id = block.identifier_id,
          .value = block.value,
          .device_id = block.device_id,
          .readings_count = block.readings_count,
          .uuid = std::string(block.uuid.data(), block.uuid.size())};
}

const Identification kLast{.identifier_id = Block::kEnd, .value = 0, .device_id = 0, .readings_count = 0, .uuid = {}};

class PlainQueue final : public Way {
 public:
  ~PlainQueue() override { PlainQueue::send(kLast); }
  void send(const Identification& identification) override {
    const Block block = block_of(identification);
    bool was_empty = false;
    {
      const std::lock_guard lock(mutex_);
      was_empty = waiting_.empty();
      waiting_.push_back(block);
    }
    if (was_empty) {
      filled_.notify_one();
    }
  }

 private:
  void run() {
    for (std::vector<Block> taken;; taken.clear()) {
      std::unique_lock lock(mutex_);
      filled_.wait(lock, [&] { return !waiting_.empty(); });
      taken.swap(waiting_);
      lock.unlock();
      for (const Block& block : taken) {
        if (block.identifier_id == Block::kEnd) {
          return;
        }
        received(read(block));
      }
    }
  }

  // Not on a cache line that the receiver reads for each message.
  alignas(64) std::mutex mutex_;  // guards waiting_
  std::condition_variable filled_;
  std::vector<Block> waiting_;
  std::jthread thread_{[this] { run(); }};
};

class ZeroMq final : public Way {
 public:
  ZeroMq() {
    for (void* const end : {sender_, receiver_}) {
      const int unbounded = 0;
      zmq_setsockopt(end, ZMQ_SNDHWM, &unbounded, sizeof unbounded);
      zmq_setsockopt(end, ZMQ_RCVHWM, &unbounded, sizeof unbounded);
    }
    if (zmq_bind(receiver_, "inproc://bench") != 0 || zmq_connect(sender_, "inproc://bench") != 0) {
      throw std::runtime_error("ZeroMQ gives no pair");
    }
    thread_ = std::thread([this] { run(); });
  }
  ~ZeroMq() override {
    ZeroMq::send(kLast);
    thread_.join();
    zmq_close(sender_);
    zmq_close(receiver_);
    zmq_ctx_term(context_);
  }
  void send(const Identification& identification) override {
    const Block block = block_of(identification);
    zmq_send(sender_, &block, sizeof block, 0);
  }

 private:
  void run() {
    for (Block block{}; zmq_recv(receiver_, &block, sizeof block, 0) == sizeof block;) {
      if (block.identifier_id == Block::kEnd) {
        return;
      }
      received(read(block));
    }
  }

  void* const context_ = zmq_ctx_new();
  void* const sender_ = zmq_socket(context_, ZMQ_PAIR);
  void* const receiver_ = zmq_socket(context_, ZMQ_PAIR);
  std::thread thread_;
};

}  // namespace

std::unique_ptr<Way> bus() { return std::make_unique<Bus>(); }
std::unique_ptr<Way> plain_queue() { return std::make_unique<PlainQueue>(); }
std::unique_ptr<Way> zero_mq() { return std::make_unique<ZeroMq>(); }
