// What is desired of a door, from a real broker to a control socket behind which a document is kept.
#include "gateway/mqtt/desired.h"

#include <gmock/gmock.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <csignal>
#include <fstream>
#include <map>
#include <mutex>

#include "door/base/failure.h"
#include "door/control/control.h"
#include "gateway/mqtt/tests/mosquitto.h"
#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

// What a daemon was given.
struct Given {
  std::int64_t revision = 0;
  std::optional<std::int64_t> from;
  std::string lines;
};

// A control socket that takes documents, and refuses one with the word "bad".
class Keeper {
 public:
  explicit Keeper(const std::filesystem::path& directory)
      : server_(directory, achost::ControlTable({state(), apply()})) {}

  std::vector<Given> given() const {
    const std::lock_guard lock(mutex_);
    return given_;
  }

  void forget() {
    const std::lock_guard lock(mutex_);
    revision_ = 0;
  }

  // Nothing is bad any more.
  void take_all() {
    const std::lock_guard lock(mutex_);
    takes_all_ = true;
  }

  // Somebody changes a user at the door.
  void drift() {
    const std::lock_guard lock(mutex_);
    has_drifted_ = true;
  }

 private:
  using Type = achost::ControlField::Type;

  achost::ControlCommand state() {
    return {"desired_state", {}, [this](const achost::Json&, achost::ControlStream& stream) {
              const std::lock_guard lock(mutex_);
              if (has_drifted_) {
                stream.send({{"drift", {{"user", 1}}}});
              }
              return achost::Json{{"revision", revision_ == 0 ? achost::Json() : achost::Json(revision_)}};
            }};
  }

  achost::ControlCommand apply() {
    return {.name = "desired_apply",
            .fields = {{"revision", Type::integer}, {"from", Type::integer, false}},
            .run = [this](const achost::Json& request, achost::ControlStream& stream) { return take(request, stream); },
            .changes = true,
            .takes_bytes = true};
  }

  achost::Json take(const achost::Json& request, achost::ControlStream& stream) {
    Given one{.revision = request["revision"].get<std::int64_t>(), .from = {}, .lines = {}};
    for (std::string piece; !(piece = stream.receive_bytes()).empty();) {
      one.lines += piece;
    }
    if (request.contains("from")) {
      one.from = request["from"].get<std::int64_t>();
    }
    const std::lock_guard lock(mutex_);
    if (!takes_all_ && one.lines.find("bad") != std::string::npos) {
      throw achost::RequestError("line 1 is bad");
    }
    revision_ = one.revision;
    given_.push_back(one);
    return achost::Json::object();
  }

  mutable std::mutex mutex_;  // guards all below: the server's threads write
  std::vector<Given> given_;
  std::int64_t revision_ = 0;
  bool has_drifted_ = false;
  bool takes_all_ = false;
  achost::ControlServer server_;
};

class DesiredTest : public testing::Test {
 protected:
  DesiredTest() {
    std::signal(SIGPIPE, SIG_IGN);
    std::filesystem::create_directory(directory_.path() / "daemon");
    keeper_.emplace(directory_.path() / "daemon");
    begin();
  }

  // A bridge's part of it, as at its start.
  void begin() {
    desired_.reset();
    broker_.reset();
    context_.emplace(1);
    daemon_.emplace(*context_, directory_.path() / "daemon");
    broker_.emplace(*context_, Place{.host = "127.0.0.1", .port = mosquitto_.port(), .client = "gate-1"},
                    Broker::Handlers{.up = [this] { desired_->broker_is_up(); },
                                     .message = [this](const Message& message) { take(message); }});
    desired_.emplace(Desired::Needs{.context = *context_,
                                    .daemon = *daemon_,
                                    .broker = *broker_,
                                    .door = "gate-1",
                                    .directory = directory_.path() / "parts",
                                    .say = [](const std::string&) {},
                                    .after_refusal = milliseconds(50)});
    broker_->subscribe(topics::desired("gate-1"));
    broker_->subscribe(topics::desired_answer("gate-1"));
    broker_->start();
    net::co_spawn(*context_, desired_->run(), net::detached);
    ASSERT_TRUE(runs_until([this] { return broker_->is_up(); }));
  }

  void take(const Message& message) {
    const auto rest = topics::place_of(message.topic)->rest;
    if (const auto hash = topics::behind(rest, "desired/parts/")) {
      desired_->take_part(*hash, message.payload);
    } else if (rest == "desired") {
      desired_->take_manifest(message.payload);
    } else if (rest == "desired/answer") {
      answers_.push_back(Json::parse(message.payload));
    }
  }

