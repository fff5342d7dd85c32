// achost-web beside a door, over real sockets.
#include "gateway/web/tests/web_fixture.h"

namespace web::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

const json kOpen = {{"command", "door_open"}};

TEST_F(Web, ALinkLetsSomebodyInOnce) {
  const std::string link = secret("admin");
  Browser browser(port_);
  const Reply reply = browser.enter(link);
  EXPECT_EQ(reply.status, 200) << reply.body;
  EXPECT_THAT(reply.field("Set-Cookie"), HasSubstr("HttpOnly; SameSite=Strict"));
  EXPECT_EQ(json::parse(browser.get("/api/session").body).at("role"), "admin");
  Browser another(port_);
  EXPECT_EQ(another.enter(link).status, 401);
  EXPECT_EQ(another.get("/api/status").status, 401);
}

TEST_F(Web, WhoIsAnAdminOpensTheDoor) {
  EXPECT_EQ(entered("admin").post("/api/command", kOpen).status, 200);
  EXPECT_EQ(next_event("door_open").value("reason", ""), "command");
}

TEST_F(Web, TheJournalKeepsWhoHasOpened) {
  const std::string link = said({"link", "--for", "Ana"});
  Browser browser(port_);
  browser.enter(link.substr(link.find('#') + 1));
  EXPECT_EQ(browser.post("/api/command", {{"command", "door_open"}, {"on_behalf_of", "Eve"}}).status, 200);
  next_event("door_open");
  EXPECT_TRUE(comes_true([this] {
    return output({"journal", "--kind", "command"}).find("Ana at 127.0.0.1") != std::string::npos;
  })) << output({"journal"});
}

TEST_F(Web, WhoMayLookMayNotOpenTheDoor) {
  const Browser browser = entered("view");
  EXPECT_EQ(json::parse(browser.get("/api/status").body).at("health").at("state"), "answering");
  const Reply reply = browser.post("/api/command", kOpen);
  EXPECT_EQ(reply.status, 403);
  EXPECT_EQ(json::parse(reply.body).at("error"), "this session may not: it is for view, and this for admin");
}

TEST_F(Web, WhoMayLookSeesPeopleAndSettingsAndChangesNone) {
  output({"user", "put", "7", "--name", "Ana"});
  const Browser browser = entered("view");
  const auto ask = [&](json request) { return browser.post("/api/command", request); };
  EXPECT_EQ(json::parse(ask({{"command", "user_find"}, {"text", "ana"}}).body).at("users").at(0).at("user"), 7);
  EXPECT_EQ(ask({{"command", "config_schema"}}).status, 200);
  EXPECT_EQ(ask({{"command", "config_list"}}).status, 200);
  EXPECT_EQ(ask({{"command", "schedule_list"}}).status, 200);
  for (const char* command : {"user_add", "user_put", "user_block", "user_remove", "card_add", "card_remove",
                              "config_set", "config_import"}) {
    EXPECT_EQ(ask({{"command", command}, {"user", 7}}).status, 403) << command;
  }
  EXPECT_THAT(output({"user", "list"}), HasSubstr("Ana"));
}

TEST_F(Web, ARefusalSaysOfWhatKindItIs) {
  const Reply reply = entered("admin").post(
      "/api/command", {{"command", "config_set"}, {"section", "uhf"}, {"key", "read_interval"}, {"value", "soon"}});
  EXPECT_EQ(reply.status, 422);
  EXPECT_EQ(json::parse(reply.body).at("status"), 2);
  EXPECT_THAT(std::string(json::parse(reply.body).at("error")), HasSubstr("read_interval"));
}

TEST_F(Web, WithoutASessionNothingIsToldButThatThereIsNone) {
  const Browser stranger(port_);
  for (const char* path : {"/api/status", "/api/events", "/metrics"}) {
    EXPECT_EQ(stranger.get(path).status, 401) << path;
  }
  EXPECT_EQ(stranger.post("/api/command", kOpen).status, 401);
  EXPECT_EQ(json::parse(stranger.get("/api/session").body).at("role"), nullptr);
}

TEST_F(Web, ASessionThatNobodyHasIsNone) {
  Browser browser(port_);
  browser.take_cookie("achost_session=" + std::string(32, '0'));
  EXPECT_EQ(browser.get("/api/status").status, 401);
}

