#include "door/control/control.h"

#include <gmock/gmock.h>

#include <random>
#include <thread>

#include "door/tests/control_fixture.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::HasSubstr;

TEST_F(Control, AnswersARequest) {
  EXPECT_EQ(ask({{"command", "echo"}, {"text", "olá"}}), Json({{"ok", true}, {"text", "olá"}}));
}

TEST_F(Control, FailuresAreAnswers) {
  EXPECT_EQ(ask({{"command", "fail"}}), Json({{"ok", false}, {"status", 1}, {"error", "it did not work"}}));
  EXPECT_EQ(ask({{"command", "refuse"}}), Json({{"ok", false}, {"status", 2}, {"error", "that is not allowed"}}));
}

TEST_F(Control, RequestsThatAreNoneGetAnErrorAndTheConnectionGoesOn) {
  RawClient client(directory.path());
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "the request is no JSON"},
      {"{\"command\":", "the request is no JSON"},
      {"\xff\xfe", "the request is no JSON"},
      {std::string(20000, '['), "the request is no JSON"},
      {R"({"command":"echo","text":"a","number":1e400})", "the request is no JSON"},
      {"[]", "a request is an object with a text"},
      {"{}", "a request is an object with a text"},
      {"{\"command\":5}", "a request is an object with a text"},
      {"{\"command\":\"no\"}", "unknown command \\\"no\\\": there are echo, fail, refuse, count and wait"},
      {"{\"command\":\"echo\"}", "\\\"echo\\\" without \\\"text\\\", a text"},
      {"{\"command\":\"echo\",\"text\":7}", "\\\"text\\\" of \\\"echo\\\" is to be a text"},
      {"{\"command\":\"echo\",\"text\":\"\",\"number\":1.5}", "is to be a whole number"},
      {"{\"command\":\"echo\",\"text\":\"\",\"number\":9223372036854775808}", "is to be a whole number"},
      {"{\"command\":\"echo\",\"text\":\"\",\"flag\":1}", "is to be true or false"},
      {"{\"command\":\"echo\",\"text\":\"\",\"more\":1}", "has no \\\"more\\\": there are text, number and flag"},
      {"{\"command\":\"fail\",\"more\":1}", "\\\"fail\\\" has no \\\"more\\\""},
  };
  for (const auto& [request, text] : cases) {
    ASSERT_TRUE(client.send(request + "\n"));
    const std::string answer = client.receive();
    EXPECT_THAT(answer, HasSubstr("\"ok\":false,\"status\":2")) << request.substr(0, 40);
    EXPECT_THAT(answer, HasSubstr(text)) << request.substr(0, 40);
  }
  client.send("{\"command\":\"echo\",\"text\":\"still here\"}\n");
  EXPECT_THAT(client.receive(), HasSubstr("still here"));
}

TEST_F(Control, ARequestOfTheLongestLengthIsTakenAndALongerOneEndsTheConnection) {
  const std::string head = R"({"command":"echo","text":")";
  const std::string tail = "\"}\n";
  RawClient client(directory.path());
  const std::string longest(ControlServer::kLongestRequest - head.size() - tail.size(), 'x');
  client.send(head + longest + tail);
  EXPECT_EQ(client.receive(), R"({"ok":true,"text":")" + longest + "\"}");
  client.send(head + longest + "x" + tail);
  EXPECT_THAT(client.receive(), HasSubstr("a request has at most 65536 bytes"));
  EXPECT_EQ(client.receive(), "end");
  EXPECT_EQ(ask({{"command", "echo"}, {"text", "a"}})["ok"], true);
}

TEST_F(Control, RequestsMayComeInAnyPieces) {
  RawClient client(directory.path());
  for (const char c : std::string("{\"command\":\"echo\",\"text\":\"a\"}\n{\"command\":\"echo\",\"text\":\"b\"}\n{")) {
    client.send(std::string(1, c));
  }
  EXPECT_THAT(client.receive(), HasSubstr("\"a\""));
  EXPECT_THAT(client.receive(), HasSubstr("\"b\""));
}

TEST_F(Control, ACommandMayAnswerWithManyLines) {
  ControlClient client(directory.path());
  client.send({{"command", "count"}, {"to", 3}});
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(client.receive(), Json({{"number", i}}));
  }
  EXPECT_EQ(client.receive(), Json({{"ok", true}}));
}

TEST_F(Control, ADeadHostsSocketIsReplaced) {
  const auto socket_file = directory.path() / "control.sock";
  server.reset();
  std::ofstream(socket_file) << "left behind";
  server.emplace(directory.path(), commands());
  EXPECT_EQ(ask({{"command", "echo"}, {"text", "a"}})["ok"], true);
}

TEST(ControlSocket, MayLieInADirectoryOfAnyLength) {
  const TemporaryDirectory directory;
  const auto deep = directory.path() / std::string(100, 'a') / std::string(100, 'b');
  std::filesystem::create_directories(deep);
  const ControlServer server(deep, commands());
  ControlClient client(deep);
  client.send({{"command", "echo"}, {"text", "a"}});
  EXPECT_EQ(client.receive()["ok"], true);
}

TEST(ControlSocket, WithoutAHostTheWayOutIsTold) {
  const TemporaryDirectory directory;
  for (const auto& place : {directory.path(), directory.path() / "missing"}) {
    EXPECT_EQ(failure_of([&] { ControlClient client(place); }),
              "no host runs on " + place.string() + ": start one with achost run --state " + place.string());
  }
}

// Whatever comes, the server answers the next client.
TEST_F(Control, SurvivesManyClientsWithNonsense) {
  const std::string good = R"({"command":"count","to":3})";
  std::vector<std::jthread> clients;
  for (unsigned thread = 0; thread < 4; ++thread) {
    clients.emplace_back([&, thread] {
      std::mt19937 random(thread);
      for (int round = 0; round < 300; ++round) {
        RawClient client(directory.path());
        std::string request = good;
        for (auto changes = random() % 4; changes > 0; --changes) {
          request[random() % request.size()] = static_cast<char>(random());
        }
        client.send(request.substr(0, random() % (request.size() + 1)) + (random() % 2 == 0 ? "\n" : ""));
        if (random() % 3 == 0) {
          client.send("\n");
          client.receive();
        }
      }
    });
  }
  clients.clear();
  EXPECT_EQ(ask({{"command", "echo"}, {"text", "still here"}})["ok"], true);
}

}  // namespace
}  // namespace achost::test
