#include "door/control/control.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <random>
#include <thread>

#include "cli/line_socket.h"
#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/control/control_events.h"
#include "refhost/send.h"
#include "refhost/settings_schema.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::HasSubstr;
using Type = ControlField::Type;

ControlTable commands() {
  return ControlTable({
      {"echo",
       {{"text", Type::text}, {"number", Type::integer, false}, {"flag", Type::flag, false}},
       [](const Json& request, ControlStream&) {
         return Json{{"text", request["text"]}};
       }},
      {"fail", {}, [](const Json&, ControlStream&) -> Json { throw std::runtime_error("it did not work"); }},
      {"refuse", {}, [](const Json&, ControlStream&) -> Json { throw refhost::SettingError("that is not allowed"); }},
      {"count",
       {{"to", Type::integer}},
       [](const Json& request, ControlStream& stream) {
         for (int i = 1; i <= request["to"].get<int>() && stream.send({{"number", i}}); ++i) {
         }
         return Json::object();
       }},
      {"wait",
       {},
       [](const Json&, ControlStream& stream) {
         stream.send({{"waiting", true}});
         while (!stream.is_over()) {
           std::this_thread::sleep_for(std::chrono::milliseconds(1));
         }
         return Json::object();
       }},
  });
}

// Of the bytes that came with the request.
Json measured(ControlStream& stream) {
  std::size_t bytes = 0;
  std::size_t pieces = 0;
  for (std::string piece; !(piece = stream.receive_bytes()).empty(); ++pieces) {
    bytes += piece.size();
  }
  return {{"bytes", bytes}, {"pieces", pieces}};
}

ControlTable commands_with_bytes(std::function<void(const Json&)> taken = [](const Json&) {}) {
  return ControlTable({
      {.name = "take",
       .fields = {},
       .run =
           [taken = std::move(taken)](const Json&, ControlStream& stream) {
             auto result = measured(stream);
             taken(result);
             return result;
           },
       .takes_bytes = true},
      {.name = "refuse",
       .fields = {},
       .run = [](const Json&, ControlStream&) -> Json { throw Failure(kFailed, "no"); },
       .takes_bytes = true},
      {.name = "give",
       .fields = {{"pieces", Type::integer}},
       .run =
           [](const Json& request, ControlStream& stream) {
             const std::string piece(kLongestPiece, '\n');
             for (int i = 0; i < request["pieces"] && stream.send_bytes(piece); ++i) {
             }
             return Json::object();
           }},
      {.name = "who",
       .fields = {},
       .run = [](const Json&, ControlStream&) -> Json {
         return {{"uid", MakerScope::current()->uid}};
       },
       .changes = true},
  });
}

constexpr const char* kEcho = "{\"command\":\"echo\",\"text\":\"a\"}\n";

// Takes the descriptors that this process may have.
class Descriptors {
 public:
  Descriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few{.rlim_cur = 256, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~Descriptors() { give_back(); }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  void take_all() {
    for (int fd = dup(STDERR_FILENO); fd >= 0; fd = dup(STDERR_FILENO)) {
      taken_.push_back(fd);
    }
  }

  void give_back() {
    for (const int fd : std::exchange(taken_, {})) {
      close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &before_);
  }

 private:
  rlimit before_{};
  std::vector<int> taken_;
};

// A client that sends what it likes.
class RawClient {
 public:
  // before: what happens between having a socket and connecting it.
  explicit RawClient(
      const std::filesystem::path& directory, const std::function<void()>& before = [] {})
      : place_(directory, "control.sock"), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    before();
    EXPECT_EQ(place_.connect(socket_), 0);
  }
  ~RawClient() { close(socket_); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  bool send(const std::string& text) const { return send_all(socket_, text); }

  // The next line; "end" when the server has closed.
  std::string receive() {
    std::string line;
    return reader_.next(line, kPatience) == LineReader::Outcome::line ? line : "end";
  }

  // Wait until the server has closed, without reading.
  bool wait_for_end() const {
    pollfd end{socket_, 0, 0};
    return poll(&end, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) > 0;
  }

 private:
  SocketPlace place_;
  int socket_;
  LineReader reader_{socket_, 1 << 20};
};

class Control : public testing::Test {
 protected:
  Json ask(const Json& request) const {
    ControlClient client(directory.path());
    client.send(request);
    return client.receive();
  }

