// The command "achost journal", as a process of its own.
#include <signal.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "door/cli/request.h"
#include "door/control/own_stores.h"
#include "door/journal/journal.h"
#include "door/services/user_store.h"
#include "door/tests/journal_fixture.h"
#include "door/tests/process.h"

namespace achost::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class AchostJournal : public JournalFixture {
 protected:
  AchostJournal() {
    UserStore(state(), UserStore::Access::read_write).put({.id = 7, .name = "Ana"});
    Journal journal(state());
    journal.note({.kind = Kind::start, .fields = {{"version", "1"}, {"run_before", "ended"}}});
    journal.note({.kind = Kind::identification, .user = 7, .card = 1234567, .fields = {{"outcome", "opens"}}});
    journal.note({.kind = Kind::opening, .fields = {{"reason", "identification"}}});
  }

  std::vector<std::string> words(std::vector<std::string> options) const {
    options.insert(options.begin(), {"journal", "--state", state()});
    return options;
  }

  Result run(const std::vector<std::string>& options) const { return achost(words(options)); }
};

TEST_F(AchostJournal, TellsWhoCameInByName) {
  const auto result = run({});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Ana (7)               came in with card ***4567\n"));
  EXPECT_THAT(run({"--show-cards"}).out, HasSubstr("came in with card 1234567\n"));
}

TEST_F(AchostJournal, IsADiaryAtATerminal) {
  Achost command(words({}), Output::terminal);
  const auto text = command.wait().out;
  EXPECT_THAT(text, HasSubstr("day, 2"));
  EXPECT_THAT(text, HasSubstr("came in with card 1234567"));
}

TEST_F(AchostJournal, TakesEachFilter) {
  const auto count = [this](const std::vector<std::string>& options) {
    const auto result = run(options);
    EXPECT_EQ(result.status, 0) << result.err;
    return std::ranges::count(result.out, '\n');
  };
  EXPECT_EQ(count({}), 3);
  EXPECT_EQ(count({"--last", "2"}), 2);
  EXPECT_EQ(count({"--after", "2"}), 1);
  EXPECT_EQ(count({"--user", "7"}), 1);
  EXPECT_EQ(count({"--card", "0x12d687"}), 1);
  EXPECT_EQ(count({"--card", "33"}), 0);
  EXPECT_EQ(count({"--kind", "opening", "--kind", "start"}), 2);
  EXPECT_EQ(count({"--since", "-1h"}), 3);
  EXPECT_EQ(count({"--until", "yesterday"}), 0);
  EXPECT_EQ(count({"--csv"}), 4);
}

TEST_F(AchostJournal, WhatIsNoneIsRefusedWithWhatThereIs) {
  std::string all;
  for (const auto& kind : kKinds) {
    all += (all.empty() ? "" : ", ") + std::string(kind.name);
  }
  EXPECT_EQ(run({"--kind", "openings"}).err, "achost: there is no kind \"openings\": there are " + all + "\n");
  EXPECT_THAT(run({"--card", "x"}).err, StartsWith("achost: \"x\" is no card"));
  EXPECT_THAT(run({"--since", "soon"}).err, StartsWith("achost: \"soon\" is no time"));
  EXPECT_EQ(run({"--since", "soon"}).status, 2);
}

TEST_F(AchostJournal, FollowsWhatHappensOnceItIsOnTheDisk) {
  Achost follower(words({"--follow", "--json", "--last", "1"}));
  EXPECT_EQ(nlohmann::json::parse(follower.next_line()).at("number"), 3);
  Journal journal(state());
  for (std::int64_t number = 4; number < 8; ++number) {
    journal.note({.kind = Kind::closing});
    EXPECT_EQ(nlohmann::json::parse(follower.next_line()).at("number"), number);
    EXPECT_GE(journal.stored(), number);
  }
  follower.close_output();
  EXPECT_EQ(follower.wait().status, 0);
}

TEST_F(AchostJournal, AReaderWhoHasSeenEnoughEndsIt) {
  Achost command(words({"--follow"}));
  command.next_line();
  command.close_output();
  EXPECT_EQ(command.wait().status, 0);
}

TEST_F(AchostJournal, CtrlCEndsTheFollowingInOrder) {
  Achost command(words({"--follow"}));
  EXPECT_NE(command.next_line(), "");
  command.signal(SIGINT);
  EXPECT_EQ(command.wait().status, 0);
}

