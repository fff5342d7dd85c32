// People, what passes, and recordings over the server.
#include <regex>

#include "gateway/web/site.h"
#include "gateway/web/tests/web_fixture.h"

namespace web::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class WebPeople : public Web {
 protected:
  Reply upload(const Browser& browser, const std::string& path, const std::string& table) const {
    return browser.ask("POST " + path + " HTTP/1.1\r\nHost: " + browser.host() + "\r\nOrigin: http://" +
                       browser.host() + "\r\nContent-Length: " + std::to_string(table.size()) + "\r\n" +
                       browser.cookie_line() + "\r\n" + table);
  }

  // What is sent for an answer that stays open.
  static Client begun(const Browser& browser, std::uint16_t port, const std::string& request,
                      const std::string& body = "") {
    Client client(port);
    client.send(request + " HTTP/1.1\r\nHost: " + browser.host() + "\r\nOrigin: http://" + browser.host() +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + browser.cookie_line() + "\r\n" + body);
    return client;
  }

  // The body of an answer in chunks; without its end it is cut off.
  static std::pair<std::string, bool> file_in(Client& client) {
    std::string text;
    for (;;) {
      const std::string size = client.receive_until("\r\n");
      if (size.size() < 3) {
        return {text, false};
      }
      const std::size_t count = std::stoul(size, nullptr, 16);
      if (count == 0) {
        return {text, true};
      }
      std::string chunk;
      while (chunk.size() < count + 2) {
        const std::string more = client.receive_until("\n");
        if (more.empty()) {
          return {text, false};
        }
        chunk += more;
      }
      text += chunk.substr(0, count);
    }
  }

  // Threads of the host that serve somebody at its socket.
  std::size_t clients() {
    std::size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(host().pid()) + "/task")) {
      std::string name;
      std::getline(std::ifstream(task.path() / "comm"), name);
      count += name == "control_client" ? 1 : 0;
    }
    return count;
  }
};

TEST_F(WebPeople, AnImportSaysFirstWhatItWouldDoAndThenDoesIt) {
  const Browser browser = entered("admin");
  const std::string table = "id,name,card\n20,Olga,2001\n21,Petr,2002\n";
  const json plan = json::parse(upload(browser, "/api/people/plan", table).body);
  EXPECT_THAT(std::string(plan.at("plan")), HasSubstr("add Olga (20)"));
  EXPECT_THAT(output({"user", "list"}), Not(HasSubstr("Olga")));
  const json done = json::parse(upload(browser, "/api/people", table).body);
  EXPECT_THAT(std::string(done.at("done")), HasSubstr("2 added"));
  EXPECT_THAT(output({"user", "list"}), HasSubstr("Olga"));
  EXPECT_TRUE(comes_true([this] { return output({"journal"}).find("at 127.0.0.1") != std::string::npos; }));
}

TEST_F(WebPeople, AnImportWithAFaultyLineNamesItAndStoresNothing) {
  const Reply reply = upload(entered("admin"), "/api/people", "id,card\n20,2001\n21,never\n");
  EXPECT_EQ(reply.status, 422);
  EXPECT_THAT(std::string(json::parse(reply.body).at("error")), HasSubstr("line:3"));
  EXPECT_THAT(output({"user", "list"}), Not(HasSubstr("20")));
}

TEST_F(WebPeople, ACardMovesAndOthersGoWhereThatIsAskedFor) {
  const Browser browser = entered("admin");
  output({"card", "add", "2001", "--user", "7"});
  EXPECT_EQ(upload(browser, "/api/people", "id,card\n20,2001\n").status, 422);
  EXPECT_EQ(upload(browser, "/api/people?move=1", "id,card\n20,2001\n").status, 200);
  EXPECT_EQ(upload(browser, "/api/people?replace=1", "id,card\n21,2002\n").status, 200);
  EXPECT_EQ(json::parse(browser.post("/api/command", {{"command", "user_find"}}).body).at("all_users"), 1);
}