  TemporaryDirectory directory;
  std::optional<ControlServer> server{std::in_place, directory.path(), commands()};
};

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

class ControlBytes : public Control {
 protected:
  ControlBytes() {
    server.reset();
    server.emplace(directory.path(), commands_with_bytes([this](const Json&) { ++taken; }),
                   ControlLimits{.patience = kPatience});
  }

  std::atomic<int> taken = 0;  // requests whose bytes have all come
};

TEST_F(ControlBytes, GoWithARequestInPieces) {
  ControlClient client(directory.path());
  client.send({{"command", "take"}});
  EXPECT_TRUE(client.send_bytes(std::string(kLongestPiece, '\n')));
  EXPECT_TRUE(client.send_bytes("{}"));
  EXPECT_TRUE(client.send_bytes(""));
  EXPECT_EQ(client.receive(), Json({{"ok", true}, {"bytes", kLongestPiece + 2}, {"pieces", 2}}));
  client.send({{"command", "who"}});
  EXPECT_EQ(client.receive(), Json({{"ok", true}, {"uid", geteuid()}})) << "the connection goes on";
}

TEST_F(ControlBytes, GoWithAnAnswerInPieces) {
  ControlClient client(directory.path());
  client.send({{"command", "give"}, {"pieces", 40}});
  for (int i = 0; i < 40; ++i) {
    const Json line = client.receive();
    EXPECT_EQ(line, Json({{"bytes", kLongestPiece}}));
    EXPECT_EQ(client.receive_bytes(line), std::string(kLongestPiece, '\n'));
  }
  EXPECT_EQ(client.receive(), Json({{"ok", true}}));
}

TEST_F(ControlBytes, ThatNobodyWantsEndTheConnectionBehindTheAnswer) {
  ControlClient client(directory.path());
  client.send({{"command", "refuse"}});
  while (client.send_bytes(std::string(kLongestPiece, 'x'))) {
  }
  EXPECT_EQ(client.receive(), Json({{"ok", false}, {"status", 1}, {"error", "no"}}));
  EXPECT_THROW(client.receive(), HostGone);
}

TEST_F(ControlBytes, OfAClientThatHasGoneAreNotTaken) {
  for (const char* const left_out : {"{\"bytes\":0}\n", "x{\"bytes\":0}\n", "\n0\n"}) {
    std::string said = "{\"command\":\"take\"}\n{\"bytes\":2}\nab{\"bytes\":3}\ncde{\"bytes\":0}\n";
    RawClient(directory.path()).send(said.substr(0, said.size() - std::string(left_out).size()));
  }
  server.reset();  // waits for the commands
  EXPECT_EQ(taken, 0);
}

TEST_F(ControlBytes, AreRefusedWhereTheirNumberIsNoneOrTooLarge) {
  for (const char* const header : {"{}", "[]", "{\"bytes\":-1}", "{\"bytes\":\"1\"}", "{\"bytes\":131073}", "x"}) {
    RawClient client(directory.path());
    client.send(std::string("{\"command\":\"take\"}\n") + header + "\n");
    EXPECT_THAT(client.receive(), HasSubstr("\"ok\":false,\"status\":2")) << header;
    EXPECT_EQ(client.receive(), "end") << header;
  }
}

TEST_F(Control, WhoHasWaitedLongestMakesRoomForAnother) {
  std::vector<std::unique_ptr<RawClient>> clients;
  for (std::size_t i = 0; i < ControlServer::kMostClients; ++i) {
    clients.push_back(std::make_unique<RawClient>(directory.path()));
    clients.back()->send(kEcho);
    ASSERT_THAT(clients.back()->receive(), HasSubstr("\"ok\":true"));
  }
  clients[0]->send(kEcho);  // so that the second has waited longest
  ASSERT_THAT(clients[0]->receive(), HasSubstr("\"ok\":true"));
  RawClient late(directory.path());
  late.send(kEcho);
  EXPECT_THAT(late.receive(), HasSubstr("\"ok\":true"));
  EXPECT_THAT(clients[1]->receive(), HasSubstr("others needed this place: connect again"));
  EXPECT_EQ(clients[1]->receive(), "end");
  clients[0]->send(kEcho);
  EXPECT_THAT(clients[0]->receive(), HasSubstr("\"ok\":true"));
}

// Clients whose requests do not end.
class ControlIsFull : public Control {
 protected:
  void SetUp() override {
    for (std::size_t i = 0; i < ControlServer::kMostClients; ++i) {
      add();
    }
  }

