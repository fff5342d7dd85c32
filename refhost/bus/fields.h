// The named, typed fields of a message or of an answer, in the order in which they were added.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace refhost {

// Used by one thread at a time.
class Fields {
 public:
  template <typename T>
  void add(std::string_view name, T value) {
    if (fields_.empty()) {
      fields_.reserve(kUsualCount);
    }
    fields_.push_back(Field{std::string(name), std::move(value)});
  }

  // The first field of that name and type into *value; false and *value untouched when there is none.
  template <typename T>
  bool get(std::string_view name, T* value) const {
    for (const Field& field : fields_) {
      if (const T* held = std::get_if<T>(&field.value); held != nullptr && field.name == name) {
        *value = *held;
        return true;
      }
    }
    return false;
  }

  struct Field {
    std::string name;
    std::variant<int, std::int64_t, std::string> value;
  };

  // All of them, in the order in which they were added.
  const std::vector<Field>& all() const { return fields_; }

 private:
  // Room made by the first add(): the usual message fits without a second allocation.
  static constexpr std::size_t kUsualCount = 6;

  std::vector<Field> fields_;
};

}  // namespace refhost
