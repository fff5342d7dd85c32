// Following the journal over the control socket, as a program that has stopped and goes on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "door/control/own_stores.h"
#include "door/control/stores.h"
#include "door/journal/journal_file.h"
#include "door/tests/control_fixture.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

class JournalFollowing : public testing::Test {
 protected:
  // The ids of the machine's runs may be told to a process.
  ~JournalFollowing() override { unsetenv("ACHOST_BOOT_ID"); }

  // Whoever notes something closes the journal before the file is touched by hand.
  void note(int count) {
    if (!journal_.has_value()) {
      journal_.emplace(directory_.path());
    }
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(journal_->note({.kind = ++noted_ % 2 == 0 ? Kind::closing : Kind::opening}));
    }
    const auto last = noted_ + offset_;
    ASSERT_EQ(journal_->wait_beyond(last - 1, kPatience), last);
  }

  void close() { journal_.reset(); }

  // A restore of what was copied when there were so many entries.
  void restore(int then) {
    std::filesystem::copy_file(directory_.path() / "copy", directory_.path() / kJournalFileName,
                               std::filesystem::copy_options::overwrite_existing);
    JournalFile(directory_.path()).part();
    offset_ += then - (noted_ + offset_);
  }

  void copy() const { std::filesystem::copy_file(directory_.path() / kJournalFileName, directory_.path() / "copy"); }

  // A client of its own for each; the server is another one's, too.
  ControlClient& follow(Json request) {
    server_.reset();
    stores_ = std::make_unique<OwnStores>(directory_.path());
    server_.emplace(directory_.path(), ControlTable(store_commands(*stores_)));
    client_ = std::make_unique<ControlClient>(directory_.path());
    request["command"] = "journal_follow";
    client_->send(request);
    return *client_;
  }

  Json next() { return client_->receive(std::chrono::milliseconds(kPatience)); }

  // What comes until there is no more, in few words: the numbers of entries, and the other lines as they are.
  std::vector<std::string> lines_until_live() {
    std::vector<std::string> lines;
    for (Json line = next(); !line.contains("live") && !line.contains("ok"); line = next()) {
      lines.push_back(line.contains("entry") ? line["entry"]["number"].dump() : line.dump());
    }
    return lines;
  }

  std::string journal_id() const { return Journal::extent(directory_.path()).id; }
  std::string begins(int after) const {
    return R"({"following":true,"journal":")" + journal_id() + R"(","after":)" + std::to_string(after) + "}";
  }

  TemporaryDirectory directory_;
  std::optional<Journal> journal_;
  std::unique_ptr<OwnStores> stores_;
  std::optional<ControlServer> server_;
  std::unique_ptr<ControlClient> client_;
  int noted_ = 0;
  int offset_ = 0;  // of the numbers
};

TEST_F(JournalFollowing, WhatIsBehindTheNumberComesAndThenWhatHappens) {
  note(3);
  follow({{"after", 1}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(1), "2", "3"));
  note(1);
  EXPECT_EQ(next().at("entry").at("number"), 4);
  note(1);
  EXPECT_EQ(next().at("entry").at("number"), 5);
}

TEST_F(JournalFollowing, WithoutANumberItBeginsWithWhatHappensOrWithTheLast) {
  note(5);
  follow({});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(5)));
  follow({{"last", 2}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(3), "4", "5"));
  follow({{"last", 100}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(0), "1", "2", "3", "4", "5"));
}

TEST_F(JournalFollowing, AnEntryTellsWhatTheJournalHas) {
  setenv("ACHOST_BOOT_ID", "b1", 1);
  journal_.emplace(directory_.path());
  journal_->note({.kind = Kind::card_change,
                  .user = 7,
                  .card = 0xFFFF'FFFF'FFFF'FFFF,
                  .fields = {{"change", "added"}, {"by_uid", std::int64_t{0}}}});
  journal_->wait_beyond(0, kPatience);
  follow({{"after", 0}});
  next();
  const Json entry = next().at("entry");
  EXPECT_EQ(entry.at("kind"), "card_change");
  EXPECT_EQ(entry.at("user"), 7);
  EXPECT_EQ(entry.at("name"), "");
  EXPECT_EQ(entry.at("card"), "18446744073709551615");
  EXPECT_EQ(entry.at("fields"), Json::parse(R"({"change":"added","by_uid":0})"));
  EXPECT_EQ(entry.at("boot"), "b1");
}