  bool runs_until(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + refhost::test::kPatience;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
      context_->restart();
      context_->run_for(milliseconds(5));
    }
    return condition();
  }

  void publish(const std::string& topic, const std::string& payload) {
    ASSERT_TRUE(broker_->publish({.topic = topic, .payload = payload, .retain = true}));
    ASSERT_TRUE(runs_until([this] { return broker_->in_flight() == 0; }));
  }

  std::string publish_part(const std::string& lines) {
    const std::string hash = hash_of(lines);
    publish(topics::desired_part("gate-1", hash), lines);
    return hash;
  }

  // The answer to a document of those parts.
  Json answer_to(std::int64_t revision, const std::vector<std::string>& hashes) {
    Json manifest = {{"revision", revision}, {"parts", Json::array()}};
    for (const std::string& hash : hashes) {
      manifest["parts"].push_back({{"hash", hash}, {"bytes", 1}});
    }
    answers_.clear();
    publish(topics::desired("gate-1"), manifest.dump());
    runs_until([&] { return !answers_.empty() && answers_.back().value("revision", Json()) == revision; });
    return answers_.empty() ? Json() : answers_.back();
  }

  const refhost::test::TemporaryDirectory directory_;
  test::Mosquitto mosquitto_;
  std::optional<Keeper> keeper_;
  std::optional<net::io_context> context_;
  std::optional<gateway::Daemon> daemon_;
  std::optional<Broker> broker_;
  std::optional<Desired> desired_;
  std::vector<Json> answers_;
};

TEST_F(DesiredTest, TheFirstDocumentGoesAsAWhole) {
  const auto one = publish_part("{\"user\": 1}\n");
  const auto two = publish_part("{\"user\": 2}\n");
  const Json answer = answer_to(5, {one, two});
  EXPECT_EQ(answer.value("applied", false), true) << answer;
  EXPECT_TRUE(answer.value("at", Json()).is_number());
  ASSERT_EQ(keeper_->given().size(), 1U);
  EXPECT_EQ(keeper_->given()[0].lines, "{\"user\": 1}\n{\"user\": 2}\n");
  EXPECT_FALSE(keeper_->given()[0].from.has_value());
}

TEST_F(DesiredTest, TheNextGoesAsItsDifferenceAlsoAfterARestart) {
  const auto kept = publish_part("{\"user\": 1}\n");
  const auto old_part = publish_part("{\"user\": 2}\n{\"user\": 3}\n");
  answer_to(5, {kept, old_part});
  begin();
  const auto new_part = publish_part("{\"user\": 2, \"name\": \"x\"}\n");
  EXPECT_EQ(answer_to(6, {kept, new_part}).value("applied", false), true);
  ASSERT_EQ(keeper_->given().size(), 2U);
  EXPECT_EQ(keeper_->given()[1].from, 5);
  EXPECT_EQ(keeper_->given()[1].lines, "{\"remove_user\": 3}\n{\"user\": 2, \"name\": \"x\"}\n");
}

// A difference would do what the daemon is to refuse, or leave the door what it is not to be.
TEST_F(DesiredTest, WhatADocumentNoLongerNamesAtAllGoesAsAWhole) {
  const auto office = publish_part("{\"schedule\": \"office\", \"days\": \"mon\"}\n");
  const auto people = publish_part("{\"user\": 1}\n");
  answer_to(5, {office, people});
  answer_to(6, {people});
  answer_to(7, {});
  answer_to(8, {publish_part("{\"usr\": 1}\n")});
  ASSERT_EQ(keeper_->given().size(), 4U);
  EXPECT_EQ(keeper_->given()[1].lines, "{\"user\": 1}\n");
  EXPECT_EQ(keeper_->given()[2].lines, "");
  EXPECT_EQ(keeper_->given()[3].lines, "{\"usr\": 1}\n");
  for (const Given& one : keeper_->given()) {
    EXPECT_FALSE(one.from.has_value()) << one.revision;
  }
}

TEST_F(DesiredTest, ThatThereAreNoSchedulesIsADifference) {
  const auto people = publish_part("{\"user\": 1}\n");
  answer_to(5, {publish_part("{\"schedule\": \"office\", \"days\": \"mon\"}\n"), people});
  answer_to(6, {people, publish_part("{\"remove_schedules\": true}\n")});
  ASSERT_EQ(keeper_->given().size(), 2U);
  EXPECT_EQ(keeper_->given()[1].from, 5);
  EXPECT_EQ(keeper_->given()[1].lines, "{\"remove_schedules\": true}\n");
}

TEST_F(DesiredTest, ADaemonThatHasAnotherRevisionGetsTheWhole) {
  const auto one = publish_part("{\"user\": 1}\n");
  answer_to(5, {one});
  keeper_->forget();
  const auto two = publish_part("{\"user\": 2}\n");
  answer_to(6, {two});
  ASSERT_EQ(keeper_->given().size(), 2U);
  EXPECT_FALSE(keeper_->given()[1].from.has_value());
  EXPECT_EQ(keeper_->given()[1].lines, "{\"user\": 2}\n");
}

