// One thing after the other that can be wrong between a port and its tags.
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "cli/paragraph.h"
#include "commands.h"
#include "failure.h"
#include "port.h"
#include "tags.h"
#include "terminal.h"

namespace uhfctl {

namespace {

constexpr int kPolls = 100;

enum class Verdict { good, doubtful, bad };

// Prints each finding as it is made, and remembers the worst.
class Report {
 public:
  explicit Report(bool json) : json_(json) {}

  void add(const std::string& subject, Verdict verdict, const std::string& finding, const std::string& way_out = "") {
    constexpr const char* kWords[] = {"good", "doubtful", "bad"};
    constexpr Colour kColours[] = {Colour::green, Colour::yellow, Colour::red};
    const auto index = static_cast<std::size_t>(verdict);
    worst_ = std::max(worst_, verdict);
    if (json_) {
      nlohmann::ordered_json object{{"check", subject}, {"verdict", kWords[index]}, {"finding", finding}};
      if (!way_out.empty()) {
        object["way_out"] = way_out;
      }
      print(object);
      return;
    }
    char line[64];
    std::snprintf(line, sizeof line, "%-12s ", subject.c_str());
    char word[32];
    std::snprintf(word, sizeof word, "%-9s ", kWords[index]);
    print(line + coloured(kColours[index], word) + folded(finding + (way_out.empty() ? "" : ": " + way_out)));
  }

  Verdict worst() const { return worst_; }

 private:
  // Behind the verdict, or below it on a phone; one line where there is no terminal.
  static std::string folded(const std::string& text) {
    constexpr std::size_t kBehind = 23;
    constexpr std::size_t kNarrow = 60;
    const auto width = is_terminal() ? terminal_size().columns : 0;
    if (width == 0) {
      return text + "\n";
    }
    return width < kNarrow ? "\n  " + cli::wrapped(text, 2, width) + "\n" : cli::wrapped(text, kBehind, width) + "\n";
  }

  bool json_;
  Verdict worst_ = Verdict::good;
};

// What ends the examination: nothing after it can be looked at.
[[noreturn]] void stop(Status status) { throw Failure(status, "the checks after this one need it"); }

void check_file(Report& report, const std::string& path) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) {
    report.add("port", Verdict::bad, "there is no " + path + " (" + std::strerror(errno) + ")",
               "plug the reader in, and list the ports with `ls /dev/serial/by-id`");
    stop(kNoReader);
  }
  if (!S_ISCHR(file.st_mode)) {
    report.add("port", Verdict::bad, path + " is no device", "list the ports with `ls /dev/serial/by-id`");
    stop(kNoReader);
  }
  report.add("port", Verdict::good, path + " is there");
  if (access(path.c_str(), R_OK | W_OK) != 0) {
    report.add("permission", Verdict::bad, std::string("it may not be read and written (") + std::strerror(errno) + ")",
               "`sudo usermod -aG dialout $USER`, then log in again");
    stop(kNoReader);
  }
  report.add("permission", Verdict::good, "it may be read and written");
}

std::unique_ptr<Port> claim(Report& report, const Common& common) {
  try {
    auto port = std::make_unique<Port>(common);
    report.add("use", Verdict::good,
               port->loan() == nullptr ? "nobody else uses it" : port->loan()->lender() + " has it, and lends it");
    return port;
  } catch (const Failure& failure) {
    if (failure.status() == kUsage) {
      throw;
    }
    report.add("use", Verdict::bad, failure.what());
    stop(failure.status());
  }
}

void check_line(Report& report, const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  termios line{};
  const bool known = fd >= 0 && tcgetattr(fd, &line) == 0;
  close(fd);
  if (!known || cfgetispeed(&line) != B115200 || (line.c_cflag & CSIZE) != CS8) {
    report.add("line", Verdict::bad, "it cannot be set to 115200 baud, 8 data bits", "use another serial adapter");
    stop(kNoReader);
  }
  report.add("line", Verdict::good, "115200 baud, 8 data bits, no parity");
}