TEST_F(JournalFollowing, OtherKindsAreLeftOut) {
  note(6);
  follow({{"after", 0}, {"kinds", {"closing"}}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(0), "2", "4", "6"));
}

TEST_F(JournalFollowing, NumbersThatAreGoneAreSaid) {
  note(10);
  close();
  JournalFile(directory_.path()).remove_some({.keep = 3});
  follow({{"after", 2}});
  EXPECT_THAT(lines_until_live(),
              ElementsAre(begins(2), R"({"gap":{"reason":"gone","first":3,"last":7}})", "8", "9", "10"));
  follow({{"after", 7}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(7), "8", "9", "10")) << "nothing is missing behind 7";
}

TEST_F(JournalFollowing, WhatGoesWhileAClientReadsIsSaid) {
  note(450);
  close();
  follow({{"after", 0}});
  for (Json line = next(); !line.contains("behind"); line = next()) {
  }
  // The client reads on only after that; the server may be a part ahead.
  JournalFile file(directory_.path());
  while (file.remove_some({.keep = 1})) {
  }
  std::int64_t last = 200;
  for (Json line = next(); !line.contains("live"); line = next()) {
    if (line.contains("gap")) {
      EXPECT_EQ(line["gap"]["first"], last + 1);
      last = line["gap"]["last"];
    } else if (line.contains("entry")) {
      EXPECT_LE(line["entry"]["number"], last + 1) << "neither an entry nor a gap said what is between";
      last = std::max(last, line["entry"]["number"].get<std::int64_t>());
    }
  }
  EXPECT_EQ(last, 450);
}

TEST_F(JournalFollowing, OneThatIsBehindIsToldHowFar) {
  note(450);
  follow({{"after", 0}});
  std::vector<std::string> wanted = {begins(0)};
  for (int number = 1; number <= 450; ++number) {
    wanted.push_back(std::to_string(number));
    if (number == 200 || number == 400) {
      wanted.push_back(R"({"behind":)" + std::to_string(450 - number) + "}");
    }
  }
  EXPECT_THAT(lines_until_live(), ElementsAreArray(wanted));
}

TEST_F(JournalFollowing, AJournalThatARestoreHasPutInItsPlaceIsSaidAndGoesOnWhereTheyPart) {
  note(5);
  close();
  copy();
  const auto before = journal_id();
  note(3);
  close();
  restore(5);
  note(2);
  const std::string gap = R"({"gap":{"reason":"restored","after":5}})";
  follow({{"after", 8}, {"journal", before}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(5), gap, "6", "7"));
  follow({{"after", 7}, {"journal", before}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(5), gap, "6", "7")) << "a number that both have given";
  follow({{"after", 8}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(5), gap, "6", "7")) << "a number that was not given yet";
  follow({{"after", 3}, {"journal", before}});
  EXPECT_THAT(lines_until_live(),
              ElementsAre(begins(3), R"({"gap":{"reason":"restored","after":3}})", "4", "5", "6", "7"));
  follow({{"after", 7}, {"journal", journal_id()}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(7))) << "the client has seen that it is another one";
}

TEST_F(JournalFollowing, ANumberOfAnotherRunOfTheMachineIsAnotherJournals) {
  setenv("ACHOST_BOOT_ID", "b1", 1);
  note(5);
  close();
  copy();
  note(3);
  close();
  restore(5);
  setenv("ACHOST_BOOT_ID", "b2", 1);
  note(3);
  follow({{"after", 8}, {"boot", "b2"}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(8)));
  follow({{"after", 8}, {"boot", "b1"}});
  EXPECT_THAT(lines_until_live(), ElementsAre(begins(5), R"({"gap":{"reason":"restored","after":5}})", "6", "7", "8"));
}

TEST_F(JournalFollowing, WhatIsNoNumberOrKindIsRefused) {
  note(1);
  follow({{"after", -1}});
  EXPECT_EQ(next().at("error"), "\"after\" and \"last\" are numbers from 0 on");
  follow({{"kinds", {"openings"}}});
  EXPECT_THAT(next().at("error").get<std::string>(), HasSubstr("there is no kind \"openings\""));
}

}  // namespace
}  // namespace achost::test