TEST_F(DesiredTest, ADoorThatSomebodyHasChangedGetsTheWhole) {
  const auto one = publish_part("{\"user\": 1}\n");
  answer_to(5, {one});
  keeper_->drift();
  answer_to(6, {one});
  ASSERT_EQ(keeper_->given().size(), 2U);
  EXPECT_FALSE(keeper_->given()[1].from.has_value());
  EXPECT_EQ(keeper_->given()[1].lines, "{\"user\": 1}\n");
}

TEST_F(DesiredTest, WhatTheDoorHasIsNotGivenAgain) {
  const auto one = publish_part("{\"user\": 1}\n");
  answer_to(5, {one});
  begin();
  EXPECT_EQ(answer_to(5, {one}).value("applied", false), true);
  EXPECT_EQ(keeper_->given().size(), 1U);
}

TEST_F(DesiredTest, WhatTheDaemonRefusesIsAnswered) {
  const Json answer = answer_to(5, {publish_part("bad")});
  EXPECT_EQ(answer.value("applied", true), false);
  EXPECT_EQ(answer.value("error", ""), "line 1 is bad");
}

TEST_F(DesiredTest, WhatIsRefusedForAWhileIsTakenThen) {
  answer_to(5, {publish_part("bad")});
  keeper_->take_all();
  EXPECT_TRUE(runs_until([&] { return !keeper_->given().empty(); }));
  EXPECT_TRUE(runs_until([&] { return answers_.back().value("applied", false); }));
  EXPECT_EQ(answers_.back().value("revision", 0), 5);
}

TEST_F(DesiredTest, WhatIsRefusedIsGivenUpForTheNext) {
  answer_to(5, {publish_part("bad")});
  EXPECT_TRUE(answer_to(6, {publish_part("good")}).value("applied", false));
  keeper_->take_all();
  context_->run_for(milliseconds(200));
  EXPECT_EQ(keeper_->given().size(), 1U);
}

TEST_F(DesiredTest, APartThatIsNotWhatItsNameSaysIsNotTaken) {
  const std::string hash = hash_of("{\"user\": 1}\n");
  publish(topics::desired_part("gate-1", hash), "{\"user\": 666}\n");
  const Json answer = answer_to(5, {hash});
  EXPECT_THAT(answer.value("error", ""), HasSubstr("the part " + hash + " is not what its name says"));
  publish(topics::desired_part("gate-1", hash), "{\"user\": 1}\n");
  EXPECT_TRUE(runs_until([&] { return answers_.back().value("applied", false); }));
}

TEST_F(DesiredTest, APartThatIsHereIsNotFetchedAgain) {
  const auto one = publish_part("{\"user\": 1}\n");
  answer_to(5, {one});
  publish(topics::desired_part("gate-1", one), "");
  EXPECT_EQ(answer_to(6, {one, publish_part("{\"user\": 2}\n")}).value("applied", false), true);
}

TEST_F(DesiredTest, APartThatIsDamagedHereIsFetchedAnew) {
  const auto one = publish_part("{\"user\": 1}\n");
  answer_to(5, {one});
  std::ofstream(directory_.path() / "parts" / one) << "{\"user\": 666}\n";
  keeper_->forget();
  const auto two = publish_part("{\"user\": 2}\n");
  EXPECT_THAT(answer_to(6, {one, two}).value("error", ""), HasSubstr("the part " + one + " is damaged"));
  ASSERT_TRUE(runs_until([&] { return answers_.back().value("applied", false); }));
  EXPECT_EQ(keeper_->given().back().lines, "{\"user\": 1}\n{\"user\": 2}\n");
}

TEST_F(DesiredTest, WithoutAPartOfTheOneBeforeTheWholeGoes) {
  const auto kept = publish_part("{\"user\": 1}\n");
  const auto gone = publish_part("{\"user\": 2}\n");
  answer_to(5, {kept, gone});
  std::filesystem::remove(directory_.path() / "parts" / gone);
  EXPECT_EQ(answer_to(6, {kept}).value("applied", false), true);
  ASSERT_EQ(keeper_->given().size(), 2U);
  EXPECT_FALSE(keeper_->given()[1].from.has_value());
}

TEST_F(DesiredTest, WhatIsNoManifestIsAnswered) {
  publish(topics::desired("gate-1"), "{\"revision\": 0}");
  EXPECT_TRUE(runs_until([&] { return !answers_.empty(); }));
  EXPECT_THAT(answers_.at(0).value("error", ""), HasSubstr("what is desired is to be"));
}

TEST_F(DesiredTest, PartsThatNoDocumentNamesAreRemoved) {
  const auto one = publish_part("{\"user\": 1}\n");
  answer_to(5, {one});
  EXPECT_TRUE(std::filesystem::exists(directory_.path() / "parts" / one));
  answer_to(6, {publish_part("{\"user\": 2}\n")});
  EXPECT_FALSE(std::filesystem::exists(directory_.path() / "parts" / one));
}

}  // namespace
}  // namespace mqtt