// What a host of this state would be to whoever asks.
class ServedJournal : public AchostJournal {
 protected:
  // Its stores, whose journal is written in this process.
  class Served : public OwnStores {
   public:
    Served(const std::filesystem::path& state, const Journal& journal) : OwnStores(state), journal_(journal) {}
    void wait_for_entries(std::int64_t number, std::chrono::milliseconds longest) override {
      ++waits;
      journal_.wait_beyond(number, longest);
    }

    std::atomic<int> waits = 0;

   private:
    const Journal& journal_;
  };

  Journal journal{state()};
  Served stores{state(), journal};
  std::optional<ControlServer> server{std::in_place, state(), ControlTable(store_commands(stores))};
};

TEST_F(ServedJournal, IsTheSameWithAHostAndWithout) {
  const std::vector<std::vector<std::string>> questions = {
      {}, {"--json"}, {"--csv"}, {"--last", "2"}, {"--user", "7"}, {"--card", "0x12d687"}, {"--kind", "opening"}};
  std::vector<std::string> answers;
  for (const auto& question : questions) {
    answers.push_back(run(question).out);
    EXPECT_NE(answers.back(), "");
  }
  server.reset();
  for (std::size_t i = 0; i < questions.size(); ++i) {
    EXPECT_EQ(run(questions[i]).out, answers[i]);
  }
}

TEST_F(ServedJournal, IsReadByTheHostAndNotByTheCommand) {
  server.reset();
  server.emplace(state(), ControlTable({}));
  EXPECT_THAT(run({}).err, StartsWith("achost: unknown command \"journal_query\""));
}

TEST_F(ServedJournal, ComesInPartsThatAreOne) {
  constexpr std::int64_t kMany = 3000;
  for (std::int64_t i = 3; i < kMany; ++i) {
    journal.note({.kind = i % 2 == 0 ? Kind::closing : Kind::opening, .fields = {{"reason", std::string(100, 'x')}}});
    if (i % 500 == 0) {
      wait_for(journal, i);
    }
  }
  wait_for(journal, kMany);
  const auto numbers_of = [this](const std::vector<std::string>& options) {
    std::vector<std::int64_t> found;
    std::istringstream lines(run(options).out);
    for (std::string line; std::getline(lines, line);) {
      found.push_back(nlohmann::json::parse(line).at("number"));
    }
    return found;
  };
  EXPECT_EQ(numbers_of({"--json"}), numbers());
  EXPECT_EQ(numbers_of({"--json", "--last", "2000"}), numbers({.last = 2000}));
  EXPECT_EQ(numbers_of({"--json", "--kind", "closing", "--after", "5"}),
            numbers({.kinds = {Kind::closing}, .after = 5}));
  EXPECT_EQ(numbers_of({"--json", "--since", "-1h"}), numbers());
}

TEST_F(ServedJournal, IsFollowedByWaitingAtTheHost) {
  Achost follower(words({"--follow", "--json", "--last", "1"}));
  EXPECT_EQ(nlohmann::json::parse(follower.next_line()).at("number"), 3);
  for (std::int64_t number = 4; number < 8; ++number) {
    journal.note({.kind = Kind::closing});
    EXPECT_EQ(nlohmann::json::parse(follower.next_line()).at("number"), number);
  }
  EXPECT_GT(stores.waits, 0);
}

TEST_F(ServedJournal, IsFollowedOnWhenTheHostEnds) {
  Achost follower(words({"--follow", "--json", "--last", "1"}));
  follower.next_line();
  server.reset();
  journal.note({.kind = Kind::closing});
  EXPECT_EQ(nlohmann::json::parse(follower.next_line()).at("number"), 4);
}

TEST_F(ServedJournal, AReaderWhoHasSeenEnoughEndsTheFollowing) {
  Achost command(words({"--follow"}));
  command.next_line();
  command.close_output();
  EXPECT_EQ(command.wait().status, 0);
}

TEST_F(ServedJournal, IsRefusedWithWhatThereIs) {
  StoreOwner owner(state());
  EXPECT_THAT(failure_of([&] {
                owner.ask({{"command", "journal_query"}, {"kinds", {"openings"}}});
              }),
              StartsWith("there is no kind \"openings\": there are identification, "));
  EXPECT_EQ(failure_of([&] {
              owner.ask({{"command", "journal_query"}, {"card", "x"}});
            }),
            "\"x\" is no card: a number such as 33 or 0x21");
}

TEST_F(AchostJournal, IsExaminedByCheck) {
  EXPECT_THAT(achost({"check", "--state", state()}).out, EndsWith("journal: 3 entries, numbers 1 to 3, whole\n"));
}

}  // namespace
}  // namespace achost::test
