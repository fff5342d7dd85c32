// Many doors at one broker: each is a whole bridge with a connection of its own, over TLS, and a socket that answers as
// a daemon does. The arguments are how many doors, and in how many processes.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
// Boost's coroutines use std::exchange without it.
#include <utility>
// These come behind.
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "gateway/mqtt/bridge.h"
#include "store.h"
#include "table.h"

namespace {

namespace fs = std::filesystem;
namespace net = boost::asio;
using gateway::Json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;
using Socket = net::local::stream_protocol::socket;

constexpr int kEntriesPerSecond = 100;  // of all doors together
constexpr std::chrono::seconds kLength{30};

// A broker greets its clients one after another: of more, the last of a process would have given up before their turn.
constexpr std::size_t kMostOnTheirWay = 20;

std::int64_t now() { return std::chrono::duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count(); }

// What a daemon's answers have that a bridge tells.
const char* const kStatus =
    R"({"ok":true,"health":{"state":"answering","cause":"","way_out":"","port":"/dev/ttyUSB0"},"door":{"lock":"closed",)"
    R"("mode":"normal","by":"","contact":null,"case":null},"alarms":[],"desired":{"revision":null,"differences":0}})"
    "\n";
const char* const kFollowing = "{\"following\":true,\"journal\":\"j\",\"after\":0}\n{\"live\":true}\n";

// Answers as the daemons of all doors of a process do. Its context's thread alone uses it.
class Daemons {
 public:
  Daemons(net::io_context& context, const fs::path& directory)
      : context_(context), acceptor_(context, {directory / "control.sock"}), next_(context) {
    net::co_spawn(context_, serve(), net::detached);
  }

  std::size_t followers() const { return followers_.size(); }

  void feed(int per_second, std::int64_t count) { net::co_spawn(context_, tell(per_second, count), net::detached); }

 private:
  net::awaitable<void> serve() {
    for (;;) {
      auto socket = std::make_shared<Socket>(co_await acceptor_.async_accept(net::use_awaitable));
      net::co_spawn(context_, answer(socket), net::detached);
    }
  }

  net::awaitable<void> answer(std::shared_ptr<Socket> socket) {
    net::streambuf input;
    for (;;) {
      co_await net::async_read_until(*socket, input, '\n', net::use_awaitable);
      std::istream lines(&input);
      std::string line;
      std::getline(lines, line);
      const bool follows = line.find("journal_follow") != line.npos;
      const std::string text = follows                            ? kFollowing
                               : line.find("status") != line.npos ? kStatus
                                                                  : "{\"ok\":true,\"revision\":null}\n";
      co_await net::async_write(*socket, net::buffer(text), net::use_awaitable);
      if (follows) {
        followers_.push_back(socket);
      }
    }
  }

  // Each door in its turn.
  net::awaitable<void> tell(int per_second, std::int64_t count) {
    next_.expires_after(milliseconds(0));
    for (std::int64_t i = 0; i < count; ++i) {
      next_.expires_at(next_.expiry() + std::chrono::microseconds(1'000'000 / per_second));
      co_await next_.async_wait(net::use_awaitable);
      const auto door = static_cast<std::size_t>(i) % followers_.size();
      const auto number = i / static_cast<std::int64_t>(followers_.size()) + 1;
      const Json entry = {{"number", number},
                          {"time", "2026-01-02T03:04:05.006+01:00"},
                          {"at", now()},
                          {"kind", "opening"},
                          {"fields", Json::object()},
                          {"clock_trusted", true},
                          {"monotonic_ms", number},
                          {"boot", "b"}};
      const std::string line = Json{{"entry", entry}}.dump() + "\n";
      co_await net::async_write(*followers_[door], net::buffer(line), net::use_awaitable);
    }
  }

