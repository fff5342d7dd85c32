#include "gateway/mqtt/position.h"

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "gateway/base/state_file.h"

namespace mqtt {
namespace {

constexpr std::chrono::seconds kOften{1};

}  // namespace

void Acknowledgements::begin_at(const Position& position) {
  reached_ = position;
  first_ += waiting_.size();
  waiting_.clear();
}

Acknowledgements::Handle Acknowledgements::send(const Position& position) {
  waiting_.push_back({position});
  return first_ + waiting_.size() - 1;
}

void Acknowledgements::take(Handle handle) {
  if (handle < first_ || handle - first_ >= waiting_.size()) {
    return;  // of before begin_at()
  }
  waiting_[handle - first_].is_taken = true;
  while (!waiting_.empty() && waiting_.front().is_taken) {
    reached_ = std::move(waiting_.front().position);
    waiting_.pop_front();
    ++first_;
  }
}

PositionFile::PositionFile(std::filesystem::path path) : path_(std::move(path)) {
  std::ifstream file(path_);
  if (!file) {
    return;
  }
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const auto content = nlohmann::json::parse(text, nullptr, false);
  if (!content.is_object() || !content.value("journal", nlohmann::json()).is_string() ||
      !content.value("number", nlohmann::json()).is_number_integer()) {
    throw std::runtime_error(path_.string() +
                             " holds no position of a journal: remove it, and all that the journal has is told again");
  }
  stored_ = {content["journal"].get<std::string>(), content["number"].get<std::int64_t>()};
}

void PositionFile::keep(const Position& position, Time now) {
  const bool is_far = position.journal != stored_.journal || position.number - stored_.number >= kMostBehind;
  if (position != stored_ && (is_far || now - written_ >= kOften)) {
    keep_now(position);
    written_ = now;
  }
}

void PositionFile::keep_now(const Position& position) {
  if (position == stored_) {
    return;
  }
  gateway::replace_file(path_,
                        nlohmann::json{{"journal", position.journal}, {"number", position.number}}.dump() + "\n");
  stored_ = position;
}

}  // namespace mqtt
