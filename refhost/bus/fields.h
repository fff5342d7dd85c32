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
  Fields() = default;
  Fields(const Fields& other) { *this = other; }
  Fields& operator=(const Fields& other) {
    if (this != &other) {
      used_ = 0;
      more_ = nullptr;
      other.bytes().copy(room_for(other.bytes().size()), other.bytes().size());
    }
    return *this;
  }

  void add(std::string_view name, int value) { append(Kind::integer, name, bytes_of(value)); }
  void add(std::string_view name, std::int64_t value) { append(Kind::wide_integer, name, bytes_of(value)); }
  void add(std::string_view name, std::string_view value) { append(Kind::text, name, value); }

  // The first field of that name and type into *value; false and *value untouched when there is none.
  bool get(std::string_view name, int* value) const { return get(Kind::integer, name, value); }
  bool get(std::string_view name, std::int64_t* value) const { return get(Kind::wide_integer, name, value); }
  bool get(std::string_view name, std::string* value) const { return get(Kind::text, name, value); }

  // Call see(name, value) for each, with an int, a std::int64_t or a std::string.
  template <typename See>
  void for_each(const See& see) const {
    for (std::string_view rest = bytes(); !rest.empty();) {
      const Field field = first_of(rest);
      switch (field.kind) {
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
      rest.remove_prefix(field.size());
    }
  }

 private:
  // More than an identification takes.
  static constexpr std::size_t kRoom = 160;

  enum class Kind : std::uint32_t { integer, wide_integer, text };

  // What stands before the name, which stands before the value.
  struct Head {
    std::uint32_t value_size;
    std::uint32_t name_size : 30;
    Kind kind : 2;
  };

  // A look at a field.
  struct Field {
    Kind kind;
    std::string_view name;
    std::string_view value;
    std::size_t size() const { return sizeof(Head) + name.size() + value.size(); }
  };

  template <typename Number>
  static std::string_view bytes_of(const Number& number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
  }

  template <typename T>
  static T value_of(const Field& field) {
    if constexpr (std::is_integral_v<T>) {
      T number{};
      field.value.copy(reinterpret_cast<char*>(&number), sizeof number);
      return number;
    } else {
      return T(field.value);
    }
  }

  static Field first_of(std::string_view bytes) {
    Head head{};
    bytes.copy(reinterpret_cast<char*>(&head), sizeof head);
    return {.kind = head.kind,
            .name = bytes.substr(sizeof head, head.name_size),
            .value = bytes.substr(sizeof head + head.name_size, head.value_size)};
  }

  void append(Kind kind, std::string_view name, std::string_view value) {
    const Head head{.value_size = static_cast<std::uint32_t>(value.size()),
                    .name_size = static_cast<std::uint32_t>(name.size()) & 0x3FFFFFFF,
                    .kind = kind};
    char* const place = room_for(sizeof head + name.size() + value.size());
    std::memcpy(place, &head, sizeof head);
    name.copy(place + sizeof head, name.size());
    value.copy(place + sizeof head + name.size(), value.size());
  }

  template <typename T>
  bool get(Kind kind, std::string_view name, T* value) const {
    for (std::string_view rest = bytes(); !rest.empty();) {
      const Field field = first_of(rest);
      if (field.kind == kind && field.name == name) {
        *value = value_of<T>(field);
        return true;
      }
      rest.remove_prefix(field.size());
    }
    return false;
  }

  std::string_view bytes() const { return more_ == nullptr ? std::string_view(room_.data(), used_) : *more_; }

  // Where so many more bytes go.
  char* room_for(std::size_t size) {
    if (more_ == nullptr && size <= kRoom - used_) {
      used_ += static_cast<std::uint32_t>(size);
      return room_.data() + used_ - size;
    }
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