  net::io_context& context_;
  net::local::stream_protocol::acceptor acceptor_;
  net::steady_timer next_;
  std::vector<std::shared_ptr<Socket>> followers_;
};

// In kB.
double resident() {
  std::ifstream file("/proc/self/statm");
  double pages = 0;
  file >> pages >> pages;
  return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

double thread_seconds() {
  rusage used{};
  getrusage(RUSAGE_THREAD, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

std::ptrdiff_t descriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// What a process says to the one above it.
struct Report {
  double up_seconds = 0;
  double kilobytes = 0;  // that it has grown by
  double processor = 0;  // of its bridges, in seconds, while entries came
  std::ptrdiff_t descriptors = 0;
};

struct Share {
  int first = 0;
  int doors = 0;
  int all = 0;
  std::uint16_t port = 0;
  fs::path directory;
  mqtt::Files files;
};

mqtt::Options options_of(const Share& share, int door) {
  const fs::path own = share.directory / ("own-" + std::to_string(door));
  fs::create_directory(own);
  return {.door = "door-" + std::to_string(door),
          .broker = "127.0.0.1:" + std::to_string(share.port),
          .files = share.files,
          .discovery = false,
          .without_tls = false,
          .state = own,
          .daemon = share.directory / ("daemon-" + std::to_string(share.first))};
}

void write_all(int fd, const void* what, std::size_t size) {
  if (write(fd, what, size) != static_cast<ssize_t>(size)) {
    throw std::runtime_error("who has begun this process has gone");
  }
}

// Body of a process: up once all of its doors are, entries once it is told so.
void be_doors(const Share& share, int input, int output) {
  const fs::path directory = share.directory / ("daemon-" + std::to_string(share.first));
  fs::create_directory(directory);
  net::io_context daemon_context;
  Daemons daemons(daemon_context, directory);
  std::thread daemon_thread([&] { daemon_context.run(); });
  const double before = resident();
  const auto begin = steady_clock::now();
  net::io_context context;
  std::vector<std::unique_ptr<mqtt::Bridge>> bridges;
  std::atomic<std::size_t> followers = 0;
  const auto look = [&] { net::post(daemon_context, [&] { followers = daemons.followers(); }); };
  for (int i = 0; i < share.doors; ++i) {
    bridges.push_back(std::make_unique<mqtt::Bridge>(context, options_of(share, share.first + i)));
    bridges.back()->start();
    while (bridges.size() - followers > kMostOnTheirWay) {
      context.run_for(milliseconds(5));
      look();
    }
  }
  while (followers < bridges.size()) {
    context.run_for(milliseconds(20));
    look();
  }
  Report report;
  report.up_seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
  context.run_for(std::chrono::seconds(3));  // states are told
  report.kilobytes = resident() - before;
  report.descriptors = descriptors();
  write_all(output, "u", 1);
  char go = 0;
  fcntl(input, F_SETFL, O_NONBLOCK);
  while (read(input, &go, 1) != 1) {  // alive meanwhile: others are still coming
    context.run_for(milliseconds(50));
  }
  const double used = thread_seconds();
  const int per_second = std::max(1, kEntriesPerSecond * share.doors / share.all);
  net::post(daemon_context, [&] { daemons.feed(per_second, per_second * kLength.count()); });
  context.run_for(kLength + std::chrono::seconds(3));
  report.processor = thread_seconds() - used;
  write_all(output, &report, sizeof report);
  _exit(0);
}

// A process that may be spoken with.
struct Child {
  pid_t pid = 0;
  int to = -1;
  int from = -1;
  Share share;

  void receive(void* what, std::size_t size) const {
    if (read(from, what, size) != static_cast<ssize_t>(size)) {
      throw std::runtime_error("the doors from " + std::to_string(share.first) + " on have gone");
    }
  }
};

Child begin(const Share& share) {
  int to[2];
  int from[2];
  if (pipe(to) != 0 || pipe(from) != 0) {
    throw std::runtime_error("no pipe");
  }
  const pid_t pid = fork();
  if (pid == 0) {
    try {
      be_doors(share, to[0], from[1]);
    } catch (const std::exception& failure) {
      std::cerr << "the doors from " << share.first << " on: " << failure.what() << "\n";
    }
    _exit(1);
  }
  close(to[0]);
  close(from[1]);
  return {.pid = pid, .to = to[1], .from = from[0], .share = share};
}

void make_certificates(const fs::path& directory) {
  const auto file = [&](const char* name) { return (directory / name).string(); };
  const auto key = [&](const char* name) {
    return std::vector<std::string>{"-newkey", "ec",      "-pkeyopt", "ec_paramgen_curve:prime256v1",
                                    "-nodes",  "-keyout", file(name)};
  };
  const auto openssl = [](std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.begin(), "/usr/bin/openssl");
    words.insert(words.end(), more.begin(), more.end());
    run(words);
  };
  std::ofstream(file("names")) << "subjectAltName=IP:127.0.0.1\n";
  openssl({"req", "-x509", "-subj", "/CN=ca", "-out", file("ca.pem"), "-days", "30"}, key("ca.key"));
  for (const std::string name : {"broker", "door"}) {
    openssl({"req", "-subj", "/CN=" + name, "-out", file("request")}, key((name + ".key").c_str()));
    openssl({"x509", "-req", "-in", file("request"), "-CA", file("ca.pem"), "-CAkey", file("ca.key"), "-CAcreateserial",
             "-days", "30", "-extfile", file("names"), "-out", file((name + ".pem").c_str())},
            {});
  }
}

constexpr std::uint16_t kPort = 28'883;
constexpr std::uint16_t kOpenPort = 28'882;  // for who counts

pid_t begin_broker(const fs::path& directory) {
  const auto file = [&](const char* name) { return (directory / name).string(); };
  std::ofstream(file("mosquitto.conf"))
      << "user root\nper_listener_settings false\nallow_anonymous true\npersistence true\npersistence_location "
      << directory.string() << "/\nmax_queued_messages 0\nlog_dest none\nlistener " << kOpenPort
      << " 127.0.0.1\nlistener " << kPort << " 127.0.0.1\ncafile " << file("ca.pem") << "\ncertfile "
      << file("broker.pem") << "\nkeyfile " << file("broker.key") << "\nrequire_certificate true\n";
  const pid_t pid = fork();
  if (pid == 0) {
    execl("/usr/sbin/mosquitto", "mosquitto", "-c", file("mosquitto.conf").c_str(), nullptr);
    _exit(1);
  }
  return pid;
}

// Of another process, in kB.
double resident_of(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
  double pages = 0;
  file >> pages >> pages;
  return pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

// The stranger who listens to all doors.
class Listener {
 public:
  Listener()
      : broker_(context_, {.host = "127.0.0.1", .port = kOpenPort, .client = "listener"},
                {.up = [this] { is_up_ = true; },
                 .down = {},
                 .message =
                     [this](const mqtt::Message& message) {
                       const auto at = Json::parse(message.payload).at("at").get<std::int64_t>();
                       late_.push_back(static_cast<double>(now() - at));
                     }}) {
    broker_.subscribe("doors/+/journal/opening");
    broker_.start();
    while (!is_up_) {
      context_.run_for(milliseconds(20));
    }
  }

  void listen(std::chrono::seconds length) { context_.run_for(length); }
  const std::vector<double>& late() const { return late_; }

 private:
  net::io_context context_;
  bool is_up_ = false;
  std::vector<double> late_;  // ms from the entry on
  mqtt::Broker broker_;
};

void measure(int doors, int processes) {
  const TemporaryDirectory directory;
  make_certificates(directory.path());
  const pid_t broker = begin_broker(directory.path());
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const auto file = [&](const char* name) { return (directory.path() / name).string(); };
  std::vector<Child> children;
  for (int i = 0; i < processes; ++i) {
    const int first = doors * i / processes;
    children.push_back(
        begin({.first = first,
               .doors = doors * (i + 1) / processes - first,
               .all = doors,
               .port = kPort,
               .directory = directory.path(),
               .files = {.ca = file("ca.pem"), .certificate = file("door.pem"), .key = file("door.key")}}));
  }
  char up = 0;
  for (const auto& child : children) {
    child.receive(&up, 1);
  }
  Listener listener;
  for (const auto& child : children) {
    write_all(child.to, "g", 1);
  }
  listener.listen(kLength + std::chrono::seconds(2));
  Report all;
  std::int64_t told = 0;
  for (const auto& child : children) {
    Report report;
    child.receive(&report, sizeof report);
    all.up_seconds = std::max(all.up_seconds, report.up_seconds);
    all.kilobytes += report.kilobytes;
    all.processor += report.processor;
    all.descriptors = std::max(all.descriptors, report.descriptors);
    told += std::max(1, kEntriesPerSecond * child.share.doors / doors) * kLength.count();
    waitpid(child.pid, nullptr, 0);
  }
  const std::string what = std::to_string(doors) + " doors at one broker";
  print_row(what + ": until all are there", number(all.up_seconds) + " s");
  print_row(what + ": memory of a bridge among them", number(all.kilobytes / doors) + " kB");
  print_row(what + ": memory of the broker", number(resident_of(broker) / 1024) + " MB");
  print_row(what + ": descriptors of one of " + std::to_string(processes) + " processes",
            std::to_string(all.descriptors));
  print_row(what + ": processor of all bridges, " + std::to_string(kEntriesPerSecond) + " entries a second",
            number(100 * all.processor / static_cast<double>(kLength.count())) + " % of a core");
  print_row(what + ": an entry to the subscriber, median and 99 %",
            number(median(listener.late())) + ", " + number(quantile(listener.late(), 0.99)) + " ms");
  print_row(what + ": entries that came, of " + std::to_string(told), std::to_string(listener.late().size()));
  kill(broker, SIGTERM);
  waitpid(broker, nullptr, 0);
}

}  // namespace

int main(int, char** arguments) {
  signal(SIGPIPE, SIG_IGN);
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  measure(std::stoi(arguments[1]), std::stoi(arguments[2]));
  return 0;
}
