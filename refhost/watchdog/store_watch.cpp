#include "refhost/store_watch.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace refhost {
namespace {

std::array<char, 256> end_of(std::string_view path) {
  std::array<char, 256> end{};
  path.remove_prefix(path.size() - std::min(path.size(), end.size() - 1));
  path.copy(end.data(), path.size());
  return end;
}

}  // namespace

StoreWatch::StoreWatch(std::filesystem::path file) : file_(std::move(file)) {
  const std::lock_guard lock(StoreTable::instance().mutex_);
  StoreTable::instance().all_.push_back(this);
}

StoreWatch::~StoreWatch() {
  const std::lock_guard lock(StoreTable::instance().mutex_);
  std::erase(StoreTable::instance().all_, this);
}

StoreWatch::Use::Use(StoreWatch& watch, const char* what) : watch_(watch) {
  const std::lock_guard lock(watch_.mutex_);
  watch_.since_ = Clock::now();
  watch_.what_ = what;
}

StoreWatch::Use::~Use() {
  const std::lock_guard lock(watch_.mutex_);
  watch_.since_.reset();
  if (!failed_) {
    watch_.failure_.clear();
  }
}

void StoreWatch::Use::fail(const std::string& reason) {
  const std::lock_guard lock(watch_.mutex_);
  failed_ = true;
  watch_.failure_ = std::string(watch_.what_) + " is not stored: " + reason;
}

StoreTable& StoreTable::instance() {
  static StoreTable& table = *new StoreTable;
  return table;
}

std::optional<StoreTable::Stall> StoreTable::longest_stall(Clock::time_point now, std::chrono::milliseconds patience) {
  const std::lock_guard lock(mutex_);
  std::optional<Stall> longest;
  for (StoreWatch* const watch : all_) {
    const std::lock_guard lock_of_watch(watch->mutex_);
    const auto length = std::chrono::duration_cast<std::chrono::milliseconds>(now - watch->since_.value_or(now));
    if (length > (longest.has_value() ? longest->length : patience)) {
      longest = {.file = end_of(watch->file_.native()), .what = watch->what_, .length = length};
    }
  }
  return longest;
}

std::string StoreTable::trouble(Clock::time_point now, std::chrono::milliseconds patience) {
  const std::lock_guard lock(mutex_);
  std::string text;
  const auto add = [&text](const std::string& one) { text += (text.empty() ? "" : "; ") + one; };
  for (StoreWatch* const watch : all_) {
    const std::lock_guard lock_of_watch(watch->mutex_);
    if (now - watch->since_.value_or(now) > patience) {
      add("the disk below " + watch->file_.string() + " does not answer (" + watch->what_ +
          "): nothing is stored until it does; see what the kernel says of it (dmesg)");
    } else if (!watch->failure_.empty()) {
      add("in " + watch->file_.string() + " " + watch->failure_ +
          "; see who has it open (fuser) and what room there is (df)");
    }
  }
  return text;
}

}  // namespace refhost
