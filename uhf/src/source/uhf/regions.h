// The regions by their names in the settings, and the channels that each allows.
#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "region.h"

inline constexpr std::array<std::pair<std::string_view, ac::UHF::Region>, 6> REGIONS{{
    {"BRAZIL", ac::UHF::Region::BRAZIL},
    {"CHINA_900MHZ", ac::UHF::Region::CHINA_900MHZ},
    {"CHINA_800MHZ", ac::UHF::Region::CHINA_800MHZ},
    {"AMERICA", ac::UHF::Region::AMERICA},
    {"EUROPE", ac::UHF::Region::EUROPE},
    {"KOREA", ac::UHF::Region::KOREA},
}};

inline constexpr std::string_view BRAZIL_CHANNELS = "0-10;26-51";

// The China regions have no row on purpose: theirs are Brazil's.
inline constexpr std::array<std::pair<ac::UHF::Region, std::string_view>, 4> ALLOWED_CHANNELS{{
    {ac::UHF::Region::BRAZIL, BRAZIL_CHANNELS},
    {ac::UHF::Region::AMERICA, "0-51"},
    {ac::UHF::Region::EUROPE, "0-14"},
    {ac::UHF::Region::KOREA, "0-51"},
}};

// The value beside key in a table of pairs; nothing when the key is not there.
template <class Table, class Key>
constexpr auto valueBeside(const Table& table, const Key& key) {
  const auto* entry = std::ranges::find(table, key, [](const auto& row) { return row.first; });
  return entry == table.end() ? std::nullopt : std::optional(entry->second);
}

// name: in capitals.
constexpr std::optional<ac::UHF::Region> regionOf(std::string_view name) { return valueBeside(REGIONS, name); }

// As ranges, such as "0-10;26-51".
constexpr std::optional<std::string_view> allowedChannels(ac::UHF::Region region) {
  return valueBeside(ALLOWED_CHANNELS, region);
}
