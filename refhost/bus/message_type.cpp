#include "bus/message_type.h"

#include <array>
#include <functional>
#include <mutex>

namespace refhost {
namespace {

// Lists of types by the hash of their names. Types are put in front and stay, so that a reader needs no lock.
using Heads = std::array<std::atomic<MessageType*>, 256>;
constinit Heads heads{};

std::mutex adding;  // held while a type is put into its list

std::atomic<MessageType*>& head_of(std::string_view name) {
  // Names are few: their length and two letters keep most of them apart.
  const std::size_t letters =
      name.empty() ? 0
                   : static_cast<unsigned char>(name.back()) * 31U + static_cast<unsigned char>(name[name.size() / 2]);
  return heads[(letters * 31 + name.size()) % heads.size()];
}

}  // namespace

MessageType* MessageType::find(std::string_view name) {
  MessageType* type = head_of(name).load(std::memory_order_acquire);
  while (type != nullptr && type->name != name) {
    type = type->next_;
  }
  return type;
}

MessageType& MessageType::of(std::string_view name) {
  const std::lock_guard lock(adding);
  if (MessageType* const known = find(name)) {
    return *known;
  }
  auto& head = head_of(name);
  auto* const type = new MessageType(name);  // NOLINT(cppcoreguidelines-owning-memory): never destroyed
  type->next_ = head.load(std::memory_order_relaxed);
  head.store(type, std::memory_order_release);
  return *type;
}

}  // namespace refhost
