#include "refhost/log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <atomic>
#include <memory>
#include <string_view>

#include "ac/vexlog.h"
#include "refhost/log_entry.h"

namespace refhost::log {
namespace {

// Read by every thread that logs, written by the options of the run.
std::atomic<bool> cards_are_shown{false};

spdlog::level::level_enum spdlog_level(Level level) {
  constexpr spdlog::level::level_enum kLevels[] = {spdlog::level::debug, spdlog::level::info, spdlog::level::warn,
                                                   spdlog::level::err, spdlog::level::off};
  return kLevels[static_cast<std::size_t>(level)];
}

std::shared_ptr<spdlog::logger> make_logger() {
  auto logger = std::make_shared<spdlog::logger>("achost", std::make_shared<spdlog::sinks::stderr_sink_mt>());
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %-7l %v");
  logger->set_level(spdlog::level::warn);
  return logger;
}

// Never destroyed: plug-in threads log until the process is gone. It locks for itself.
spdlog::logger& logger() {
  static auto& instance = *new std::shared_ptr<spdlog::logger>(make_logger());
  return *instance;
}

void write(Level level, std::string_view text, std::string_view source, std::string_view function, int line) {
  logger().log(spdlog_level(level), "[{}] {}:{}:{}: {}", escape(thread_name()), source, function, line, text);
}

void write_own(Level level, const std::string& text, std::string_view file, const char* function, int line) {
  if (logger().should_log(spdlog_level(level))) {
    write(level, escape(text), file.substr(file.rfind('/') + 1), function, line);
  }
}

}  // namespace

void set_threshold(Level level) { logger().set_level(spdlog_level(level)); }

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
  if (!log::logger().should_log(spdlog::level::debug)) {
    return;
  }
  const std::string shown = log::cards_are_shown.load() ? text : log::mask_card(text);
  log::write(log::Level::debug, log::escape(shown), source_file, function, line);
}

}  // namespace ac::vexlog
