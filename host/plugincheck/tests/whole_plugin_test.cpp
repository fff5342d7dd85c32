// The check of plug-ins is silent at whole ones.
#include <gmock/gmock.h>

#include "checked.h"

namespace {

using plugin_check_test::broken_in;
using plugin_check_test::check;
using plugin_check_test::clauses_in;
using plugin_check_test::plugin;
using testing::IsEmpty;

// A sanitizer has memory of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kNotExamined = 1;
#else
constexpr std::size_t kNotExamined = 0;
#endif

TEST(WholePlugin, NoClauseFiresOnASmallOne) {
  const auto result = check({plugin("good")});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(broken_in(result), IsEmpty()) << result.err;
}

TEST(WholePlugin, NoClauseFiresOnUhfAtAnyLevelAndAllAreExamined) {
  const auto result = check({UHF_SO, "--level", "uhf"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(broken_in(result), IsEmpty());
  EXPECT_EQ(clauses_in(result.err).size(), kNotExamined) << result.err;
}

}  // namespace
