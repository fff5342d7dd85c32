// A control socket with a few commands, and clients that send what they like.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "cli/line_socket.h"
#include "door/control/control.h"
#include "refhost/settings_schema.h"
#include "refhost/tests/support.h"

namespace achost::test {

inline ControlTable commands() {
  return ControlTable({
      {"echo",
       {{"text", ControlField::Type::text},
        {"number", ControlField::Type::integer, false},
        {"flag", ControlField::Type::flag, false}},
       [](const Json& request, ControlStream&) {
         return Json{{"text", request["text"]}};
       }},
      {"fail", {}, [](const Json&, ControlStream&) -> Json { throw std::runtime_error("it did not work"); }},
      {"refuse", {}, [](const Json&, ControlStream&) -> Json { throw refhost::SettingError("that is not allowed"); }},
      {"count",
       {{"to", ControlField::Type::integer}},
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

inline constexpr const char* kEcho = "{\"command\":\"echo\",\"text\":\"a\"}\n";

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
    return reader_.next(line, refhost::test::kPatience) == LineReader::Outcome::line ? line : "end";
  }

  // Wait until the server has closed, without reading.
  bool wait_for_end() const {
    pollfd end{socket_, 0, 0};
    return poll(&end, 1, static_cast<int>(std::chrono::milliseconds(refhost::test::kPatience).count())) > 0;
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

  refhost::test::TemporaryDirectory directory;
  std::optional<ControlServer> server{std::in_place, directory.path(), commands()};
};

}  // namespace achost::test