  void add() {
    clients.push_back(std::make_unique<RawClient>(directory.path()));
    clients.back()->send("{\"command\":\"count\",\"to\":1}\n{\"command\":\"wait\"}\n");
    ASSERT_THAT(clients.back()->receive(), HasSubstr("\"number\":1"));
    ASSERT_THAT(clients.back()->receive(), HasSubstr("\"ok\":true"));
    EXPECT_THAT(clients.back()->receive(), HasSubstr("waiting"));
  }

  std::vector<std::unique_ptr<RawClient>> clients;
};

TEST_F(ControlIsFull, OneClientMoreIsRefusedAndRootHasAPlace) {
  if (geteuid() == 0) {
    add();
  }
  RawClient late(directory.path());
  EXPECT_THAT(late.receive(), HasSubstr("too many clients: at most 16"));
  EXPECT_EQ(late.receive(), "end");
  clients.clear();
  // Its place is free once the server has seen that the others are gone.
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  std::string answer;
  do {
    RawClient next(directory.path());
    next.send(kEcho);
    answer = next.receive();
  } while (answer.find("\"ok\":true") == std::string::npos && std::chrono::steady_clock::now() < deadline);
  EXPECT_THAT(answer, HasSubstr("\"ok\":true"));
}

TEST_F(Control, AClientThatAsksForNothingGoes) {
  server.reset();
  server.emplace(directory.path(), commands(), ControlLimits{.idle = std::chrono::milliseconds(20)});
  RawClient client(directory.path());
  EXPECT_THAT(client.receive(), HasSubstr("no request came for too long: connect again"));
  EXPECT_EQ(client.receive(), "end");
}

TEST_F(Control, AClientThatDoesNotReadGoesAndTheLogSaysSo) {
  server.reset();
  server.emplace(directory.path(), commands(), ControlLimits{.patience = std::chrono::milliseconds(20)});
  capture_log();
  RawClient client(directory.path());
  client.send("{\"command\":\"count\",\"to\":1000000000}\n");
  EXPECT_TRUE(client.wait_for_end());
  EXPECT_THAT(captured_log(), HasSubstr("a client of the control socket does not read what it has asked for"));
}

TEST_F(Control, WhatWaitsForAClientIsBoundedInBytes) {
  server.reset();
  server.emplace(directory.path(), ControlTable({{"events", {}, follow_events}}));
  RawClient client(directory.path());
  client.send("{\"command\":\"events\"}\n");
  ASSERT_THAT(client.receive(), HasSubstr("following"));
  constexpr std::size_t kLength = 1 << 18;
  constexpr int kMessages = 100;
  for (int i = 0; i < kMessages; ++i) {
    refhost::send("test.large", {{"text", std::string(kLength, 'x')}});
  }
  int taken = 0;
  std::string line = client.receive();
  for (; line.find("left_out") == std::string::npos && line != "end"; line = client.receive()) {
    ++taken;
  }
  constexpr std::size_t kBound = std::size_t{3} << 20;  // what waits, what is on its way, and the socket's buffers
  EXPECT_LE(taken * kLength, kBound);
  EXPECT_THAT(line, HasSubstr("\"left_out\":" + std::to_string(kMessages - taken)));
}

// While a process has none left, a client that waits to be accepted is reported again and again.
TEST_F(Control, WithoutADescriptorClientsAreToldAndTheNextIsServedWhenThereIsOne) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer looks at memory through a pipe, for which it needs descriptors";
#endif
  Descriptors descriptors;
  RawClient client(directory.path(), [&] { descriptors.take_all(); });
  EXPECT_THAT(client.receive(), HasSubstr("the host can take no client: Too many open files"));
  EXPECT_EQ(client.receive(), "end");
  descriptors.give_back();
  EXPECT_EQ(ask({{"command", "echo"}, {"text", "a"}})["ok"], true);
}

