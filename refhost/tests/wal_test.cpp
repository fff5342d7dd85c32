// Write-ahead logs with flipped bits, and such as a crash leaves.
#include "util/wal.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>

#include "refhost/audit_log.h"
#include "refhost/database.h"
#include "refhost/log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

constexpr std::size_t kRecords = 30;
constexpr std::size_t kWalHeader = 32;
constexpr std::size_t kWalFrame = 24 + 4096;

// What a host leaves that is killed: the files as they are while the log is still open.
class WalLeftBehind : public testing::Test {
 protected:
  WalLeftBehind() {
    log::set_threshold(log::Level::off);
    const TemporaryDirectory alive;
    AuditLog log(alive.path());
    for (std::size_t i = 1; i <= kRecords; ++i) {
      log.append({"t", 1, "record " + std::to_string(i)});
    }
    whole_ = content_of(alive.path() / "audit.db-wal");
    index_ = content_of(alive.path() / "audit.db-shm");
    database_ = content_of(alive.path() / "audit.db");
    leave_again(whole_);
  }

  ~WalLeftBehind() override { log::set_threshold(log::Level::warning); }

  // As the host has left it, but for the log.
  enum class Failure { kill, power };  // of power: the index is lost
  void leave_again(const std::string& log, Failure failure = Failure::kill) const {
    for (const auto& entry : std::filesystem::directory_iterator(directory())) {
      std::filesystem::remove(entry.path());
    }
    std::ofstream(file(), std::ios::binary) << database_;
    std::ofstream(wal(), std::ios::binary) << log;
    if (failure == Failure::kill) {
      std::ofstream(directory() / "audit.db-shm", std::ios::binary) << index_;
    }
  }

  std::filesystem::path file() const { return directory_.path() / "audit.db"; }
  std::filesystem::path wal() const { return directory_.path() / "audit.db-wal"; }
  const std::filesystem::path& directory() const { return directory_.path(); }
  const std::string& whole() const { return whole_; }
  std::size_t frames() const { return (whole_.size() - kWalHeader) / kWalFrame; }

  std::string with_flipped(std::size_t bit) const {
    std::string content = whole_;
    content[bit / 8] = static_cast<char>(content[bit / 8] ^ 1 << bit % 8);
    return content;
  }

  std::vector<std::string> kept_aside() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory())) {
      if (entry.path().string().find(".damaged-") != std::string::npos) {
        names.push_back(entry.path());
      }
    }
    return names;
  }

  std::size_t readable_records() const {
    std::size_t records = 0;
    AuditLog::read(directory(), {}, [&](const AuditEntry& entry) {
      ++records;
      EXPECT_EQ(entry.record.details, "record " + std::to_string(entry.id));
    });
    return records;
  }

 private:
  TemporaryDirectory directory_;
  std::string database_;
  std::string index_;
  std::string whole_;
};

TEST_F(WalLeftBehind, ThatIsWholeIsNotDamaged) {
  const auto damage = find_damage(wal());
  EXPECT_TRUE(damage.mends.empty());
  EXPECT_EQ(damage.lost, 0U);
  EXPECT_TRUE(AuditLog(directory()).faults().empty());
  EXPECT_EQ(readable_records(), kRecords);
  EXPECT_TRUE(kept_aside().empty());
}

// Without a look at it, SQLite reads up to the bit and calls the database whole.
TEST_F(WalLeftBehind, AFlippedBitHidesRecordsFromSqliteWithoutAWord) {
  leave_again(with_flipped(8 * (kWalHeader + frames() / 2 * kWalFrame + 1000)));
  SQLite::Database database(file(), SQLite::OPEN_READWRITE);
  EXPECT_LT(database.execAndGet("SELECT count(*) FROM audit_logs").getInt(), static_cast<int>(kRecords));
  EXPECT_EQ(database.execAndGet("PRAGMA integrity_check").getString(), "ok");
}

