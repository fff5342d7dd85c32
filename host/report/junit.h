// What the two checks report as JUnit XML.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace junit {

// As an attribute: what a message holds may be anything.
inline std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c < ' ' || c > '~' ? '?' : c;
    }
  }
  return result;
}

// A case; outcome is what is inside: empty when it holds, else made by failure() and the like.
inline std::string test_case(std::string_view chapter, std::string_view name, const std::string& outcome) {
  const std::string begin = "  <testcase classname=\"" + escaped(chapter) + "\" name=\"" + escaped(name) + "\"";
  return begin + (outcome.empty() ? "/>\n" : ">" + outcome + "</testcase>\n");
}

inline std::string outcome(std::string_view kind, std::string_view message) {
  return "<" + std::string(kind) + " message=\"" + escaped(message) + "\"/>";
}

inline std::string failure(const std::vector<std::string>& findings) {
  std::string all;
  for (const auto& finding : findings) {
    all += (all.empty() ? "" : "; ") + finding;
  }
  return outcome("failure", all);
}

// How many cases ended in each way.
struct Counts {
  std::size_t all = 0;
  std::size_t failures = 0;
  std::size_t errors = 0;
  std::size_t skipped = 0;
};

inline std::string suite(std::string_view name, const Counts& counts, const std::string& cases) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"" + escaped(name) + "\" tests=\"" +
         std::to_string(counts.all) + "\" failures=\"" + std::to_string(counts.failures) + "\" errors=\"" +
         std::to_string(counts.errors) + "\" skipped=\"" + std::to_string(counts.skipped) + "\">\n" + cases +
         "</testsuite>\n";
}

}  // namespace junit
