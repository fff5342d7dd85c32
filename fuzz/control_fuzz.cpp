// The control socket: any bytes from a client, over the real socket. Every line gets one answer, and the server goes
// on.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "cli/line_socket.h"
#include "door/control/control.h"
#include "input.h"
#include "temporary_directory.h"

using achost::ControlField;
using achost::ControlServer;
using achost::Json;

namespace {

achost::ControlTable table() {
  const auto echo = [](const Json& request, achost::ControlStream&) { return Json{{"request", request}}; };
  return achost::ControlTable({
      {"echo", {{"text", ControlField::Type::text}, {"number", ControlField::Type::integer, false}}, echo},
      {"flag", {{"on", ControlField::Type::flag}}, echo},
      {"fail", {}, [](const Json&, achost::ControlStream&) -> Json { throw std::runtime_error("\xFF no text"); }},
  });
}

const std::filesystem::path& directory() {
  static const auto place = fuzz::empty_directory();
  static ControlServer server(place, table());
  return place;
}

// All that the server answers to these bytes.
std::string conversation(const std::string& said) {
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  fuzz::require(achost::SocketPlace(directory(), "control.sock").connect(client) == 0, "the server listens");
  achost::send_all(client, said);
  shutdown(client, SHUT_WR);
  std::string heard;
  char buffer[4096];
  for (ssize_t count = 1; count != 0;) {
    count = recv(client, buffer, sizeof buffer, 0);
    fuzz::require(count >= 0 || errno == EINTR, "the server answers");
    heard.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  close(client);
  return heard;
}

void check(const std::string& heard, std::ptrdiff_t lines) {
  fuzz::require(std::ranges::count(heard, '\n') == lines, "each line gets one answer");
  std::size_t begin = 0;
  for (std::size_t end; (end = heard.find('\n', begin)) != heard.npos; begin = end + 1) {
    const Json answer = Json::parse(heard.substr(begin, end - begin));
    fuzz::require(answer.at("ok").is_boolean(), "an answer tells its outcome");
    fuzz::require(answer.at("ok").get<bool>() != answer.contains("error"), "an error has a text");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string said(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, 60'000));
  check(conversation(said), std::ranges::count(said, '\n'));
  return 0;
}
