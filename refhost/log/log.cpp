#include "refhost/log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>

#include "ac/vexlog.h"
#include "refhost/line_writer.h"
#include "refhost/log_entry.h"

namespace refhost::log {
namespace {

// Read by every thread that logs, written by the options of the run.
std::atomic<bool> cards_are_shown{false};
// Likewise, and by every debug line: most runs want none.
constinit std::atomic<bool> debug_is_wanted{false};

spdlog::level::level_enum spdlog_level(Level level) {
  constexpr spdlog::level::level_enum kLevels[] = {spdlog::level::debug, spdlog::level::info, spdlog::level::warn,
                                                   spdlog::level::err, spdlog::level::off};
  return kLevels[static_cast<std::size_t>(level)];
}

std::string gap_line(std::uint64_t lost) { return "log: " + std::to_string(lost) + " lines lost: nobody took them\n"; }

// Never destroyed, as the logger.
LineWriter& writer() {
  static auto& instance = *new LineWriter(STDERR_FILENO, "log", {.gap = gap_line});
  return instance;
}

// A log that nobody reads must not stop a thread that opens a door.
class Sink : public spdlog::sinks::base_sink<std::mutex> {
  void sink_it_(const spdlog::details::log_msg& entry) override {
    spdlog::memory_buf_t line;
    formatter_->format(entry, line);
    writer().put({line.data(), line.size()});
  }
  void flush_() override {}
};

std::shared_ptr<spdlog::logger> make_logger() {
  auto logger = std::make_shared<spdlog::logger>("achost", std::make_shared<Sink>());
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %-7l %v");
  logger->set_level(spdlog::level::warn);
  return logger;
}

// Never destroyed: plug-in threads log until the process is gone. It locks for itself.
spdlog::logger& logger() {
  static auto& instance = *new std::shared_ptr<spdlog::logger>(make_logger());
  return *instance;
}

// spdlog swallows what goes wrong in it.
void write(Level level, std::string_view text, std::string_view source, std::string_view function, int line) {
  logger().log(spdlog_level(level), "[{}] {}:{}:{}: {}", escape(thread_name()), source, function, line, text);
}

// Who says what went wrong must not fail of it: a line that there is no memory for is lost.
void write_own(Level level, const std::string& text, std::string_view file, const char* function, int line) noexcept {
  try {
    if (logger().should_log(spdlog_level(level))) {
      write(level, escape(text), file.substr(file.rfind('/') + 1), function, line);
    }
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

void set_threshold(Level level) {
  debug_is_wanted = level == Level::debug;
  logger().set_level(spdlog_level(level));
}

void say(const std::string& line) { writer().put(line + "\n"); }

bool drain(std::chrono::milliseconds longest) { return writer().drain(longest); }

std::uint64_t lines_lost() { return writer().lost(); }

void show_cards(bool show) { cards_are_shown = show; }

void info(const std::string& text, const char* file, const char* function, int line) {
  write_own(Level::info, text, file, function, line);
}

void warning(const std::string& text, const char* file, const char* function, int line) {
  write_own(Level::warning, text, file, function, line);
}

void error(const std::string& text, const char* file, const char* function, int line) {
  write_own(Level::error, text, file, function, line);
}

}  // namespace refhost::log

namespace ac::vexlog {

void debug(const std::string& text, const char* source_file, const char* function, int line) {
  namespace log = refhost::log;
  if (!log::debug_is_wanted.load(std::memory_order_relaxed)) {
    return;
  }
  const std::string shown = log::cards_are_shown.load() ? text : log::mask_card(text);
  log::write(log::Level::debug, log::escape(shown), source_file, function, line);
}

}  // namespace ac::vexlog