TEST_F(WebPeople, AHundredThousandCardsGoInAndComeOut) {
#ifdef __SANITIZE_THREAD__
  constexpr int kCards = 10'000;  // it takes ten times as long
#else
  constexpr int kCards = 100'000;
#endif
  const Browser browser = entered("admin");
  std::string table = "id,name,card\n";
  for (int i = 0; i < kCards; ++i) {
    table += std::to_string(1'000 + i) + ",A person whose name is rather long " + std::to_string(i) + "," +
             std::to_string(5'000'000'000 + i) + "\n";
  }
  const Reply reply = upload(browser, "/api/people", table);
  EXPECT_EQ(reply.status, 200) << reply.body;
  Client client = begun(browser, port_, "GET /api/people");
  EXPECT_THAT(client.receive_until("\r\n\r\n"), HasSubstr("attachment; filename=\"people.csv\""));
  const auto [text, is_whole] = file_in(client);
  EXPECT_TRUE(is_whole);
  EXPECT_EQ(text, output({"user", "export"}));
}

TEST_F(WebPeople, WhatIsTooLongIsNotTaken) {
  const Browser browser = entered("admin");
  const Reply reply = browser.ask("POST /api/people HTTP/1.1\r\nHost: " + browser.host() + "\r\nOrigin: http://" +
                                  browser.host() + "\r\nContent-Length: " + std::to_string(Site::kLongestUpload + 1) +
                                  "\r\n" + browser.cookie_line() + "\r\n");
  EXPECT_EQ(reply.status, 413);
  EXPECT_EQ(upload(browser, "/api/command", std::string(Site::kLongestBody + 1, ' ')).status, 413)
      << "long requests are for imports";
}

TEST_F(WebPeople, OneLongRequestIsTakenAtATime) {
  const Browser browser = entered("admin");
  Client first(port_);
  first.send("POST /api/people/plan HTTP/1.1\r\nHost: " + browser.host() + "\r\nOrigin: http://" + browser.host() +
             "\r\nContent-Length: 1000000\r\n" + browser.cookie_line() + "\r\nid,name\n");
  EXPECT_TRUE(comes_true([&] { return upload(browser, "/api/people/plan", "id\n1\n").status == 503; }));
}

TEST_F(WebPeople, WhoMayLookSendsNoPeopleAndEnrollsNobody) {
  const Browser browser = entered("view");
  for (const char* path : {"/api/people", "/api/people/plan", "/api/enrollment"}) {
    EXPECT_EQ(upload(browser, path, "{\"user\":7}").status, 403) << path;
  }
  const Browser stranger(port_);
  for (const char* path : {"/api/people", "/api/recording", "/api/traffic"}) {
    EXPECT_EQ(stranger.get(path).status, 401) << path;
  }
}

TEST_F(WebPeople, AnEnrollmentAnswersWithItsCard) {
  const Browser browser = entered("admin");
  Client client = begun(browser, port_, "POST /api/enrollment", R"({"user":7})");
  next_event("enrollment", [](const auto& event) { return event.at("state") == "started"; });
  output({"field", "add", device_test::kKnown});
  const Reply reply = client.receive();
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(json::parse(reply.body).at("card"), 1);
}

TEST_F(WebPeople, AnEnrollmentWhoseAskerGoesIsOver) {
  const Browser browser = entered("admin");
  {
    const Client client = begun(browser, port_, "POST /api/enrollment", R"({"user":7})");
    next_event("enrollment", [](const auto& event) { return event.at("state") == "started"; });
  }
  const json event = next_event("enrollment");
  EXPECT_EQ(event.at("state"), "given_up") << event;
}

TEST_F(WebPeople, ARecordingIsOneThatIsRead) {
  const Browser browser = entered("view");
  Client client = begun(browser, port_, "GET /api/recording");
  EXPECT_THAT(client.receive_until("\r\n\r\n"), HasSubstr("door.uhfrec"));
  const auto [text, is_whole] = file_in(client);
  EXPECT_TRUE(is_whole);
  const std::string file = own_state() + "/door.uhfrec";
  std::ofstream(file) << text;
  EXPECT_THAT(command({"why", "1", "--recording", file}).err, Not(HasSubstr("is no recording")));
  EXPECT_THAT(text, HasSubstr("standing"));
}

TEST_F(WebPeople, WhatPassesIsToldAndTheTapsCloseWithTheLastWhoLooks) {
  const Browser browser = entered("view");
  {
    Client first = begun(browser, port_, "GET /api/traffic");
    Client second = begun(browser, port_, "GET /api/traffic");
    EXPECT_THAT(first.receive_until("event: frame"), HasSubstr("event: begin"));
    EXPECT_NE(second.receive_until("event: frame"), "");
    output({"rex"});
    EXPECT_THAT(second.receive_until("\"actuator_open_door\""), HasSubstr("event: message"));
    EXPECT_TRUE(comes_true([this] { return clients() == 2; })) << "one tap of each for all";
  }
  EXPECT_TRUE(comes_true([this] { return clients() == 0; }));
}

// The ids of the messages in what a browser was told.
std::vector<std::int64_t> numbers_in(const std::string& text) {
  static const std::regex kId("id: [^\n]*:([0-9]+)\nevent: message");
  std::vector<std::int64_t> numbers;
  for (std::sregex_iterator at(text.begin(), text.end(), kId); at != std::sregex_iterator(); ++at) {
    numbers.push_back(std::stoll((*at)[1]));
  }
  return numbers;
}

TEST_F(WebPeople, WhoComesBackIsToldWhatPassedMeanwhileOnceAndNobodyTwice) {
  const Browser browser = entered("view");
  const auto looking_on = [&](const std::string& last_event, const std::string& more = "") {
    Client client(port_);
    client.send("GET /api/traffic" + more + " HTTP/1.1\r\nHost: localhost\r\n" + last_event + browser.cookie_line() +
                "\r\n");
    return client;
  };
  const auto press = [this](int value) { output({"config", "set", "read_interval", std::to_string(value)}); };
  const auto until_set = [](Client& client, int value) {
    return client.receive_until("\"previous_value\":\"" + std::to_string(value - 1) + "\"") +
           client.receive_until("\n\n");
  };
  press(700);
  std::string had;
  std::string last_event;
  {
    Client first = looking_on("");
    ASSERT_NE(first.receive_until("\"what\":\"message\""), "");
    press(701);
    had = until_set(first, 701);
    last_event = had.substr(had.rfind("id: ") + 4);
    last_event.resize(last_event.find('\n'));
  }
  ASSERT_TRUE(comes_true([this] { return clients() == 0; }));
  const auto before = numbers_in(had).back();
  press(702);  // while nobody looks on
  Client other = looking_on("");
  ASSERT_NE(other.receive_until("\"what\":\"message\""), "");
  press(703);
  std::string others = until_set(other, 703);
  Client again = looking_on("Last-Event-ID: " + last_event + "\r\n");
  Client anew = looking_on("", "?last_event=" + last_event);
  for (Client* const one : {&again, &anew}) {
    const auto numbers = numbers_in(until_set(*one, 703));
    ASSERT_FALSE(numbers.empty());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      EXPECT_EQ(numbers[i], before + 1 + static_cast<std::int64_t>(i));
    }
  }
  press(704);
  others += until_set(other, 704);
  const auto numbers = numbers_in(others);
  for (std::size_t i = 1; i < numbers.size(); ++i) {
    EXPECT_EQ(numbers[i], numbers[i - 1] + 1) << "nobody else is told anything twice";
  }
}

TEST_F(WebPeople, NoMoreLookOnAtWhatPassesThanThereIsRoomFor) {
  const Browser browser = entered("view");
  std::vector<Client> crowd;
  for (std::size_t i = 0; i < Traffic::kMostOnlookers; ++i) {
    crowd.push_back(begun(browser, port_, "GET /api/traffic"));
    EXPECT_THAT(crowd.back().receive_until("\r\n"), HasSubstr("200"));
  }
  Client one_more = begun(browser, port_, "GET /api/traffic");
  EXPECT_THAT(one_more.receive_until("\r\n"), HasSubstr("503"));
}

}  // namespace
}  // namespace web::test