[[noreturn]] void nobody(Report& report, LineFault fault) {
  constexpr FaultAdvice kSilence{"nothing answers",
                                 "check the reader's supply, then TX and RX (crossed?), then the port"};
  const auto& [finding, way_out] = fault == LineFault::none ? kSilence : advice_on(fault);
  report.add("answer", Verdict::bad, finding, way_out);
  stop(kNoReader);
}

// Polls, which end however the reader behaves, before the driver asks, which believes a reader that never ends.
unsigned short check_answer(Report& report, const Port& port) {
  constexpr int kTrials = 5;
  PollFaults faults;
  bool is_reader = false;
  for (int i = 0; i < kTrials && !is_reader && !interrupted(); ++i) {
    const auto poll = port.poll();
    faults.add(poll.fault);
    is_reader = poll.fault == LineFault::none;  // also silence: some readers have nothing to say of an empty field
  }
  if (interrupted()) {
    throw Failure(kFailed, "interrupted");
  }
  if (!is_reader) {
    nobody(report, faults.commonest());
  }
  const auto begin = Clock::now();
  try {
    const auto power = port.power_or_nobody();
    report.add("answer", Verdict::good, "the reader answers within " + seconds((Clock::now() - begin) * 1000) + " ms");
    return power;
  } catch (const Failure& failure) {
    if (failure.status() != kNoReader) {
      throw;
    }
    nobody(report, port.poll().fault);
  }
}

Tags check_polls(Report& report, const Port& port) {
  Tags tags;
  PollFaults faults;
  for (int i = 0; i < kPolls && !interrupted(); ++i) {
    const auto poll = port.poll_living();
    tags.add(poll, Clock::now());
    faults.add(poll.fault);
    progress(std::to_string(i + 1) + " of " + std::to_string(kPolls) + " polls");
  }
  progress("");
  if (faults.bad() == 0) {
    report.add("polls", Verdict::good, faults.text());
  } else {
    report.add("polls", faults.noisy() ? Verdict::bad : Verdict::doubtful, faults.text(),
               advice_on(faults.commonest()).way_out);
  }
  return tags;
}

void check_tags(Report& report, const Tags& tags) {
  if (tags.all().empty()) {
    report.add("tags", Verdict::doubtful, "no tag in the field",
               "hold one to the antenna; then check the antenna's cable and the power");
    return;
  }
  std::string list;
  for (const auto& [epc, tag] : tags.all()) {
    list += (list.empty() ? "" : "; ") + epc + " (RSSI " + std::to_string(tag.rssi) + ", " + std::to_string(tag.times) +
            " times)";
  }
  report.add("tags", Verdict::good, std::to_string(tags.all().size()) + " in the field: " + list);
}

void check_power(Report& report, unsigned short power, const refhost::RadioLimit& limit) {
  const auto finding = refhost::power_text(power) + "; " + std::string(limit.region) + " allows " +
                       refhost::power_text(limit.most_power) + " with an antenna of " +
                       std::to_string(refhost::kCountedGain) + " dBi";
  power <= limit.most_power
      ? report.add("power", Verdict::good, finding)
      : report.add("power", Verdict::doubtful, finding,
                   "`uhfctl power set " + std::to_string(limit.most_power) + "`, or take an antenna of less gain");
}

void examine(Report& report, const Common& common, const std::string& region) {
  const auto& limit = limit_of(region);  // a slip of the pen shows before the reader is polled
  if (!common.port.empty()) {
    check_file(report, common.port);
  }
  const auto port = claim(report, common);
  check_line(report, common.port);
  const auto power = check_answer(report, *port);
  check_tags(report, check_polls(report, *port));
  check_power(report, power, limit);
}

}  // namespace

void doctor(const Common& common, const std::string& region) {
  catch_interrupts();
  Report report(common.json);
  examine(report, common, region);
  if (report.worst() == Verdict::bad) {
    throw Failure(kFailed, "not all is well; see above");
  }
}

}  // namespace uhfctl
