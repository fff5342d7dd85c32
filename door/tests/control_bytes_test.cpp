// Bytes that go with a request, and with an answer.
#include <gmock/gmock.h>

#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/tests/control_fixture.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::HasSubstr;

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
       .fields = {{"pieces", ControlField::Type::integer}},
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

}  // namespace
}  // namespace achost::test
