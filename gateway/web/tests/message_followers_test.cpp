#include "gateway/web/message_followers.h"

#include <gmock/gmock.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <regex>

namespace web {
namespace {

using testing::ElementsAre;

Json following(const std::string& run, int after, int newest) {
  return {{"following", true}, {"run", run}, {"after", after}, {"newest", newest}};
}

Json message(int number) { return {{"number", number}, {"time", ""}, {"message", "m"}, {"fields", Json::object()}}; }

Json gap(int first, int last) { return {{"gap", {{"reason", "gone"}, {"first", first}, {"last", last}}}}; }

class MessageFollowersTest : public testing::Test {
 protected:
  std::shared_ptr<Onlooker> onlooker() { return std::make_shared<Onlooker>(context_); }

  // As the daemon tells it: the messages from one number to another.
  bool tell(int first, int last) {
    bool goes_on = true;
    for (int number = first; number <= last; ++number) {
      goes_on = followers_.take(message(number)) && goes_on;
    }
    return goes_on;
  }

  // The ids of the events that he was told since, and of a gap what is missing.
  std::vector<std::string> told(const std::shared_ptr<Onlooker>& to) {
    std::string text;
    net::co_spawn(
        context_,
        [&]() -> net::awaitable<void> {
          const auto next = co_await to->next(std::chrono::milliseconds(0));
          text = next.value_or("over");
        },
        net::detached);
    context_.restart();
    context_.run();
    std::vector<std::string> events;
    static const std::regex kEvent("id: (.*)\nevent: (.*)\ndata: (.*)\n\n");
    for (std::sregex_iterator at(text.begin(), text.end(), kEvent); at != std::sregex_iterator(); ++at) {
      events.push_back((*at)[1].str() + ((*at)[2] == "gap" ? " " + (*at)[3].str() : ""));
    }
    return events;
  }

