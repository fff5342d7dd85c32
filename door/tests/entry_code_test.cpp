#include "door/journal/entry_code.h"

#include <gmock/gmock.h>

#include "refhost/tests/support.h"

namespace achost::test {
using refhost::test::content_of;

namespace {

TEST(EntryCode, ATextThatIsTooLongIsCut) {
  const auto fields = fields_of_json(json_of_fields({{"text", std::string(10'000, 'x')}}));
  EXPECT_EQ(std::get<std::string>(fields.at(0).second).size(), 4096U);
}

TEST(EntryCode, AnyBytesAreAnEntryOrNone) {
  const JournalEntry entry = {
      .number = 3, .boot = "b", .entry = {.kind = Kind::start, .fields = {{"a", "b"}, {"c", std::int64_t{-1}}}}};
  const auto code = encoded(entry.entry, entry.time, entry.boot, entry.number);
  EXPECT_EQ(decoded(code), entry);
  for (std::size_t i = 0; i < code.size(); ++i) {
    std::string changed = code;
    changed[i] = static_cast<char>(0xff);
    decoded(changed);  // whatever it is
    decoded(std::string_view(code).substr(0, i));
  }
  EXPECT_FALSE(decoded(std::string_view(code).substr(0, 10)).has_value());
}

TEST(EntryCode, EachKindHasANameOfItsOwn) {
  for (const auto& kind : kKinds) {
    EXPECT_EQ(kind_of(kind.name), kind.kind);
    EXPECT_EQ(name_of(kind.kind), kind.name);
  }
  EXPECT_EQ(kind_of("none"), std::nullopt);
}

TEST(EntryCode, TheKindsAreThoseThatArePublished) {
  std::string rows;
  for (const auto& kind : kKinds) {
    rows += "| `" + std::string(kind.name) + "` | " + std::string(kind.meaning) + " |\n";
  }
  EXPECT_THAT(content_of(JOURNAL_DOCUMENT), testing::HasSubstr("|---|---|\n" + rows + "\n"));
}

}  // namespace
}  // namespace achost::test
