#include "gateway/mqtt/join.h"

#include <mosquitto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/failure.h"
#include "cli/output_file.h"
#include "gateway/mqtt/key_request.h"
#include "gateway/mqtt/one_time_code.h"
#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

using Json = nlohmann::json;
using std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& text, cli::Status status = cli::kFailed) { throw cli::Failure(status, text); }

// One question to the centre, at the listener that takes strangers. Who answers there shows by the code that it is the
// centre, so that nobody need vouch for the broker.
class Question {
 public:
  Question(const JoinOptions& options, std::string request)
      : options_(options), client_(topics::newcomer(options.serial)), request_(std::move(request)) {
    mosquitto_lib_init();
    mosquitto_.reset(mosquitto_new(client_.c_str(), true, this));
    if (mosquitto_ == nullptr) {
      fail("no memory for a connection");
    }
    mosquitto_int_option(mosquitto_.get(), MOSQ_OPT_TLS_USE_OS_CERTS, 1);
    mosquitto_tls_opts_set(mosquitto_.get(), 0, nullptr, nullptr);
    mosquitto_tls_insecure_set(mosquitto_.get(), true);
    mosquitto_connect_callback_set(mosquitto_.get(), welcomed);
    mosquitto_subscribe_callback_set(mosquitto_.get(), listens);
    mosquitto_message_callback_set(mosquitto_.get(), answered);
  }
  ~Question() {
    mosquitto_.reset();
    mosquitto_lib_cleanup();
  }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  std::string answer() {
    const auto colon = options_.broker.rfind(':');
    const std::string host = options_.broker.substr(0, colon);
    const int failure = mosquitto_connect(mosquitto_.get(), host.c_str(), port(), 30);
    if (failure != MOSQ_ERR_SUCCESS) {
      fail_to_reach(failure);
    }
    const auto deadline = steady_clock::now() + options_.patience;
    while (answer_.empty()) {
      if (steady_clock::now() > deadline) {
        fail("nobody at the centre answers: is achost-fleet provision running there?", cli::kNoAnswer);
      }
      if (const int end = mosquitto_loop(mosquitto_.get(), 200, 1); end != MOSQ_ERR_SUCCESS && answer_.empty()) {
        fail_to_reach(end);
      }
    }
    return answer_;
  }

 private:
  int port() const {
    const auto colon = options_.broker.rfind(':');
    std::uint16_t port = 0;
    const char* const end = options_.broker.data() + options_.broker.size();
    if (colon == std::string::npos || colon == 0 ||
        std::from_chars(options_.broker.data() + colon + 1, end, port).ptr != end || port == 0) {
      fail("\"" + options_.broker + "\" is no broker: give HOST:PORT, such as centre.example:8884", cli::kUsage);
    }
    return port;
  }

  [[noreturn]] void fail_to_reach(int failure) const {
    const std::string reason =
        failure == MOSQ_ERR_ERRNO ? std::string(std::strerror(errno)) : mosquitto_strerror(failure);
    fail("no broker lets new doors in at " + options_.broker + ": " + reason, cli::kNoAnswer);
  }

  static void welcomed(mosquitto* connection, void* self, int refusal) {
    auto& question = *static_cast<Question*>(self);
    if (refusal == 0) {
      mosquitto_subscribe(connection, nullptr, topics::provision_answer(question.options_.serial).c_str(), 1);
    }
  }

  static void listens(mosquitto* connection, void* self, int, int, const int*) {
    const auto& question = *static_cast<Question*>(self);
    mosquitto_publish(connection, nullptr, topics::provision_request(question.options_.serial).c_str(),
                      static_cast<int>(question.request_.size()), question.request_.data(), 1, false);
  }

  static void answered(mosquitto*, void* self, const mosquitto_message* message) {
    auto& question = *static_cast<Question*>(self);
    question.answer_.assign(static_cast<const char*>(message->payload), static_cast<std::size_t>(message->payloadlen));
  }

  const JoinOptions& options_;
  const std::string client_;
  const std::string request_;
  std::string answer_;
  std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> mosquitto_{nullptr, mosquitto_destroy};
};

std::string text_in(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

void write(const std::filesystem::path& file, const std::string& text) {
  achost::OutputFile output(file, achost::OutputFile::Form::whole);
  output.write(text);
  output.close();
}

// What the centre has said, for whoever runs the bridge.
void keep(const std::filesystem::path& directory, const Json& answer) {
  write(directory / "ca.pem", text_in(answer, "ca"));
  write(directory / "certificate.pem", text_in(answer, "certificate"));
  write(directory / "achost-mqtt.conf", "door=" + text_in(answer, "door") + "\nbroker=" + text_in(answer, "broker") +
                                            "\nca=" + (directory / "ca.pem").string() +
                                            "\ncertificate=" + (directory / "certificate.pem").string() +
                                            "\nkey=" + (directory / "key.pem").string() + "\n");
}

// Where root joins for the bridge's own user.
void give_to_owner(const std::filesystem::path& directory) {
  struct stat owner {};
  if (geteuid() == 0 && stat(directory.c_str(), &owner) == 0 && owner.st_uid != 0) {
    for (const char* const name : {"key.pem", "certificate.pem", "ca.pem", "achost-mqtt.conf"}) {
      if (lchown((directory / name).c_str(), owner.st_uid, owner.st_gid) != 0) {
        fail("cannot give " + (directory / name).string() + " to the owner of its directory");
      }
    }
  }
}

}  // namespace

Joined join(const JoinOptions& options) try {
  const std::string code = meant_code(options.code);
  if (code.empty()) {
    fail("\"" + options.code + "\" is no code: it has 20 letters and digits, such as 4TQ2M-9XKPA-...", cli::kUsage);
  }
  if (!topics::is_serial(options.serial)) {
    fail("\"" + options.serial + "\" is no serial number: give small letters, digits and -", cli::kUsage);
  }
  std::filesystem::create_directories(options.directory);
  const std::string request = key_request(options.directory / "key.pem", options.serial);
  Question question(options,
                    Json({{"serial", options.serial}, {"csr", request}, {"proof", proof_of(code, request)}}).dump());
  const Json answer = Json::parse(question.answer(), nullptr, false);
  if (!answer.is_object()) {
    fail("the centre answers what is no JSON: is " + options.broker + " a fleet's broker?");
  }
  if (const auto error = text_in(answer, "error"); !error.empty()) {
    fail("the centre refuses: " + error);
  }
  const Joined joined{.door = text_in(answer, "door"), .broker = text_in(answer, "broker")};
  const std::string proved =
      proved_text(joined.door, text_in(answer, "certificate"), text_in(answer, "ca"), joined.broker);
  if (!topics::is_id(joined.door) || !is_proof(text_in(answer, "proof"), code, proved)) {
    fail("whoever answers at " + options.broker + " does not know the code: he is not the centre that gave it");
  }
  keep(options.directory, answer);
  give_to_owner(options.directory);
  return joined;
} catch (const achost::OutputError& failure) {
  fail(failure.what());
} catch (const std::filesystem::filesystem_error& failure) {
  fail(failure.what());
}

}  // namespace mqtt
