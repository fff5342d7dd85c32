// The server's patience, and TLS, in this process.
#include "gateway/web/server.h"

#include <gmock/gmock.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <thread>

#include "gateway/web/tests/web_client.h"

namespace web::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLong = std::chrono::minutes(10);

class Serving {
 public:
  explicit Serving(Patience patience)
      : server_(context_, site_, {net::ip::address_v4::loopback(), 0}, nullptr, patience) {
    net::co_spawn(context_, server_.accept_all(), net::detached);
    thread_ = std::thread([this] { context_.run(); });
  }
  ~Serving() {
    context_.stop();
    thread_.join();
  }
  Serving(const Serving&) = delete;
  Serving& operator=(const Serving&) = delete;

  std::uint16_t port() const { return server_.place().port(); }

 private:
  refhost::test::TemporaryDirectory directory_;
  Access access_{directory_.path()};
  net::io_context context_{1};
  Daemon daemon_{context_, directory_.path()};
  Live live_{context_, daemon_};
  Site site_{context_, access_, live_, daemon_, {"localhost"}};
  Server server_;
  std::thread thread_;  // runs the context
};

constexpr const char* kRequest = "GET /api/session HTTP/1.1\r\nHost: localhost\r\n\r\n";

TEST(ServerTest, WhoBeginsARequestAndDoesNotEndItGoes) {
  const Serving serving({.request = milliseconds(50), .idle = kLong, .reader = kLong});
  Client client(serving.port());
  client.send("GET /api/session HT");
  EXPECT_EQ(client.receive_until("\n"), "");
}

TEST(ServerTest, WhoAsksForNothingGoes) {
  const Serving serving({.request = kLong, .idle = milliseconds(50), .reader = kLong});
  Client client(serving.port());
  EXPECT_EQ(client.receive_until("\n"), "");
}

TEST(ServerTest, RequestsFollowOneAnotherOnAConnection) {
  const Serving serving({.request = kLong, .idle = kLong, .reader = kLong});
  Client client(serving.port());
  client.send(std::string(kRequest) + kRequest);
  EXPECT_EQ(client.receive().status, 200);
  EXPECT_EQ(client.receive().status, 200);
  client.send(kRequest);
  EXPECT_EQ(client.receive().status, 200);
}

TEST(ServerTest, WhatIsNoRequestEndsTheConnectionAndIsTold) {
  const Serving serving({.request = kLong, .idle = kLong, .reader = kLong});
  Client client(serving.port());
  client.send("\x16\x03\x01 this is TLS, or something else\r\n\r\n");
  EXPECT_EQ(client.receive().status, 400);
  EXPECT_EQ(client.receive_until("\n"), "");
}

TEST(ServerTest, NobodyIsKeptOutByThoseWhoWait) {
  const Serving serving({.request = kLong, .idle = kLong, .reader = kLong});
  std::vector<Client> crowd;
  for (std::size_t i = 0; i < Server::kMostConnections + 10; ++i) {
    crowd.emplace_back(serving.port());
    crowd.back().send("GET");
  }
  EXPECT_EQ(Browser(serving.port()).get("/api/session").status, 200);
  EXPECT_EQ(crowd.front().receive_until("\n"), "") << "the one who has waited longest";
}

TEST(OnlookerTest, WhoIsTooFarBehindIsDropped) {
  net::io_context context;
  Onlooker onlooker(context);
  onlooker.put(std::string(Onlooker::kMostWaiting, 'x'));
  EXPECT_FALSE(onlooker.is_over());
  onlooker.put("x");
  EXPECT_TRUE(onlooker.is_over());
}

}  // namespace
}  // namespace web::test
