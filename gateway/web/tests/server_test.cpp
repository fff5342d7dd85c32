// The server's patience, and TLS, in this process.
#include "gateway/web/server.h"

#include <gmock/gmock.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <cstdio>
#include <memory>
#include <thread>

#include "gateway/web/tests/web_client.h"

namespace web::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLong = std::chrono::minutes(10);

class Serving {
 public:
  explicit Serving(Patience patience, net::ssl::context* safety = nullptr)
      : server_(context_, site_, {net::ip::address_v4::loopback(), 0}, safety, patience) {
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

  // What a browser sends to get in.
  const std::string& link() const { return link_; }

 private:
  refhost::test::TemporaryDirectory directory_;
  Access access_{directory_.path()};
  const std::string link_ = R"({"link": ")" + access_.make_link(Role::view, now()) + R"("})";
  net::io_context context_{1};
  gateway::Daemon daemon_{context_, directory_.path()};
  Live live_{context_, daemon_};
  Traffic traffic_{context_, daemon_};
  Field field_{context_, daemon_};
  Site site_{context_, access_, live_, traffic_, field_, daemon_, {"localhost"}};
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

// With a certificate that nobody has signed but its own key.
std::unique_ptr<net::ssl::context> safety_in(const std::filesystem::path& directory) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  const auto write_to = [](const std::filesystem::path& path, const auto& write) {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "w"), std::fclose);
    write(file.get());
  };
  write_to(directory / "door.pem", [&](std::FILE* file) { PEM_write_X509(file, certificate.get()); });
  write_to(directory / "door.key",
           [&](std::FILE* file) { PEM_write_PrivateKey(file, key.get(), nullptr, nullptr, 0, nullptr, nullptr); });
  auto safety = std::make_unique<net::ssl::context>(net::ssl::context::tls_server);
  safety->use_certificate_chain_file((directory / "door.pem").string());
  safety->use_private_key_file((directory / "door.key").string(), net::ssl::context::pem);
  return safety;
}

// All that is answered over TLS.
std::string said_safely(std::uint16_t port, const std::string& text) {
  net::io_context context;
  net::ssl::context trusting(net::ssl::context::tls_client);
  net::ssl::stream<net::ip::tcp::socket> stream(context, trusting);
  stream.next_layer().connect({net::ip::address_v4::loopback(), port});
  stream.handshake(net::ssl::stream_base::client);
  net::write(stream, net::buffer(text));
  std::string heard;
  boost::system::error_code end;
  net::read(stream, net::dynamic_buffer(heard), end);
  EXPECT_EQ(end, net::error::eof) << "the end is said, too, so that nobody else can have cut the answer off";
  return heard;
}

TEST(ServerTest, OverTlsTheOriginIsASafeOneAndACookieGoesNowhereElse) {
  const refhost::test::TemporaryDirectory directory;
  const auto safety = safety_in(directory.path());
  const Serving serving({.request = kLong, .idle = kLong, .reader = kLong}, safety.get());
  const auto leave = [&](const std::string& origin) {
    return said_safely(serving.port(),
                       "POST /api/session HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nOrigin: " + origin +
                           "\r\nContent-Length: " + std::to_string(serving.link().size()) + "\r\n\r\n" +
                           serving.link());
  };
  EXPECT_THAT(leave("http://localhost"), testing::HasSubstr("403"));
  EXPECT_THAT(leave("https://localhost"), testing::ContainsRegex("Set-Cookie: [^\r]*; Secure"));
}

TEST(ServerTest, WhoDoesNotSpeakTlsWhereItIsSpokenGoes) {
  const refhost::test::TemporaryDirectory directory;
  const auto safety = safety_in(directory.path());
  const Serving serving({.request = milliseconds(50), .idle = kLong, .reader = kLong}, safety.get());
  EXPECT_EQ(Browser(serving.port()).get("/api/session").status, 0);
  Client silent(serving.port());
  EXPECT_EQ(silent.receive_until("\n"), "");
}

TEST(OnlookerTest, WhoIsTooFarBehindIsDroppedWithWhatWaits) {
  net::io_context context;
  Onlooker onlooker(context);
  onlooker.put(std::string(Onlooker::kMostWaiting, 'x'));
  EXPECT_FALSE(onlooker.is_over());
  onlooker.put("x");
  EXPECT_TRUE(onlooker.is_over());
  std::vector<std::optional<std::string>> taken;
  net::co_spawn(
      context,
      [&]() -> net::awaitable<void> {
        for (int i = 0; i < 2; ++i) {
          auto next = co_await onlooker.next(kLong);
          taken.push_back(std::move(next));
        }
      },
      net::detached);
  context.run();
  EXPECT_THAT(taken, testing::ElementsAre(std::string(Onlooker::kMostWaiting, 'x'), std::nullopt))
      << "what waits is his, and nothing behind what he misses";
}

}  // namespace
}  // namespace web::test
