#include "refhost/log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <atomic>
#include <memory>
#include <string_view>

#include "ac/vexlog.h"
#include "log/entry.h"

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

void write(Level level, std::string_view text, std::string_view source, std::string_view function, long line) {
  logger().log(spdlog_level(level), "[{}] {}:{}:{}: {}", escape(thread_name()), source, function, line, text);
}

// "put" of "void refhost::Inbox::put(std::string) const".
std::string_view bare_name(std::string_view function) {
  const std::string_view before_arguments = function.substr(0, function.find('('));
  return before_arguments.substr(before_arguments.find_last_of(" :") + 1);
}

void write_own(Level level, const std::string& text, const std::source_location& where) {
  if (logger().should_log(spdlog_level(level))) {
    const std::string_view path = where.file_name();
    write(level, escape(text), path.substr(path.rfind('/') + 1), bare_name(where.function_name()),
          static_cast<long>(where.line()));
  }
}

}  // namespace

void set_threshold(Level level) { logger().set_level(spdlog_level(level)); }

void show_cards(bool show) { cards_are_shown = show; }

void info(const std::string& text, std::source_location where) { write_own(Level::info, text, where); }
void warning(const std::string& text, std::source_location where) { write_own(Level::warning, text, where); }
void error(const std::string& text, std::source_location where) { write_own(Level::error, text, where); }

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