TEST_F(WalLeftBehind, EachFlippedBitIsSaidAndTurnedBackWhereItCanBeTold) {
  const char* const seed = std::getenv("FLIP_SEED");
  std::mt19937 random(seed == nullptr ? 1 : static_cast<unsigned>(std::atoi(seed)));
  std::vector<std::size_t> bits;
  for (std::size_t i = 0; i < 60; ++i) {
    bits.push_back(random() % (8 * whole().size()));
  }
  for (std::size_t bit = 0; bit < 8 * (kWalHeader + 24); bit += 5) {
    bits.push_back(bit);                                     // the header, and that of the first frame
    bits.push_back(8 * (whole().size() - kWalFrame) + bit);  // the last transaction
  }
  std::size_t mended = 0;
  for (const std::size_t bit : bits) {
    leave_again(with_flipped(bit));
    const auto report = AuditLog::inspect(directory());
    ASSERT_FALSE(report.faults.empty()) << "bit " << bit;
    EXPECT_THAT(report.faults[0], testing::HasSubstr(wal().string() + " cannot be read, because it is damaged"));
    EXPECT_EQ(failure_of([&] { readable_records(); }), report.faults[0]) << "a command does not make it worse";
    ASSERT_EQ(content_of(wal()), with_flipped(bit)) << "bit " << bit;
    const AuditLog log(directory());
    ASSERT_EQ(log.faults().size(), 1U) << "bit " << bit;
    const bool is_mended = log.faults()[0].find("1 flipped bit hid") != std::string::npos;
    mended += is_mended ? 1 : 0;
    EXPECT_EQ(readable_records() == kRecords, is_mended) << "bit " << bit << ": " << log.faults()[0];
    ASSERT_EQ(kept_aside().size(), 1U);
    EXPECT_EQ(content_of(kept_aside()[0]), with_flipped(bit));
  }
  EXPECT_GT(mended, bits.size() / 2) << "the others cannot be told apart";
  std::cout << bits.size() << " flipped bits, each of them said; " << mended << " turned back\n";
}

// Also where nothing is left of the index.
TEST_F(WalLeftBehind, AFlippedBitBeforeTheLastTransactionsIsSaidAfterAPowerFailure) {
  std::mt19937 random(1);
  for (int i = 0; i < 60; ++i) {
    const std::size_t bit = random() % (8 * (whole().size() - 7 * kWalFrame));
    leave_again(with_flipped(bit), Failure::power);
    EXPECT_EQ(AuditLog(directory()).faults().size(), 1U) << "bit " << bit;
  }
}

TEST_F(WalLeftBehind, ADamagedPieceIsSaidAndKept) {
  std::string content = whole();
  content.replace(kWalHeader + frames() / 2 * kWalFrame + 1000, 512, 512, 'x');
  leave_again(content);
  const AuditLog log(directory());
  ASSERT_EQ(log.faults().size(), 1U);
  EXPECT_THAT(log.faults()[0],
              testing::MatchesRegex(".* acknowledged transactions or more of .*-wal cannot be read.*"));
  ASSERT_EQ(kept_aside().size(), 1U);
  EXPECT_EQ(content_of(kept_aside()[0]), content);
  EXPECT_LT(readable_records(), kRecords);
}

TEST_F(WalLeftBehind, ADamagedHeaderIsSaidAndKept) {
  std::string content = whole();
  content.replace(8, 16, 16, 'x');
  leave_again(content);
  EXPECT_EQ(AuditLog(directory()).faults().size(), 1U);
  EXPECT_EQ(kept_aside().size(), 1U);
}

// A power failure while the last transaction was written: wherever it has ended, and whatever of it has arrived.
TEST_F(WalLeftBehind, ATransactionThatACrashHasCutOffIsNoDamage) {
  std::mt19937 random(1);
  for (int i = 0; i < 100; ++i) {
    std::string content = whole().substr(0, kWalHeader + random() % (whole().size() - kWalHeader));
    const std::size_t last = kWalHeader + (content.size() - kWalHeader) / kWalFrame * kWalFrame;
    for (std::size_t at = last + 512; at < content.size(); at += 512) {
      content.replace(at, random() % 2 == 0 ? 0 : std::min<std::size_t>(512, content.size() - at), 0, '0');
    }
    leave_again(content, Failure::power);
    EXPECT_TRUE(AuditLog(directory()).faults().empty());
    EXPECT_TRUE(kept_aside().empty());
    EXPECT_LE(readable_records(), kRecords);
  }
}

}  // namespace
}  // namespace refhost::test
