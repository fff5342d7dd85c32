#include "door/tests/fake_gpio.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace achost::test {
namespace {

constexpr std::uint64_t kEdges = GPIO_V2_LINE_FLAG_EDGE_RISING | GPIO_V2_LINE_FLAG_EDGE_FALLING;
constexpr std::uint64_t kBiases =
    GPIO_V2_LINE_FLAG_BIAS_PULL_UP | GPIO_V2_LINE_FLAG_BIAS_PULL_DOWN | GPIO_V2_LINE_FLAG_BIAS_DISABLED;
constexpr std::uint64_t kDirections = GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_OUTPUT;
constexpr std::uint64_t kKnown = GPIO_V2_LINE_FLAG_ACTIVE_LOW | kEdges | kBiases | kDirections;
constexpr std::size_t kBuffer = 16;  // edges

void copy_name(char (&to)[GPIO_MAX_NAME_SIZE], const std::string& from) {
  std::memset(to, 0, sizeof to);
  from.copy(to, sizeof to - 1);
}

const gpio_v2_line_attribute* attribute_of(const gpio_v2_line_request& request, std::uint32_t id) {
  for (std::uint32_t i = 0; i < request.config.num_attrs; ++i) {
    if (request.config.attrs[i].attr.id == id && (request.config.attrs[i].mask & 1) != 0) {
      return &request.config.attrs[i].attr;
    }
  }
  return nullptr;
}

bool is_zero(const std::uint32_t* words, std::size_t count) {
  return std::all_of(words, words + count, [](std::uint32_t word) { return word == 0; });
}

bool is_valid(const gpio_v2_line_request& request) {
  const std::uint64_t flags = request.config.flags;
  const bool input = (flags & GPIO_V2_LINE_FLAG_INPUT) != 0;
  const bool output = (flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0;
  return request.num_lines == 1 && is_zero(request.padding, std::size(request.padding)) &&
         is_zero(request.config.padding, std::size(request.config.padding)) &&
         request.config.num_attrs <= GPIO_V2_LINE_NUM_ATTRS_MAX && (flags & ~kKnown) == 0 && !(input && output) &&
         ((flags & kEdges) == 0 || input) && std::popcount(flags & kBiases) <= 1 &&
         ((flags & kBiases) == 0 || input || output) &&
         (attribute_of(request, GPIO_V2_LINE_ATTR_ID_DEBOUNCE) == nullptr || input);
}

std::int64_t now() {
  using std::chrono::steady_clock;
  return std::chrono::nanoseconds(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

FakeGpio::FakeGpio(std::vector<Chip> chips) {
  std::signal(SIGPIPE, SIG_IGN);
  for (auto& chip : chips) {
    auto& board = boards_.emplace_back();
    for (const auto& name : chip.lines) {
      board.lines.emplace_back().name = name;
    }
    board.chip = std::move(chip);
  }
}

FakeGpio::~FakeGpio() {
  for (const auto& board : boards_) {
    for (const auto& line : board.lines) {
      close(line.writer);
    }
  }
}

// Whoever has the line still has the other end of its pipe.
bool FakeGpio::is_taken(Line& line) {
  pollfd end{line.writer, POLLOUT, 0};
  if (line.writer >= 0 && poll(&end, 1, 0) > 0 && (end.revents & POLLERR) != 0) {
    close(line.writer);
    line.writer = -1;
    line.reader = -1;
    line.consumer.clear();
    line.waiting.clear();
  }
  return line.writer >= 0 || !line.consumer.empty();
}

bool FakeGpio::is_active_low(const Line& line) {
  return (line.request.config.flags & GPIO_V2_LINE_FLAG_ACTIVE_LOW) != 0;
}

FakeGpio::Line& FakeGpio::line_called(const std::string& name) {
  for (auto& board : boards_) {
    const auto found = std::ranges::find(board.lines, name, &Line::name);
    if (found != board.lines.end()) {
      return *found;
    }
  }
  throw std::invalid_argument("no line " + name);
}

std::vector<std::string> FakeGpio::chips() {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> paths;
  for (const auto& board : boards_) {
    if (board.is_there) {
      paths.push_back("/dev/" + board.chip.name);
    }
  }
  return paths;
}

int FakeGpio::open(const std::string& path) {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; i < boards_.size(); ++i) {
    if (path == "/dev/" + boards_[i].chip.name && boards_[i].is_there) {
      const int descriptor = ::open("/dev/null", O_RDWR | O_CLOEXEC);
      opened_[descriptor] = i;
      return descriptor;
    }
  }
  return -ENOENT;
}

FakeGpio::Board* FakeGpio::board_of(int descriptor) {
  const auto found = opened_.find(descriptor);
  return found == opened_.end() ? nullptr : &boards_[found->second];
}

int FakeGpio::ioctl(int descriptor, unsigned long request, void* argument) noexcept {
  const std::lock_guard lock(mutex_);
  if (request == GPIO_V2_LINE_GET_VALUES_IOCTL || request == GPIO_V2_LINE_SET_VALUES_IOCTL) {
    return values(descriptor, request, *static_cast<gpio_v2_line_values*>(argument));
  }
  auto* const board = board_of(descriptor);
  if (board == nullptr) {
    return descriptor < 0 ? -EBADF : -ENOTTY;
  }
  if (!board->is_there) {
    return -ENODEV;
  }
  switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL: {
      auto& info = *static_cast<gpiochip_info*>(argument);
      copy_name(info.name, board->chip.name);
      copy_name(info.label, board->chip.label);
      info.lines = static_cast<std::uint32_t>(board->lines.size());
      return 0;
    }
    case GPIO_V2_GET_LINEINFO_IOCTL:
      return info(*board, *static_cast<gpio_v2_line_info*>(argument));
    case GPIO_V2_GET_LINE_IOCTL:
      return this->request(*board, *static_cast<gpio_v2_line_request*>(argument));
    default:
      return -EINVAL;
  }
}

int FakeGpio::info(const Board& board, gpio_v2_line_info& info) {
  if (!is_zero(info.padding, std::size(info.padding)) || info.offset >= board.lines.size()) {
    return -EINVAL;
  }
  auto& line = const_cast<Line&>(board.lines[info.offset]);  // NOLINT: a line that was given back is found out here
  const bool taken = is_taken(line);
  copy_name(info.name, line.name);
  copy_name(info.consumer, taken ? line.consumer : "");
  info.flags = (taken ? std::uint64_t{GPIO_V2_LINE_FLAG_USED} : 0U) | (line.request.config.flags & kKnown);
  if ((info.flags & kDirections) == 0) {
    info.flags |= GPIO_V2_LINE_FLAG_INPUT;
  }
  return 0;
}

int FakeGpio::request(Board& board, gpio_v2_line_request& request) {
  if (!is_valid(request) || request.offsets[0] >= board.lines.size()) {
    return -EINVAL;
  }
  auto& line = board.lines[request.offsets[0]];
  if (is_taken(line)) {
    return -EBUSY;
  }
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return -errno;
  }
  line.reader = request.fd = ends[0];
  line.writer = ends[1];
  line.edges = 0;
  line.consumer = request.consumer;
  if ((request.config.flags & kDirections) != 0) {
    line.request = request;
  }
  if (const auto* const values = attribute_of(request, GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES)) {
    line.voltage = static_cast<int>(values->values & 1) ^ (is_active_low(line) ? 1 : 0);
  }
  return 0;
}

int FakeGpio::values(int descriptor, unsigned long request, gpio_v2_line_values& values) {
  for (auto& board : boards_) {
    for (auto& line : board.lines) {
      if (descriptor < 0 || line.reader != descriptor) {
        continue;
      }
      if (!board.is_there) {
        return -ENODEV;
      }
      if (!is_taken(line)) {
        continue;
      }
      if (values.mask == 0) {
        return -EINVAL;
      }
      const int flip = is_active_low(line) ? 1 : 0;
      if (request == GPIO_V2_LINE_GET_VALUES_IOCTL) {
        values.bits = static_cast<std::uint64_t>(line.voltage ^ flip) & values.mask;
        return 0;
      }
      if ((line.request.config.flags & GPIO_V2_LINE_FLAG_OUTPUT) == 0) {
        return -EPERM;
      }
      if (writes_fail_) {
        return -EIO;
      }
      line.voltage = static_cast<int>(values.bits & 1) ^ flip;
      return 0;
    }
  }
  return -EBADF;
}

void FakeGpio::flush(Line& line) {
  for (const auto& edge : line.waiting) {
    [[maybe_unused]] const ssize_t written = write(line.writer, &edge, sizeof edge);
  }
  line.waiting.clear();
}

void FakeGpio::drive(const std::string& name, int level, std::int64_t at) {
  const std::lock_guard lock(mutex_);
  auto& line = line_called(name);
  if (std::exchange(line.voltage, level) == level || !is_taken(line)) {
    return;
  }
  const bool rises = (level != 0) != is_active_low(line);
  const auto wanted = rises ? GPIO_V2_LINE_FLAG_EDGE_RISING : GPIO_V2_LINE_FLAG_EDGE_FALLING;
  if ((line.request.config.flags & wanted) == 0) {
    return;
  }
  gpio_v2_line_event edge{};
  edge.timestamp_ns = static_cast<std::uint64_t>(at != 0 ? at : now());
  edge.id = rises ? GPIO_V2_LINE_EVENT_RISING_EDGE : GPIO_V2_LINE_EVENT_FALLING_EDGE;
  edge.offset = line.request.offsets[0];
  edge.seqno = edge.line_seqno = ++line.edges;
  line.waiting.push_back(edge);
  if (line.waiting.size() > kBuffer) {
    line.waiting.erase(line.waiting.begin());
  }
  if (!line.is_held) {
    flush(line);
  }
}

void FakeGpio::hold_edges(const std::string& name, bool hold) {
  const std::lock_guard lock(mutex_);
  auto& line = line_called(name);
  line.is_held = hold;
  if (!hold) {
    flush(line);
  }
}

int FakeGpio::voltage(const std::string& line) {
  const std::lock_guard lock(mutex_);
  return line_called(line).voltage;
}

void FakeGpio::take(const std::string& line, const std::string& consumer) {
  const std::lock_guard lock(mutex_);
  line_called(line).consumer = consumer;
}

// Who polls a line of it is told that it has hung up.
void FakeGpio::vanish(const std::string& chip) {
  const std::lock_guard lock(mutex_);
  for (auto& board : boards_) {
    if (board.chip.name == chip) {
      board.is_there = false;
      for (auto& line : board.lines) {
        close(std::exchange(line.writer, -1));
        line.consumer.clear();
      }
    }
  }
}

void FakeGpio::come_back(const std::string& chip) {
  const std::lock_guard lock(mutex_);
  for (auto& board : boards_) {
    if (board.chip.name == chip) {
      board.is_there = true;
      for (auto& line : board.lines) {
        line.reader = -1;
      }
    }
  }
}

void FakeGpio::fail_writes(bool fail) {
  const std::lock_guard lock(mutex_);
  writes_fail_ = fail;
}

gpio_v2_line_request FakeGpio::request_of(const std::string& line) {
  const std::lock_guard lock(mutex_);
  return line_called(line).request;
}

}  // namespace achost::test
