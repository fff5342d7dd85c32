// What strangers may try: it is refused, and the door opens throughout.
#include <algorithm>
#include <atomic>
#include <cstdio>

#include "gateway/web/server.h"
#include "gateway/web/tests/web_fixture.h"

namespace web::test {
namespace {

class Attack : public Web {
 protected:
  // Its memory, in KiB.
  long resident() const {
    std::ifstream status("/proc/" + std::to_string(server_->pid()) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:")) {
        return std::stol(line.substr(6));
      }
    }
    return -1;
  }

  std::size_t descriptors() const {
    const std::filesystem::directory_iterator list("/proc/" + std::to_string(server_->pid()) + "/fd");
    return static_cast<std::size_t>(std::distance(list, std::filesystem::directory_iterator()));
  }
};

TEST_F(Attack, AGigabyteIsRefusedAtOnce) {
  const Browser browser = entered("admin");
  const long before = resident();
  const Reply reply = browser.ask("POST /api/command HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1073741824\r\n" +
                                  browser.cookie_line() + "\r\n" + std::string(100'000, 'x'));
  EXPECT_EQ(reply.status, 413);
  EXPECT_TRUE(opens());
  EXPECT_LT(resident(), before + 10'000);
}

TEST_F(Attack, AGigabyteInPiecesIsCutOff) {
  const long before = resident();
  Client client(port_);
  client.send("POST /api/session HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n");
  const std::string piece = "8000\r\n" + std::string(0x8000, 'x') + "\r\n";
  int sent = 0;
  while (sent < 32'768 && client.send(piece)) {
    ++sent;
  }
  EXPECT_LT(sent, 1'000);
  EXPECT_TRUE(opens());
  EXPECT_LT(resident(), before + 10'000);
}

TEST_F(Attack, AHeaderWithoutEndIsCutOff) {
  const Reply reply = Browser(port_).ask("GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(100'000, 'x'));
  EXPECT_EQ(reply.status, 431);
}

TEST_F(Attack, ThatAsksWithoutEndIsTurnedAwayAndTheDoorOpensThroughout) {
  const Browser browser = entered("view");
  std::atomic<int> turned_away = 0;
  std::atomic<int> answered = 0;
  std::vector<std::thread> crowd;
  for (int i = 0; i < 4; ++i) {
    crowd.emplace_back([&, port = port_] {
      for (int asked = 0; asked < 2'500; ++asked) {
        const int status = Browser(port).get("/api/session").status;
        ++(status == 429 ? turned_away : answered);
      }
    });
  }
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(opens());
    EXPECT_EQ(browser.get("/api/status").status, 200) << "who has a session does not wait for strangers";
  }
  for (auto& one : crowd) {
    one.join();
  }
  EXPECT_GT(turned_away, answered);
}

// One client that asks on and on, on connections that it has opened already; as many a second as there are to be.
TEST_F(Attack, TenThousandRequestsASecondAreTurnedAwayAndTheDoorOpensThroughout) {
  const Browser browser = entered("view");
  constexpr int kRate = 10'000;
  constexpr int kBatch = 100;
  constexpr auto kPeriod = std::chrono::microseconds(1'000'000 * kBatch / kRate);
  std::atomic<bool> is_over = false;
  std::atomic<long> sent = 0;
  const auto begin = std::chrono::steady_clock::now();
  std::thread crowd([&, port = port_] {
    const std::string request = "GET /api/session HTTP/1.1\r\nHost: localhost\r\n\r\n";
    std::string batch;
    for (int i = 0; i < kBatch; ++i) {
      batch += request;
    }
    for (long round = 0; !is_over; ++round) {
      Client client(port);  // whoever is turned away has lost his connection
      sent += client.send(batch) ? kBatch : 0;
      std::this_thread::sleep_until(begin + (round + 1) * kPeriod);
    }
  });
  while (sent < 3 * kRate) {
    EXPECT_TRUE(opens());
    EXPECT_EQ(browser.get("/api/status").status, 200) << "who has a session does not wait for strangers";
  }
  is_over = true;
  crowd.join();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  std::printf("%.0f requests a second for %.1f s\n", static_cast<double>(sent) / took.count(), took.count());
}

TEST_F(Attack, AThousandSlowConnectionsKeepNobodyOut) {
  const Browser browser = entered("view");
  std::vector<Client> crowd;
  for (int i = 0; i < 1'000; ++i) {
    crowd.emplace_back(port_);
    crowd.back().send("GET /api/status HTTP/1.1\r\nHost: local");
    if (i % 250 == 249) {
      EXPECT_TRUE(opens());
      EXPECT_EQ(browser.get("/api/status").status, 200);
      EXPECT_LT(descriptors(), Server::kMostConnections + 20);
    }
  }
}

TEST_F(Attack, WhoLooksOnAndReadsNothingIsDropped) {
  const Browser browser = entered("view");
  std::vector<Client> crowd;
  for (std::size_t i = 0; i < Live::kMostOnlookers + 10; ++i) {
    crowd.emplace_back(port_);
    crowd.back().send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n" + browser.cookie_line() + "\r\n");
  }
  const auto refused = std::ranges::count_if(
      crowd, [](Client& one) { return one.receive_until("\r\n").find("503") != std::string::npos; });
  EXPECT_EQ(refused, 10) << "for whom there is no room";
  EXPECT_TRUE(opens());
  crowd.clear();
  EXPECT_TRUE(comes_true([&] {
    Client one(port_);
    one.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n" + browser.cookie_line() + "\r\n");
    return one.receive_until("\r\n").find("200") != std::string::npos;
  })) << "whose place is not given back";
}

}  // namespace
}  // namespace web::test
