#include "gateway/mqtt/document.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <set>

namespace mqtt {
namespace {

bool is_hash(const Json& json) {
  if (!json.is_string()) {
    return false;
  }
  const auto& text = json.get_ref<const std::string&>();
  return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

void each_line(std::string_view text, const std::function<void(std::string_view)>& take) {
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    if (const auto line = text.substr(0, end); !line.empty()) {
      take(line);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// The lines of parts: by user and by setting, and the rows of schedules.
struct Lines {
  std::map<std::string, std::string> users;  // by number, as JSON has it
  std::map<std::string, std::string> settings;
  std::set<std::string> schedules;
};

void sort_line(std::string_view line, Lines& lines) {
  const Json json = gateway::parsed(line);
  if (!json.is_object()) {
    throw BadManifest("a part of the document has a line that is no JSON object");
  }
  if (json.contains("user")) {
    lines.users[json["user"].dump()] = line;
  } else if (json.contains("setting")) {
    lines.settings[json["setting"].dump()] = line;
  } else if (json.contains("schedule") || json.contains("remove_schedules")) {
    lines.schedules.insert(std::string(line));
  } else if (!json.contains("remove_users")) {
    throw BadManifest("a part of the document has a line about nothing");
  }
}

Lines lines_of(const std::vector<std::string>& parts) {
  Lines lines;
  for (const std::string& part : parts) {
    each_line(part, [&](std::string_view line) { sort_line(line, lines); });
  }
  return lines;
}

// What is new or other, and what has gone.
void compare(const std::map<std::string, std::string>& before, const std::map<std::string, std::string>& after,
             const std::string& removal, std::string& out) {
  for (const auto& [key, line] : before) {
    if (!after.contains(key)) {
      out += "{\"" + removal + "\": " + key + "}\n";
    }
  }
  for (const auto& [key, line] : after) {
    const auto found = before.find(key);
    if (found == before.end() || found->second != line) {
      out += line + "\n";
    }
  }
}

}  // namespace

Manifest manifest_of(std::string_view text) {
  const Json json = gateway::parsed(text);
  if (!json.is_object() || !json.value("revision", Json()).is_number_integer() ||
      !json.value("parts", Json()).is_array()) {
    throw BadManifest("what is desired is to be {\"revision\": N, \"parts\": [{\"hash\": HEX, \"bytes\": N}]}");
  }
  const auto& revision = json["revision"];
  if (revision < 1 || (revision.is_number_unsigned() && revision.get<std::uint64_t>() > INT64_MAX)) {
    throw BadManifest("a revision is 1 or more");
  }
  Manifest manifest{.revision = revision.get<std::int64_t>(), .parts = {}, .by = {}};
  if (json.value("by", Json()).is_string()) {
    manifest.by = json["by"].get<std::string>();
  }
  if (json["parts"].size() > kMostParts) {
    throw BadManifest("a document has at most " + std::to_string(kMostParts) + " parts");
  }
  for (const Json& part : json["parts"]) {
    const Json hash = part.is_object() ? part.value("hash", Json()) : Json();
    if (!is_hash(hash)) {
      throw BadManifest("each part is to have a \"hash\" of 32 hexadecimal digits");
    }
    manifest.parts.push_back(hash.get<std::string>());
  }
  return manifest;
}

std::string hash_of(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hash;
  for (std::size_t i = 0; i < 16; ++i) {
    hash += {kDigits[digest[i] >> 4U], kDigits[digest[i] & 15U]};
  }
  return hash;
}

Difference difference(const std::vector<std::string>& gone, const std::vector<std::string>& come) {
  const Lines before = lines_of(gone);
  const Lines after = lines_of(come);
  Difference result;
  compare(before.users, after.users, "remove_user", result.lines);
  compare(before.settings, after.settings, "remove_setting", result.lines);
  result.needs_schedules = before.schedules != after.schedules;
  result.removes_users =
      std::ranges::any_of(before.users, [&](const auto& user) { return !after.users.contains(user.first); });
  return result;
}

std::string schedules_of(std::string_view part) {
  std::string rows;
  each_line(part, [&](std::string_view line) {
    const Json json = gateway::parsed(line);
    if (json.is_object() && json.contains("schedule") && !json.contains("user")) {
      rows += std::string(line) + "\n";
    }
  });
  return rows;
}

bool says(std::string_view part, const char* key) {
  bool is_said = false;
  each_line(part, [&](std::string_view line) { is_said = is_said || Json::parse(line, nullptr, false).contains(key); });
  return is_said;
}

}  // namespace mqtt
