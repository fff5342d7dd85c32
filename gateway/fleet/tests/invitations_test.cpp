#include "gateway/fleet/invitations.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "cli/failure.h"
#include "gateway/fleet/authority.h"
#include "gateway/mqtt/key_request.h"
#include "gateway/mqtt/one_time_code.h"
#include "refhost/tests/support.h"

namespace fleet {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr std::int64_t kNow = 1'000'000;
constexpr std::int64_t kOver = kNow + 1000;

class Invited : public testing::Test {
 private:
  refhost::test::TemporaryDirectory directory_;  // made before what is below

 protected:
  std::filesystem::path place() const { return directory_.path() / "centre"; }

  // A request of a door's, made with the key of that name.
  std::string request(const std::string& key = "key") const { return mqtt::key_request(directory_.path() / key, "s1"); }

  std::optional<Invitation> use(const std::string& serial, const std::string& code, std::int64_t now = kNow,
                                const std::string& key = "key") {
    const auto csr = request(key);
    return invitations_.use(serial, {.text = csr, .key = key_in_request(csr)}, mqtt::proof_of(code, csr), now);
  }

  Invitations invitations_{place()};
  std::string code_ = mqtt::meant_code(invitations_.invite("s1", "gate-1", kOver));
};

TEST(OneTimeCode, IsTypedAsPeopleTypeIt) {
  const auto code = mqtt::new_code();
  EXPECT_THAT(code, MatchesRegex("[0-9A-Z]{5}-[0-9A-Z]{5}-[0-9A-Z]{5}-[0-9A-Z]{5}"));
  EXPECT_NE(code, mqtt::new_code());
  EXPECT_EQ(mqtt::meant_code("oo1il-aaaaa bbbbbCCCCC"), "00111AAAAABBBBBCCCCC");
  for (const char* text : {"", "AAAAA", "AAAAA-AAAAA-AAAAA-AAAAU", "AAAAA-AAAAA-AAAAA-AAAAAA"}) {
    EXPECT_EQ(mqtt::meant_code(text), "") << text;
  }
}

TEST(OneTimeCode, AProofIsOfOneCodeAndOneText) {
  // RFC 4231, test case 2.
  EXPECT_EQ(mqtt::proof_of("Jefe", "what do ya want for nothing?"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  const auto proof = mqtt::proof_of("code", "text");
  EXPECT_TRUE(mqtt::is_proof(proof, "code", "text"));
  EXPECT_FALSE(mqtt::is_proof(proof, "code", "texts"));
  EXPECT_FALSE(mqtt::is_proof(proof, "codes", "text"));
  EXPECT_FALSE(mqtt::is_proof("", "code", "text"));
}

TEST_F(Invited, ACodeIsForOneKeyAlone) {
  const auto invitation = use("s1", code_);
  ASSERT_TRUE(invitation.has_value());
  EXPECT_EQ(invitation->door, "gate-1");
  EXPECT_FALSE(use("s1", code_, kNow, "another"));
  EXPECT_TRUE(use("s1", code_)) << "its answer was lost";
}

TEST_F(Invited, ACodeIsOfOneSerialNumberAndIsOverSometime) {
  EXPECT_FALSE(use("s2", code_));
  EXPECT_FALSE(use("s1", ""));
  EXPECT_FALSE(use("s1", mqtt::meant_code(mqtt::new_code())));
  EXPECT_FALSE(use("s1", code_, kOver));
  EXPECT_TRUE(use("s1", code_, kOver - 1));
}

TEST_F(Invited, ASecondInvitationEndsTheFirst) {
  const auto code = mqtt::meant_code(invitations_.invite("s1", "gate-2", kOver));
  EXPECT_FALSE(use("s1", code_));
  EXPECT_EQ(use("s1", code)->door, "gate-2");
}

TEST_F(Invited, WhoIsInvitedIsForTheOwnerAlone) {
  struct stat status {};
  ASSERT_EQ(stat(place().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(Invited, ADamagedFileIsSaid) {
  std::ofstream(place() / "invitations.json") << "{\"s1\":";
  EXPECT_THROW(use("s1", code_), cli::Failure);
}

TEST_F(Invited, AKeyIsMadeOnceAndIsItsOwnersAlone) {
  EXPECT_THAT(request(), HasSubstr("BEGIN CERTIFICATE REQUEST"));
  struct stat before {};
  struct stat after {};
  const auto key = place().parent_path() / "key";
  ASSERT_EQ(stat(key.c_str(), &before), 0);
  EXPECT_EQ(before.st_mode & 0777U, 0600U);
  request();
  ASSERT_EQ(stat(key.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  std::ofstream(key) << "nonsense";
  EXPECT_THROW(request(), cli::Failure);
}

}  // namespace
}  // namespace fleet
