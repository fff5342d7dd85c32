#include "door/simulation/story.h"

#include <gmock/gmock.h>

#include "refhost/tests/support.h"
#include "uhfsim/command.h"

namespace achost {
namespace {

using refhost::test::failure_of;
using refhost::test::Recorder;
using testing::ElementsAre;

TEST(StoryCheck, TakesEveryCommand) {
  Story story;
  for (const char* line : {"say a card", "given region KOREA", "card 33 2", "card 33 nobody", "config set region KOREA",
                           "config set host.door_relay 3", "gpio set 1 1", "rex", "enroll 2"}) {
    EXPECT_NO_THROW(story.check(line)) << line;
  }
}

TEST(StoryCheck, NamesWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"frob", "unknown word \"frob\" after \"host\"; expected say, given, card, config set, gpio set, rex or enroll"},
      {"config get region", "unknown word \"config\" after \"host\"; expected say"},
      {"enroll", "too few words after \"enroll\"; expected \"enroll USER\""},
      {"rex now", "too many words after \"rex\"; expected \"rex\""},
      {"gpio set x 1", "\"x\"; expected a whole number"},
      {"card 33 somebody", "\"somebody\"; expected a whole number"},
      {"given regin KOREA", "there is no setting regin in section uhf; the nearest is region in section uhf"},
      {"config set region MOON", "setting region cannot be \"MOON\""}};
  for (const auto& [line, text] : cases) {
    Story story;
    EXPECT_THROW(story.check(line), uhfsim::CommandError) << line;
    EXPECT_THAT(failure_of([&] { Story().check(line); }), testing::StartsWith(text));
  }
}

TEST(StoryCheck, CollectsWhatIsGiven) {
  Story story;
  story.check("given region KOREA");
  story.check("rex");
  story.check("given host.door_relay 3");
  ASSERT_EQ(story.givens().size(), 2U);
  EXPECT_EQ(story.givens()[0].section, "uhf");
  EXPECT_EQ(story.givens()[1].key, "door_relay");
  EXPECT_EQ(story.givens()[1].value, "3");
}

// Its thread goes on, so what it uses stays.
TEST(StoryRun, DoesItsLinesInOrderOnceItHasBegun) {
  const refhost::test::TemporaryDirectory directory;
  static auto& done = *new Recorder<std::string>;
  static auto& story = *new Story;
  auto& users = *new UserStore(directory.path(), UserStore::Access::read_write);
  const auto record = [](const Json& request, ControlStream&) {
    done.add(request.dump());
    return Json::object();
  };
  using Type = ControlField::Type;
  for (const char* line : {"say An  exit request", "card 33 2", "rex", "gpio set 1 0", "enroll 2", "card 33 nobody",
                           "config set region KOREA"}) {
    story.tell(line);
  }
  story.begin({.commands = ControlTable({{"rex", {}, record},
                                         {"gpio_set", {{"line", Type::integer}, {"value", Type::integer}}, record},
                                         {"enroll",
                                          {{"user", Type::integer}},
                                          [&users, record](const Json& request, auto& stream) {
                                            done.add("owner " + std::to_string(users.owner_of(33).value_or(0)));
                                            return record(request, stream);
                                          }},
                                         {"config_set", {{"section"}, {"key"}, {"value"}}, record}}),
               .users = users,
               .say = [](const std::string& text) { done.add(text); }});
  EXPECT_THAT(done.wait_for(6),
              ElementsAre("An exit request", R"({"command":"rex"})", R"({"command":"gpio_set","line":1,"value":0})",
                          "owner 2", R"({"command":"enroll","user":2})",
                          R"({"command":"config_set","section":"uhf","key":"region","value":"KOREA"})"));
  EXPECT_EQ(users.owner_of(33), std::nullopt);
}

}  // namespace
}  // namespace achost
