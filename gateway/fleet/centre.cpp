#include "gateway/fleet/centre.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <array>
#include <boost/asio/signal_set.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <memory>
#include <utility>

#include "cli/failure.h"
#include "gateway/fleet/now.h"
#include "gateway/mqtt/topics.h"

namespace fleet {
namespace {

namespace topics = mqtt::topics;

std::string random_text() {
  std::array<unsigned char, 16> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw cli::Failure(cli::kFailed, "this machine gives no random numbers");
  }
  std::string text;
  for (const unsigned char byte : bytes) {
    text += "0123456789abcdef"[byte >> 4U];
    text += "0123456789abcdef"[byte & 15U];
  }
  return text;
}

// Whether a topic is one that a filter with + and # names.
bool is_named_by(std::string_view topic, std::string_view filter) {
  while (!filter.empty() && filter != "#") {
    const auto level = topic.substr(0, topic.find('/'));
    const auto wanted = filter.substr(0, filter.find('/'));
    if (wanted != "+" && wanted != level) {
      return false;
    }
    if ((level.size() == topic.size()) != (wanted.size() == filter.size())) {
      return false;
    }
    topic.remove_prefix(std::min(level.size() + 1, topic.size()));
    filter.remove_prefix(std::min(wanted.size() + 1, filter.size()));
  }
  return filter == "#" || topic.empty();
}

}  // namespace

mqtt::Place place_of(const Access& access) {
  const auto colon = access.broker.rfind(':');
  mqtt::Place place{.host = access.broker.substr(0, colon), .client = "centre-" + random_text(), .files = access.files};
  if (colon != std::string::npos) {
    const char* const end = access.broker.data() + access.broker.size();
    const auto [stop, failure] = std::from_chars(access.broker.data() + colon + 1, end, place.port);
    if (failure != std::errc() || stop != end || place.port == 0) {
      throw cli::Failure(cli::kUsage, "\"" + access.broker + "\" is no broker: give HOST:PORT, such as localhost:8883");
    }
  }
  if (place.host.empty()) {
    throw cli::Failure(cli::kUsage, "\"" + access.broker + "\" is no broker: give HOST:PORT, such as localhost:8883");
  }
  return place;
}

std::string name_in_certificate(const std::string& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> source(std::fopen(file.c_str(), "re"), std::fclose);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      source == nullptr ? nullptr : PEM_read_X509(source.get(), nullptr, nullptr, nullptr), X509_free);
  std::array<char, 256> name{};
  if (certificate != nullptr) {
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name.data(), name.size());
  }
  return name.data();
}

Centre::Centre(const Access& access)
    : place_(place_of(access)),
      by_(name_in_certificate(access.files.certificate)),
      own_("centre/" + (by_.empty() ? "-" : by_) + "/" + place_.client + "/"),
      broker_(context_, place_,
              {.up = [this] { fault_.clear(); },
               .down = [this](const mqtt::Fault& fault) { fault_ = fault.text; },
               .message = [this](const mqtt::Message& message) { take(message); }}) {
  try {
    broker_.start();
  } catch (const mqtt::BadFiles& failure) {
    throw cli::Failure(cli::kUsage, failure.what());
  }
  ensure([this] { return broker_.is_up(); }, "the broker");
  listen(own_ + "mark", [this](const mqtt::Message&) { ++marks_come_; });
}

void Centre::last() { is_lasting_ = true; }

void Centre::take(const mqtt::Message& message) {
  if (const auto answer = topics::behind(message.topic, own_ + "answer/")) {
    take_answer(*answer, message);
    return;
  }
  for (const auto& [filter, taker] : takers_) {
    if (is_named_by(message.topic, filter)) {
      taker(message);
      return;
    }
  }
}

// The broker lets a door answer in its own name alone.
void Centre::take_answer(std::string_view door, const mqtt::Message& message) {
  Json answer = object_of(message.payload);
  const auto asked =
      asked_.find(message.correlation.empty() ? text_in(answer, "correlation") : std::string(message.correlation));
  if (asked != asked_.end() && asked->second == door) {
    answers_[asked->second] = std::move(answer);
    asked_.erase(asked);
  }
}