TEST_F(Control, ARunningCommandHearsThatItsClientHasGone) {
  { RawClient(directory.path()).send("{\"command\":\"wait\"}\n"); }
  server.reset();  // waits for the command
}

TEST_F(Control, TheEndOfTheServerEndsCommandsAndConnections) {
  RawClient waiting(directory.path());
  RawClient idle(directory.path());
  waiting.send("{\"command\":\"wait\"}\n");
  server.reset();
  EXPECT_EQ(idle.receive(), "end");
  EXPECT_THROW(ControlClient(directory.path()), NoHost);
}

TEST_F(Control, WhoMayNotReachTheHostIsToldWhoMay) {
  const bool is_root = geteuid() == 0;
  ASSERT_EQ(chmod(directory.path().c_str(), 0), 0);
  if (is_root) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  const auto failure = refhost::test::failure_of([&] { ControlClient{directory.path()}; });
  if (is_root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  ASSERT_EQ(chmod(directory.path().c_str(), 0700), 0);
  EXPECT_EQ(failure, "cannot reach the host on " + directory.path().string() +
                         ": Permission denied; try it as root, or as whom " + directory.path().string() +
                         " belongs to");
}

TEST_F(Control, TheSocketIsForItsOwnerAlone) {
  struct stat status {};
  ASSERT_EQ(stat((directory.path() / "control.sock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

// Somebody has opened the way for everyone: who is on the other end is looked at all the same.
class ControlOfRoot : public Control {
 protected:
  enum Answer { taken, refused, none };

  static constexpr uid_t kSomebody = 65534;
  static constexpr gid_t kGroup = 1234;

  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can become somebody else";
    }
    ASSERT_EQ(chown(directory.path().c_str(), 0, kGroup), 0);
    std::filesystem::permissions(directory.path() / "control.sock", std::filesystem::perms(0666));
  }

  // What somebody of that group gets, who is in the others too, with the directory of that mode.
  int answer_to(gid_t group, mode_t mode, const std::vector<gid_t>& others = {}) const {
    std::filesystem::permissions(directory.path(), std::filesystem::perms(mode));
    const pid_t child = fork();
    if (child == 0) {
      const int client = socket(AF_UNIX, SOCK_STREAM, 0);
      const bool connected = setgroups(others.size(), others.data()) == 0 && setgid(group) == 0 &&
                             setuid(kSomebody) == 0 &&
                             SocketPlace(directory.path(), "control.sock").connect(client) == 0;
      send_all(client, "{\"command\":\"echo\",\"text\":\"x\"}\n");
      std::string line;
      LineReader(client, 1 << 20).next(line, kPatience);
      const bool is_refused = line.find("another user's host") != std::string::npos;
      _exit(!connected ? none : is_refused ? refused : line.find("\"ok\":true") != std::string::npos ? taken : none);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WEXITSTATUS(status);
  }
};

TEST_F(ControlOfRoot, AChangeIsThePeers) {
  server.reset();
  server.emplace(directory.path(), commands_with_bytes());
  ASSERT_EQ(chown(directory.path().c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(chown((directory.path() / "control.sock").c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(seteuid(kSomebody), 0);
  ControlClient client(directory.path());
  ASSERT_EQ(seteuid(0), 0);
  client.send({{"command", "who"}});
  EXPECT_EQ(client.receive().at("uid"), kSomebody);
}

TEST_F(ControlOfRoot, AnotherUsersRequestIsRefused) { EXPECT_EQ(answer_to(kSomebody, 0711), refused); }

TEST_F(ControlOfRoot, TheGroupMayAskWhereItMayWrite) {
  EXPECT_EQ(answer_to(kGroup, 0770), taken);
  EXPECT_EQ(answer_to(kSomebody, 0771, {kSomebody, kGroup}), taken) << "one of several groups";
  EXPECT_EQ(answer_to(kGroup, 0750), refused);
  EXPECT_EQ(answer_to(kSomebody, 0771), refused);
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
