#include "door/journal/entry_code.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

namespace achost {
namespace {

using Json = nlohmann::ordered_json;

// What one field may have; an entry with many of them still is a small part of the spool.

// What each entry has; texts follow it.
struct Fixed {
  std::int64_t number;
  std::int64_t wall;
  std::int64_t offset;
  std::int64_t monotonic;
  std::int64_t user;
  std::uint64_t card;
  std::int32_t kind;
  std::uint8_t is_trusted;
  std::uint8_t has_user;
  std::uint8_t has_card;
  std::uint8_t boot_size;
};
static_assert(offsetof(Fixed, number) == 0);
static_assert(std::has_unique_object_representations_v<Fixed>, "no byte of it is left to chance");

constexpr std::size_t kLongestBoot = 64;
constexpr std::size_t kUsualSize = 256;

// What a field's value is.
constexpr char kText = 't';
constexpr char kNumber = 'n';

void append_text(std::string& code, std::string_view text) {
  const auto size = static_cast<std::uint16_t>(std::min(text.size(), kLongestText));
  code.append(reinterpret_cast<const char*>(&size), sizeof size).append(text.substr(0, size));
}

// Take such values off the front of the code; nothing when it ends before them.
template <typename Number>
std::optional<Number> taken(std::string_view& code) {
  Number number{};
  if (code.size() < sizeof number) {
    return std::nullopt;
  }
  std::memcpy(&number, code.data(), sizeof number);
  code.remove_prefix(sizeof number);
  return number;
}

std::optional<std::string> taken_text(std::string_view& code) {
  const auto size = taken<std::uint16_t>(code);
  if (!size.has_value() || *size > code.size()) {
    return std::nullopt;
  }
  std::string text(code.substr(0, *size));
  code.remove_prefix(*size);
  return text;
}

std::optional<EntryField> taken_field(std::string_view& code) {
  auto name = taken_text(code);
  const auto type = taken<char>(code);
  if (!name.has_value() || !type.has_value()) {
    return std::nullopt;
  }
  if (*type == kText) {
    auto text = taken_text(code);
    return text.has_value() ? std::optional(EntryField(std::move(*name), std::move(*text))) : std::nullopt;
  }
  const auto number = taken<std::int64_t>(code);
  return number.has_value() ? std::optional(EntryField(std::move(*name), *number)) : std::nullopt;
}

}  // namespace

std::string json_of_fields(const std::vector<EntryField>& fields) {
  Json object = Json::object();
  for (const auto& [name, value] : fields) {
    if (const auto* const text = std::get_if<std::string>(&value)) {
      object[name] = text->substr(0, kLongestText);
    } else {
      object[name] = std::get<std::int64_t>(value);
    }
  }
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::vector<EntryField> fields_of_json(std::string_view json) {
  std::vector<EntryField> fields;
  const auto object = Json::parse(json, nullptr, false);
  if (!object.is_object()) {
    return fields;
  }
  for (const auto& [name, value] : object.items()) {
    if (value.is_string()) {
      fields.emplace_back(name, value.get<std::string>());
    } else if (value.is_number_integer()) {
      fields.emplace_back(name, value.get<std::int64_t>());
    }
  }
  return fields;
}

// Simple and short, and not JSON: whoever opens a door waits for it, with none of it in the processor's caches.
std::string encoded(const Entry& entry, const EntryTime& time, std::string_view boot, std::int64_t number) {
  boot = boot.substr(0, kLongestBoot);
  const Fixed fixed = {.number = number,
                       .wall = time.wall,
                       .offset = time.offset,
                       .monotonic = time.monotonic,
                       .user = entry.user.value_or(0),
                       .card = entry.card.value_or(0),
                       .kind = static_cast<std::int32_t>(entry.kind),
                       .is_trusted = time.is_trusted,
                       .has_user = entry.user.has_value(),
                       .has_card = entry.card.has_value(),
                       .boot_size = static_cast<std::uint8_t>(boot.size())};
  std::string code;
  code.reserve(kUsualSize);
  code.assign(reinterpret_cast<const char*>(&fixed), sizeof fixed);
  code += boot;
  for (const auto& [name, value] : entry.fields) {
    append_text(code, name);
    if (const auto* const text = std::get_if<std::string>(&value)) {
      code += kText;
      append_text(code, *text);
    } else {
      code += kNumber;
      code.append(reinterpret_cast<const char*>(&std::get<std::int64_t>(value)), sizeof(std::int64_t));
    }
  }
  return code;
}

void set_number(std::string& code, std::int64_t number) { std::memcpy(code.data(), &number, sizeof number); }

std::optional<JournalEntry> decoded(std::string_view code) {
  const auto start = taken<Fixed>(code);
  if (!start.has_value()) {
    return std::nullopt;
  }
  const Fixed& fixed = *start;
  const bool is_known = fixed.kind >= 1 && static_cast<std::size_t>(fixed.kind) <= kKinds.size();
  if (!is_known || fixed.boot_size > code.size()) {
    return std::nullopt;
  }
  JournalEntry entry{.number = fixed.number,
                     .time = {.wall = fixed.wall,
                              .offset = fixed.offset,
                              .monotonic = fixed.monotonic,
                              .is_trusted = fixed.is_trusted != 0},
                     .boot = std::string(code.substr(0, fixed.boot_size)),
                     .entry = {.kind = static_cast<Kind>(fixed.kind)}};
  if (fixed.has_user != 0) {
    entry.entry.user = fixed.user;
  }
  if (fixed.has_card != 0) {
    entry.entry.card = fixed.card;
  }
  for (code.remove_prefix(fixed.boot_size); !code.empty();) {
    auto field = taken_field(code);
    if (!field.has_value()) {
      return std::nullopt;
    }
    entry.entry.fields.push_back(std::move(*field));
  }
  return entry;
}

}  // namespace achost