TEST_F(Web, AnotherSitesPageMayDoNothingWithTheSession) {
  const Browser browser = entered("admin");
  for (const char* origin : {"https://evil.example", "null", "http://localhost:1", "https://localhost"}) {
    const std::string line = std::string("Origin: ") + origin + "\r\n";
    EXPECT_EQ(browser.post("/api/command", kOpen, line).status, 403) << origin;
    EXPECT_EQ(browser.get("/api/status", line).status, 403) << origin;
  }
  EXPECT_EQ(browser.post("/api/command", kOpen, "").status, 403);
}

TEST_F(Web, ANameThatLeadsHereAndIsNotTheDoorsIsRefused) {
  const Browser browser = entered("admin");
  for (const char* host : {"evil.example", "localhost.evil.example", "", "localhost\r\nHost: evil.example"}) {
    const Reply reply =
        browser.ask(std::string("GET /api/status HTTP/1.1\r\nHost: ") + host + "\r\n" + browser.cookie_line() + "\r\n");
    EXPECT_EQ(reply.status, 421) << host << reply.body;
  }
}

TEST_F(Web, APathLeadsNowhereElse) {
  const Browser browser = entered("admin");
  for (const char* path : {"/../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "//etc/passwd", "/api/../access.json",
                           "/access.json", "/metrics/", "/api/status%00", "http://localhost/api/status", "*"}) {
    EXPECT_EQ(browser.get(path).status, 404) << path;
  }
}

TEST_F(Web, AnAnswerMayLoadNothingFromElsewhereAndStandInNoFrame) {
  const Reply reply = Browser(port_).get("/api/session");
  EXPECT_THAT(reply.field("Content-Security-Policy"), HasSubstr("default-src 'none'"));
  EXPECT_THAT(reply.field("Content-Security-Policy"), HasSubstr("frame-ancestors 'none'"));
  EXPECT_THAT(reply.field("Content-Security-Policy"), Not(HasSubstr("unsafe")));
  EXPECT_EQ(reply.field("X-Content-Type-Options"), "nosniff");
  EXPECT_EQ(reply.field("Cache-Control"), "no-store");
}

TEST_F(Web, ForgetEndsAllSessionsAlsoThoseThatLookOn) {
  const Browser browser = entered("view");
  Client onlooker(port_);
  onlooker.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n" + browser.cookie_line() + "\r\n");
  EXPECT_THAT(onlooker.receive_until("\n\n"), HasSubstr("event: status"));
  said({"forget"});
  EXPECT_EQ(browser.get("/api/status").status, 401);
  EXPECT_THAT(onlooker.receive_until("a mark that never comes"), Not(HasSubstr("never")));
}

TEST_F(Web, WhatTheJournalKeepsIsLive) {
  const Browser browser = entered("view");
  Client onlooker(port_);
  onlooker.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n" + browser.cookie_line() + "\r\n");
  EXPECT_THAT(onlooker.receive_until("\n\n"), HasSubstr("event: status"));
  EXPECT_TRUE(opens());
  EXPECT_THAT(onlooker.receive_until("\"kind\":\"exit_request\""), HasSubstr("\"kind\":\"start\""));
}

TEST_F(Web, ACardInTheFieldIsLive) {
  const Browser browser = entered("view");
  Client onlooker(port_);
  onlooker.send("GET /api/field HTTP/1.1\r\nHost: localhost\r\n" + browser.cookie_line() + "\r\n");
  EXPECT_THAT(onlooker.receive_until("\"radio\""), HasSubstr("event: field\ndata: {\"polls\":"));
  output({"field", "add", "E28011700000020A00000021"});
  EXPECT_THAT(onlooker.receive_until("\"card\":\"33\""), HasSubstr("\"epc\":\"E28011700000020A00000021\""));
  EXPECT_THAT(onlooker.receive_until("\"read_at\""), HasSubstr("\"share\":"));
}

