#include "door/journal/entry_code.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

namespace achost {
namespace {

using Json = nlohmann::ordered_json;

// What one field may have; an entry with many of them still is a small part of the spool.
constexpr std::size_t kLongestText = 4096;

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

std::string encoded(const JournalEntry& entry) {
  const std::string_view boot = std::string_view(entry.boot).substr(0, kLongestBoot);
  const Fixed fixed = {.number = entry.number,
                       .wall = entry.time.wall,
                       .offset = entry.time.offset,
                       .monotonic = entry.time.monotonic,
                       .user = entry.entry.user.value_or(0),
                       .card = entry.entry.card.value_or(0),
                       .kind = static_cast<std::int32_t>(entry.entry.kind),
                       .is_trusted = entry.time.is_trusted,
                       .has_user = entry.entry.user.has_value(),
                       .has_card = entry.entry.card.has_value(),
                       .boot_size = static_cast<std::uint8_t>(boot.size())};
  std::string code(sizeof fixed, '\0');
  std::memcpy(code.data(), &fixed, sizeof fixed);
  return code.append(boot).append(json_of_fields(entry.entry.fields));
}

void set_number(std::string& code, std::int64_t number) { std::memcpy(code.data(), &number, sizeof number); }

std::optional<JournalEntry> decoded(std::string_view code) {
  Fixed fixed{};
  if (code.size() < sizeof fixed) {
    return std::nullopt;
  }
  std::memcpy(&fixed, code.data(), sizeof fixed);
  code.remove_prefix(sizeof fixed);
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
  entry.entry.fields = fields_of_json(code.substr(fixed.boot_size));
  return entry;
}

}  // namespace achost