// Something happens, or the alarm rings.
void Centre::go_on() {
  context_.restart();
  context_.run_one();
  if (!fault_.empty() && is_lasting_) {
    std::fprintf(stderr, "achost-fleet: %s; it is tried again\n", std::exchange(fault_, {}).c_str());
  } else if (!fault_.empty()) {
    throw cli::Failure(cli::kNoAnswer, fault_);
  }
}

bool Centre::wait(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  alarm_.expires_at(deadline);
  alarm_.async_wait([](const boost::system::error_code&) {});
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    go_on();
  }
  return true;
}

void Centre::ensure(const std::function<bool()>& condition, const char* what) {
  if (!wait(condition, kPatience)) {
    throw cli::Failure(cli::kNoAnswer,
                       std::string(what) + " does not answer: " + place_.host + ":" + std::to_string(place_.port));
  }
}

void Centre::listen(const std::string& filter, Take take) {
  const auto allowed = std::make_shared<std::optional<bool>>();  // it answers anew after each new connection
  takers_[filter] = std::move(take);
  broker_.subscribe(filter, [allowed](bool is_allowed) { *allowed = is_allowed; });
  ensure([&] { return allowed->has_value(); }, "the broker");
  if (!**allowed) {
    throw cli::Failure(cli::kFailed, "the broker does not let " + (by_.empty() ? "this user" : by_) + " read " +
                                         filter + ": its rules (acl_file) say who may");
  }
}

void Centre::leave(const std::string& filter) {
  broker_.unsubscribe(filter);
  takers_.erase(filter);
}

void Centre::tell(const std::string& topic, std::string payload, bool retain) {
  const mqtt::Publication publication{.topic = topic, .payload = std::move(payload), .retain = retain};
  const auto done = [this, topic](mqtt::Outcome outcome) {
    refused_ = outcome == mqtt::Outcome::refused ? topic : refused_;
  };
  ensure([&] { return broker_.publish(publication, done); }, "the broker");
}

void Centre::reply(const std::string& topic, std::string payload) {
  broker_.publish({.topic = topic, .payload = std::move(payload)});
}

void Centre::settle() {
  tell(own_ + "mark", "", false);
  ++marks_told_;
  ensure([this] { return broker_.in_flight() == 0 && marks_come_ >= marks_told_; }, "the broker");
  if (!refused_.empty()) {
    throw cli::Failure(cli::kFailed, "the broker does not let " + (by_.empty() ? "this user" : by_) + " write " +
                                         std::exchange(refused_, {}) + ": its rules (acl_file) say who may");
  }
}

void Centre::wait_for_end() {
  bool is_over = false;
  boost::asio::signal_set signals(context_, SIGINT, SIGTERM);
  signals.async_wait([&is_over](const boost::system::error_code& failure, int) { is_over = !failure; });
  while (!is_over) {
    go_on();
  }
}

Answers Centre::ask(const std::set<std::string>& doors, const std::string& name, Json request,
                    std::chrono::milliseconds patience) {
  answers_.clear();
  asked_.clear();
  listen(own_ + "answer/+", [](const mqtt::Message&) {});
  if (!by_.empty()) {
    request["by"] = by_;
  }
  for (const auto& door : doors) {
    const std::string correlation = random_text();
    answers_[door] = std::nullopt;
    asked_[correlation] = door;
    request["at"] = now();
    request["correlation"] = correlation;
    const mqtt::Publication publication{.topic = topics::command(door, name),
                                        .payload = line_of(request),
                                        .response_topic = own_ + "answer/" + door,
                                        .correlation = correlation};
    const auto done = [this, topic = publication.topic](mqtt::Outcome outcome) {
      refused_ = outcome == mqtt::Outcome::refused ? topic : refused_;
    };
    ensure([&] { return broker_.publish(publication, done); }, "the broker");
  }
  settle();
  wait([this] { return asked_.empty(); }, patience);
  return answers_;
}

}  // namespace fleet
