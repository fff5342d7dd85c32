// The named, typed fields of a message or of an answer, in the order in which they were added.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace refhost {

// Kept as one block of bytes, field after field, within the object as long as they fit: the usual message needs no
// memory of its own. Used by one thread at a time.
class Fields {
 public:
  // The memory of a new message comes out of the cache of the processor that handled an old one. To touch each line of
  // it here makes all of them come at the same time, and not one after the other as they are filled.
  Fields() {
    for (std::size_t line = 0; line < kRoom; line += 64) {
      room_[line] = 0;
    }
  }
  Fields(const Fields& other) { *this = other; }
  Fields& operator=(const Fields& other) {
    if (this != &other) {
      used_ = 0;
      more_ = nullptr;
      other.bytes().copy(room_for(other.bytes().size()), other.bytes().size());
    }
    return *this;
  }

  void add(std::string_view name, int value) {
    std::memcpy(place_for(Kind::integer, name, sizeof value), &value, sizeof value);
  }
  void add(std::string_view name, std::int64_t value) {
    std::memcpy(place_for(Kind::wide_integer, name, sizeof value), &value, sizeof value);
  }
  void add(std::string_view name, std::string_view value) {
    value.copy(place_for(Kind::text, name, value.size()), value.size());
  }

  // The first field of that name and type into *value; false and *value untouched when there is none.
  bool get(std::string_view name, int* value) const { return get(Kind::integer, name, value); }
  bool get(std::string_view name, std::int64_t* value) const { return get(Kind::wide_integer, name, value); }
  bool get(std::string_view name, std::string* value) const { return get(Kind::text, name, value); }

  // All of them as one piece, for for_each_in() of this process; valid until one is added.
  std::string_view bytes() const { return more_ == nullptr ? std::string_view(room_.data(), used_) : *more_; }

  // Call see(name, value) for each, with an int, a std::int64_t or a std::string.
  template <typename See>
  void for_each(const See& see) const {
    for_each_in(bytes(), see);
  }

  // The same for those whose bytes() these are.
  template <typename See>
  static void for_each_in(std::string_view bytes, const See& see) {
    for (const char* place = bytes.data(); place != bytes.end();) {
      const Field field = field_at(place);
      switch (field.kind()) {
        case Kind::integer:
          see(field.name, value_of<int>(field));
          break;
        case Kind::wide_integer:
          see(field.name, value_of<std::int64_t>(field));
          break;
        case Kind::text:
          see(field.name, value_of<std::string>(field));
          break;
      }
      place = field.value.end();
    }
  }

 private:
  // More than an identification takes.
  static constexpr std::size_t kRoom = 152;

  enum class Kind : std::uint32_t { integer, wide_integer, text };

  // What stands before the name, which stands before the value.
  struct Head {
    std::uint32_t kind_and_name_size;  // in one number, to be compared at once
    std::uint32_t value_size;
  };

  static std::uint32_t kind_and_name_size(Kind kind, std::string_view name) {
    return static_cast<std::uint32_t>(name.size()) << 2 | static_cast<std::uint32_t>(kind);
  }

  // A look at a field.
  struct Field {
    std::uint32_t kind_and_name_size;
    std::string_view name;
    std::string_view value;
    Kind kind() const { return static_cast<Kind>(kind_and_name_size & 3); }
  };

  static Field field_at(const char* place) {
    Head head{};
    std::memcpy(&head, place, sizeof head);
    const std::string_view name(place + sizeof head, head.kind_and_name_size >> 2);
    return {.kind_and_name_size = head.kind_and_name_size, .name = name, .value = {name.end(), head.value_size}};
  }

  template <typename T>
  static T value_of(const Field& field) {
    if constexpr (std::is_integral_v<T>) {
      T number{};
      std::memcpy(&number, field.value.data(), sizeof number);
      return number;
    } else {
      return T(field.value);
    }
  }

  // Append a field without its value; returns where that goes.
  char* place_for(Kind kind, std::string_view name, std::size_t value_size) {
    const Head head{.kind_and_name_size = kind_and_name_size(kind, name),
                    .value_size = static_cast<std::uint32_t>(value_size)};
    char* const place = room_for(sizeof head + name.size() + value_size);
    std::memcpy(place, &head, sizeof head);
    name.copy(place + sizeof head, name.size());
    return place + sizeof head + name.size();
  }

  template <typename T>
  bool get(Kind kind, std::string_view name, T* value) const {
    const std::uint32_t wanted = kind_and_name_size(kind, name);
    const char* const end = bytes().end();
    for (const char* place = bytes().data(); place != end;) {
      const Field field = field_at(place);
      if (field.kind_and_name_size == wanted && std::memcmp(field.name.data(), name.data(), name.size()) == 0) {
        *value = value_of<T>(field);
        return true;
      }
      place = field.value.end();
    }
    return false;
  }

  // Where so many more bytes go.
  char* room_for(std::size_t size) {
    if (more_ == nullptr && size <= kRoom - used_) {
      used_ += static_cast<std::uint32_t>(size);
      return room_.data() + used_ - size;
    }
    return more_room_for(size);
  }

  [[gnu::noinline]] char* more_room_for(std::size_t size) {
    if (more_ == nullptr) {
      more_ = std::make_unique<std::string>(room_.data(), used_);
    }
    more_->resize(more_->size() + size);
    return more_->data() + more_->size() - size;
  }

  std::unique_ptr<std::string> more_;  // all of them, once there is no room
  std::uint32_t used_ = 0;
  std::array<char, kRoom> room_;
};

}  // namespace refhost
