#include "door/control/event_ring.h"

#include <algorithm>
#include <cstring>

#include "ac/util.h"
#include "refhost/bus_view.h"

namespace achost {

EventRing::EventRing() : run_(ac::util::identifier::generate_new_uuid()), bytes_(kMostBytes) {}

void EventRing::note(const ac::Message& message) noexcept {
  const std::string_view type = message.type();
  const std::string_view fields = refhost::field_bytes(message);
  const std::size_t whole = sizeof(Head) + type.size() + fields.size();
  const std::size_t size = whole <= kLongest ? whole : 0;
  bool is_awaited = false;
  {
    const std::lock_guard lock(mutex_);
    begins_.at(static_cast<std::size_t>(++newest_) % kMostEvents) = end_;
    oldest_ = std::max(oldest_, newest_ - static_cast<std::int64_t>(kMostEvents) + 1);
    while (end_ + size - begin_of(oldest_) > kMostBytes) {
      ++oldest_;
    }
    if (size != 0) {
      const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
      const Head head{.time = now.time_since_epoch().count(),
                      .type_size = static_cast<std::uint32_t>(type.size()),
                      .fields_size = static_cast<std::uint32_t>(fields.size())};
      put(&head, sizeof head);
      put(type.data(), type.size());
      put(fields.data(), fields.size());
    }
    is_awaited = waiting_ != 0;
  }
  if (is_awaited) {
    come_.notify_all();
  }
}

std::int64_t EventRing::newest() const {
  const std::lock_guard lock(mutex_);
  return newest_;
}

void EventRing::take(std::int64_t after, Part& part, std::chrono::milliseconds longest) {
  std::unique_lock lock(mutex_);
  ++waiting_;
  come_.wait_for(lock, longest, [&] { return newest_ > after; });
  --waiting_;
  part.first_ = std::max(after + 1, oldest_);
  while (part.first_ <= newest_ && begin_of(part.first_) == begin_of(part.first_ + 1)) {
    ++part.first_;
  }
  part.last_ = part.first_ - 1;
  const std::uint64_t begin = begin_of(part.first_);
  std::uint64_t end = begin;
  while (part.last_ < newest_) {
    const std::uint64_t next = begin_of(part.last_ + 2);
    const bool is_enough = part.last_ >= part.first_ && next - begin > kEnough;
    if (next == end || is_enough) {
      break;
    }
    ++part.last_;
    end = next;
  }
  copy(begin, end, part.bytes_.data());
}

// With mutex_ held; of one that is not there yet: the end of those that are.
std::uint64_t EventRing::begin_of(std::int64_t number) const {
  return number > newest_ ? end_ : begins_.at(static_cast<std::size_t>(number) % kMostEvents);
}

// With mutex_ held, at the end. The memory is a ring: what does not fit behind goes on at its beginning.
void EventRing::put(const void* bytes, std::size_t size) {
  const std::size_t at = end_ % kMostBytes;
  const std::size_t before = std::min(size, kMostBytes - at);
  std::memcpy(bytes_.data() + at, bytes, before);
  std::memcpy(bytes_.data(), static_cast<const char*>(bytes) + before, size - before);
  end_ += size;
}

// With mutex_ held.
void EventRing::copy(std::uint64_t from, std::uint64_t to, char* place) const {
  const std::size_t at = from % kMostBytes;
  const std::size_t size = to - from;
  const std::size_t before = std::min(size, kMostBytes - at);
  std::memcpy(place, bytes_.data() + at, before);
  std::memcpy(place + before, bytes_.data(), size - before);
}

void EventRing::Part::for_each(const std::function<void(const Event&)>& see) const {
  const char* place = bytes_.data();
  for (std::int64_t number = first_; number <= last_; ++number) {
    Head head{};
    std::memcpy(&head, place, sizeof head);
    const std::string_view type(place + sizeof head, head.type_size);
    const std::string_view fields(type.end(), head.fields_size);
    see({number, std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(head.time)), type, fields});
    place = fields.end();
  }
}

}  // namespace achost