TEST_F(Web, WhoMayLookMayChooseAPowerAndTryNone) {
  const Browser browser = entered("view");
  EXPECT_EQ(browser.post("/api/command", {{"command", "try_power"}, {"power", 2000}}).status, 403);
  const auto choose = json{{"command", "choose_power"}, {"must", {"2000:1"}}, {"must_not", json::array()}};
  EXPECT_EQ(json::parse(browser.post("/api/command", choose).body).at("power"), 2000);
  const Browser other = entered("admin");
  EXPECT_EQ(json::parse(other.post("/api/command", {{"command", "try_power"}, {"power", 2000}}).body).at("power"),
            2000);
  EXPECT_EQ(json::parse(other.post("/api/command", {{"command", "try_power"}}).body).at("power"), 2600);
}

TEST_F(Web, ABrowserThatComesBackGetsEachEntryOnce) {
  const Browser browser = entered("view");
  const auto look_on = [&](const std::string& more) {
    Client onlooker(port_);
    onlooker.send("GET /api/events HTTP/1.1\r\nHost: localhost\r\n" + more + browser.cookie_line() + "\r\n");
    return onlooker;
  };
  Client other = look_on("");
  std::string heard = other.receive_until("\"kind\":\"start\"");
  EXPECT_THAT(heard, HasSubstr("event: timeline"));
  const auto at = heard.rfind("id: ") + 4;
  const std::string last = heard.substr(at, heard.find('\n', at) - at);
  EXPECT_TRUE(opens());
  other.receive_until("\"kind\":\"closing\"");
  Client onlooker = look_on("Last-Event-ID: " + last + "\r\n");
  heard = onlooker.receive_until("\"kind\":\"closing\"");
  EXPECT_THAT(heard, HasSubstr("\"kind\":\"exit_request\""));
  EXPECT_THAT(heard, Not(HasSubstr("\"kind\":\"start\"")));
  EXPECT_THAT(heard, Not(HasSubstr("event: timeline")));
}

TEST_F(Web, ADaemonThatGoesAndComesBackIsSaid) {
  const Browser browser = entered("view");
  EXPECT_THAT(browser.get("/metrics").body, HasSubstr("\nachost_up 1\n"));
  end();
  EXPECT_TRUE(comes_true([&] { return browser.get("/api/status").status == 503; }));
  EXPECT_TRUE(comes_true([&] { return browser.get("/metrics").body.find("\nachost_up 0\n") != std::string::npos; }));
  EXPECT_THAT(browser.get("/api/status").body, HasSubstr("is achost running there?"));
  start();
  EXPECT_TRUE(comes_true([&] { return browser.get("/api/status").status == 200; }));
}

TEST_F(Web, AKeyReadsTheFiguresAndNothingElse) {
  const std::string line = "Authorization: Bearer " + said({"key"}) + "\r\n";
  const Browser program(port_);
  EXPECT_THAT(program.get("/metrics", line).body, HasSubstr("achost_reader_state{state=\"answering\"} 1"));
  EXPECT_EQ(program.get("/api/status", line).status, 403);
  EXPECT_EQ(program.post("/api/command", kOpen, line).status, 403);
}

TEST_F(Web, TheFiguresNameNoCardAndNobody) {
  output({"user", "add", "77", "--name", "Anastasia"});
  output({"card", "add", "123454321", "--user", "77"});
  output({"field", "add", device_test::kKnown});
  next_event("identification");
  const std::string figures = entered("view").get("/metrics").body;
  EXPECT_THAT(figures, Not(HasSubstr("Anastasia")));
  EXPECT_THAT(figures, Not(HasSubstr("123454321")));
  for (const char* label : {"user=", "user_id=", "name=", "card=", "uuid="}) {
    EXPECT_THAT(figures, Not(HasSubstr(label)));
  }
}

TEST_F(Web, TheFirstStartTellsALinkAndTheNextDoesNot) {
  server_->signal(SIGTERM);
  EXPECT_THAT(server_->wait().err, HasSubstr("the first link, for 15 minutes: http://localhost:"));
  serve();
  server_->signal(SIGTERM);
  const auto result = server_->wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, Not(HasSubstr("link")));
}

TEST_F(Web, WhereOthersReachItThereIsTlsOrNothing) {
  for (const char* place : {"0.0.0.0:0", "[::]:0"}) {
    const auto result = achost::test::run_program(
        ACHOST_WEB, {"run", "--listen", place, "--name", "door.local", "--state", own_state()});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("give --certificate and --key, or listen at 127.0.0.1"));
  }
}

}  // namespace
}  // namespace web::test
