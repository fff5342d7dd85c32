// Whoever owns the stores is asked: a server that runs, else this process.
#include <gmock/gmock.h>

#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/cli/request.h"
#include "door/control/answer_parts.h"
#include "door/control/audit_commands.h"
#include "door/control/own_stores.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

constexpr int kRecords = 1200;  // of more than one answer

class Owner : public testing::Test {
 protected:
  Owner() {
    refhost::AuditLog log(directory.path());
    log.append({.time = "t", .type = 1, .details = std::string(3 * kLongestPiece, 'x')});  // longer than a piece
    for (int i = 2; i <= kRecords; ++i) {
      log.append({.time = "t", .type = 1, .details = std::string(300, 'x')});
    }
  }

  void serve() {
    server.reset();
    server.emplace(directory.path(), ControlTable(store_commands(stores)));
  }

  // The numbers of all audit records; between two answers something happens.
  std::vector<std::int64_t> numbers(
      StoreOwner& owner, const std::function<void()>& between = [] {}) const {
    std::vector<std::int64_t> found;
    const Json request = audit_request({}, {});
    Json answer;
    for (owner.begin(request);; owner.begin(request_behind(request, answer))) {
      std::string bytes;
      answer = owner.finish({.take = [&bytes](std::string_view more) { bytes += more; }});
      unpack_audit(answer, bytes, [&found](const refhost::AuditEntry& entry) { found.push_back(entry.id); });
      if (!answer.at("more")) {
        return found;
      }
      between();
    }
  }

  void expect_all(const std::vector<std::int64_t>& found) const {
    ASSERT_EQ(found.size(), static_cast<std::size_t>(kRecords));
    for (std::int64_t i = 0; i < kRecords; ++i) {
      ASSERT_EQ(found[static_cast<std::size_t>(i)], i + 1);
    }
  }

  const TemporaryDirectory directory;
  OwnStores stores{directory.path()};
  std::optional<ControlServer> server;
};

TEST_F(Owner, IsThisProcessWhereNoDaemonRuns) {
  StoreOwner owner(directory.path());
  expect_all(numbers(owner));
  EXPECT_FALSE(owner.is_daemon());
}

TEST_F(Owner, IsTheDaemonThatRuns) {
  serve();
  StoreOwner owner(directory.path());
  expect_all(numbers(owner));
  EXPECT_TRUE(owner.is_daemon());
}

TEST_F(Owner, IsAskedAgainWhenItsConnectionHasEnded) {
  serve();
  StoreOwner owner(directory.path());
  int ends = 0;
  expect_all(numbers(owner, [this, &ends] {
    serve();
    ++ends;
  }));
  EXPECT_GT(ends, 2);
}

TEST_F(Owner, IsAskedAgainByAClientThatOthersHaveSentAway) {
  serve();
  StoreOwner owner(directory.path());
  int times = 0;
  expect_all(numbers(owner, [this, &times] {
    if (++times > 2) {
      return;
    }
    std::vector<std::unique_ptr<ControlClient>> others;
    for (std::size_t i = 0; i <= ControlServer::kMostClients; ++i) {
      others.push_back(std::make_unique<ControlClient>(directory.path()));
      others.back()->send({{"command", "config_get"}, {"section", "uhf"}, {"key", "region"}});
      others.back()->receive();
    }
  }));
}

TEST_F(Owner, IsThisProcessFromThenOnWhenTheDaemonEnds) {
  serve();
  StoreOwner owner(directory.path());
  expect_all(numbers(owner, [this] { server.reset(); }));
  EXPECT_FALSE(owner.is_daemon());
}

TEST_F(Owner, HoldsTheDirectoryFromItsFirstChangeOn) {
  StoreOwner owner(directory.path());
  owner.ask({{"command", "user_list"}});
  EXPECT_NO_THROW(refhost::InstanceLock(directory.path()));
  owner.ask({{"command", "user_put"}, {"user", 7}, {"name", "Ana"}});
  EXPECT_THROW(refhost::InstanceLock(directory.path()), refhost::DirectoryInUse);
}

TEST_F(Owner, MayReadWhatAnotherHolds) {
  const refhost::InstanceLock lock(directory.path());
  StoreOwner owner(directory.path());
  expect_all(numbers(owner));
  EXPECT_EQ(failure_of([&] {
              owner.ask({{"command", "user_put"}, {"user", 7}, {"name", "Ana"}});
            }),
            "the state directory " + directory.path().string() + " is in use by process " + std::to_string(getpid()) +
                ": end it first, or give another directory with --state");
}

TEST_F(Owner, RefusesTheSameInBothCases) {
  for (const bool runs : {false, true}) {
    if (runs) {
      stores.lock();
      serve();
    }
    StoreOwner owner(directory.path());
    for (const auto& [request, text] : std::vector<std::pair<Json, std::string>>{
             {{{"command", "user_put"}, {"user", 0}, {"name", ""}}, "a user has a number of 1 or more, not 0"},
             {{{"command", "user_remove"}, {"user", 9}}, "there is no user 9: achost user list shows all"},
             {{{"command", "card_add"}, {"card", "x"}, {"user", 7}}, "\"x\" is no card: a number such as 33 or 0x21"},
             {{{"command", "user_rename"}, {"user", 7}}, "\"user_rename\" without \"name\", a text"}}) {
      EXPECT_EQ(failure_of([&, &wanted = request] { owner.ask(wanted); }), text) << runs;
    }
    EXPECT_EQ(owner.is_daemon(), runs);
  }
}

TEST_F(Owner, KnowsWhoMakesAChange) {
  std::vector<Maker> makers;
  server.emplace(directory.path(), ControlTable({{.name = "user_put",
                                                  .fields = {},
                                                  .run =
                                                      [&makers](const Json&, ControlStream&) {
                                                        makers.push_back(*MakerScope::current());
                                                        return Json::object();
                                                      },
                                                  .changes = true}}));
  StoreOwner(directory.path()).ask({{"command", "user_put"}});
  EXPECT_EQ(makers, std::vector<Maker>{own_maker()});
}

}  // namespace
}  // namespace achost::test