  net::io_context context_;
  MessageFollowers followers_;
};

TEST_F(MessageFollowersTest, WhoComesBeginsWithWhatPasses) {
  const auto first = onlooker();
  EXPECT_FALSE(followers_.add(first, ""));
  EXPECT_FALSE(followers_.request().contains("after"));
  EXPECT_TRUE(followers_.take(following("r", 7, 7)));
  EXPECT_TRUE(tell(8, 9));
  const auto second = onlooker();
  EXPECT_FALSE(followers_.add(second, ""));
  EXPECT_TRUE(tell(10, 10));
  EXPECT_THAT(told(first), ElementsAre("r:8", "r:9", "r:10"));
  EXPECT_THAT(told(second), ElementsAre("r:10"));
}

TEST_F(MessageFollowersTest, WhatIsNoIdBeginsWithWhatPasses) {
  for (const char* const id : {"", "r", "r:", ":", "r:x", "r:-1", "r:99999999999999999999"}) {
    const auto one = onlooker();
    followers_.add(one, id);
    EXPECT_FALSE(followers_.request().contains("after")) << id;
    followers_.remove(one);
  }
}

TEST_F(MessageFollowersTest, WhoComesBackIsToldWhatHeHasMissed) {
  const auto one = onlooker();
  EXPECT_FALSE(followers_.add(one, "r:3"));
  EXPECT_EQ(followers_.request(), Json::parse(R"({"command":"events","after":3,"run":"r"})"));
  EXPECT_TRUE(followers_.take(following("r", 3, 5)));
  EXPECT_TRUE(tell(4, 6));
  EXPECT_THAT(told(one), ElementsAre("r:4", "r:5", "r:6"));
}

TEST_F(MessageFollowersTest, TheDaemonIsAskedAnewForWhoLacksMoreAndNobodyIsToldTwice) {
  const auto first = onlooker();
  followers_.add(first, "");
  followers_.request();
  followers_.take(following("r", 7, 7));
  tell(8, 9);
  const auto late = onlooker();
  EXPECT_TRUE(followers_.add(late, "r:5"));
  EXPECT_FALSE(followers_.take(message(10))) << "what was on its way: the late one lacks some before it";
  EXPECT_EQ(followers_.request().at("after"), 5);
  EXPECT_TRUE(followers_.take(following("r", 5, 10)));
  EXPECT_TRUE(tell(6, 11));
  EXPECT_THAT(told(first), ElementsAre("r:8", "r:9", "r:10", "r:11"));
  EXPECT_THAT(told(late), ElementsAre("r:6", "r:7", "r:8", "r:9", "r:10", "r:11"));
}

TEST_F(MessageFollowersTest, WhoComesWhileOthersCatchUpBeginsWithWhatPasses) {
  const auto late = onlooker();
  const auto fresh = onlooker();
  const auto fresher = onlooker();
  followers_.add(late, "r:5");
  followers_.add(fresh, "");
  followers_.request();
  EXPECT_TRUE(followers_.take(following("r", 5, 8)));
  EXPECT_TRUE(tell(6, 6));
  EXPECT_FALSE(followers_.add(fresher, ""));
  EXPECT_TRUE(tell(7, 9));
  EXPECT_THAT(told(late), ElementsAre("r:6", "r:7", "r:8", "r:9"));
  EXPECT_THAT(told(fresh), ElementsAre("r:9"));
  EXPECT_THAT(told(fresher), ElementsAre("r:9"));
}

TEST_F(MessageFollowersTest, ADaemonThatWasAwayIsAskedForWhatIsMissing) {
  const auto one = onlooker();
  followers_.add(one, "");
  followers_.request();
  followers_.take(following("r", 0, 0));
  tell(1, 2);
  EXPECT_EQ(followers_.request(), Json::parse(R"({"command":"events","after":2,"run":"r"})"));
}

TEST_F(MessageFollowersTest, AnotherRunIsToldToEachWhoHasHadOneBefore) {
  const auto old = onlooker();
  const auto current = onlooker();
  const auto fresh = onlooker();
  followers_.add(old, "r:5");
  followers_.add(current, "s:2");
  followers_.add(fresh, "");
  const Json request = followers_.request();
  const bool asks_of_this = request.at("run") == "s";
  // The daemon answers as it does to each of the two.
  EXPECT_EQ(followers_.take(following("s", asks_of_this ? 2 : 0, 3)), !asks_of_this);
  if (asks_of_this) {
    EXPECT_EQ(followers_.request(), Json::parse(R"({"command":"events","after":0,"run":"s"})"));
    EXPECT_TRUE(followers_.take(following("s", 0, 3)));
  }
  followers_.take({{"gap", {{"reason", "another_run"}, {"after", 0}}}});
  EXPECT_TRUE(tell(1, 4));
  EXPECT_THAT(told(old), ElementsAre(R"(s:0 {"reason":"another_run","after":0})", "s:1", "s:2", "s:3", "s:4"));
  EXPECT_THAT(told(current), ElementsAre("s:3", "s:4"));
  EXPECT_THAT(told(fresh), ElementsAre("s:4"));
}

TEST_F(MessageFollowersTest, ANumberThatWasNotGivenYetIsAnotherRuns) {
  const auto one = onlooker();
  followers_.add(one, "r:9");
  followers_.request();
  EXPECT_TRUE(followers_.take(following("r", 0, 2)));
  tell(1, 2);
  EXPECT_THAT(told(one), ElementsAre(R"(r:0 {"reason":"another_run","after":0})", "r:1", "r:2"));
}

TEST_F(MessageFollowersTest, WhatIsGoneIsToldToWhoHasNotHadIt) {
  const auto first = onlooker();
  const auto second = onlooker();
  const auto third = onlooker();
  followers_.add(first, "r:2");
  followers_.add(second, "r:4");
  followers_.add(third, "r:9");
  followers_.request();
  followers_.take(following("r", 2, 9));
  EXPECT_TRUE(followers_.take(gap(3, 6)));
  tell(7, 10);
  EXPECT_THAT(told(first), ElementsAre(R"(r:6 {"reason":"gone","first":3,"last":6})", "r:7", "r:8", "r:9", "r:10"));
  EXPECT_THAT(told(second), ElementsAre(R"(r:6 {"reason":"gone","first":5,"last":6})", "r:7", "r:8", "r:9", "r:10"));
  EXPECT_THAT(told(third), ElementsAre("r:10"));
}

TEST_F(MessageFollowersTest, WhenAllHaveGoneTheNextBeginsWithWhatPasses) {
  const auto one = onlooker();
  followers_.add(one, "");
  followers_.request();
  followers_.take(following("r", 3, 3));
  followers_.remove(one);
  const auto next = onlooker();
  EXPECT_FALSE(followers_.add(next, ""));
  EXPECT_FALSE(followers_.request().contains("after"));
  followers_.take(following("r", 8, 8));
  tell(9, 9);
  EXPECT_THAT(told(next), ElementsAre("r:9"));
}

}  // namespace
}  // namespace web
