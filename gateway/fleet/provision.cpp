#include "gateway/fleet/provision.h"

#include <chrono>
#include <cstdio>

#include "cli/failure.h"
#include "door/base/encoding.h"
#include "door/base/local_time.h"
#include "door/base/time_of.h"
#include "gateway/fleet/now.h"
#include "gateway/mqtt/one_time_code.h"
#include "gateway/mqtt/topics.h"

namespace fleet {
namespace {

constexpr std::size_t kLongestRequest = std::size_t{16} * 1024;

void check_id(const std::string& text, const char* what) {
  if (!mqtt::topics::is_serial(text)) {
    throw cli::Failure(
        cli::kUsage, achost::in_quotes(text) + " cannot be " + what + ": give small letters, digits and -, 60 at most");
  }
}

void tell(const std::string& serial, const Json& answer, bool as_json) {
  const std::string door = text_in(answer, "door");
  const std::string error = text_in(answer, "error");
  if (as_json) {
    Json line = {{"serial", serial}};
    error.empty() ? line["door"] = door : line["error"] = error;
    std::puts(line_of(line).c_str());
  } else if (error.empty()) {
    std::printf("%s has joined (serial number %s)\n", door.c_str(), serial.c_str());
  } else {
    std::printf("refused serial number %s: %s\n", serial.c_str(), error.c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int invite(const ProvisionOptions& options, bool as_json) {
  check_id(options.door, "the name of a door");
  check_id(options.serial, "a serial number");
  const auto until = now() + achost::seconds_of(options.lasts) * 1000;
  const auto code = Invitations(options.state).invite(options.serial, options.door, until);
  if (as_json) {
    std::puts(line_of({{"door", options.door}, {"serial", options.serial}, {"code", code}, {"until", until}}).c_str());
    return cli::kDone;
  }
  const auto day = achost::local_time(achost::Milliseconds(std::chrono::milliseconds(until)), "%Y-%m-%d %H:%M");
  std::printf("%s may join until %s, once. At the door:\n  achost-mqtt join --broker %s --serial %s %s\n",
              options.door.c_str(), day.c_str(), options.new_doors_at.c_str(), options.serial.c_str(), code.c_str());
  return cli::kDone;
}

Json answer_to(const std::string& serial, const Json& request, Invitations& invitations, const Authority& authority,
               const std::string& broker, int days, std::int64_t at) try {
  const std::string csr = text_in(request, "csr");
  const auto invitation =
      csr.empty() || csr.size() > kLongestRequest || text_in(request, "serial") != serial
          ? std::nullopt
          : invitations.use(serial, {.text = csr, .key = key_in_request(csr)}, text_in(request, "proof"), at);
  if (!invitation.has_value()) {
    // The same words whatever is wrong: a stranger learns nothing of whom is invited.
    return {{"error",
             "no invitation of this serial number with this code, or it was used or is over: "
             "ask for another (achost-fleet invite)"}};
  }
  const auto certificate = authority.sign(csr, invitation->door, days);
  const auto proved = mqtt::proved_text(invitation->door, certificate, authority.certificate(), broker);
  return {{"door", invitation->door},
          {"certificate", certificate},
          {"ca", authority.certificate()},
          {"broker", broker},
          {"proof", mqtt::proof_of(invitation->code, proved)}};
} catch (const cli::Failure& failure) {
  return {{"error", failure.what()}};
}

int provision(Centre& centre, const Authority& authority, const ProvisionOptions& options, const std::string& broker,
              bool as_json) {
  Invitations invitations(options.state);
  centre.last();
  centre.listen("provision/+/request", [&](const mqtt::Message& message) {
    if (const auto found = mqtt::topics::serial_of_request(message.topic); found && !message.is_retained) {
      const std::string serial(*found);
      const auto answer =
          answer_to(serial, object_of(message.payload), invitations, authority, broker, options.days, now());
      tell(serial, answer, as_json);
      centre.reply(mqtt::topics::provision_answer(serial), line_of(answer));
    }
  });
  std::fputs("achost-fleet: lets invited doors in; Ctrl-C ends\n", stderr);
  centre.wait_for_end();
  return cli::kDone;
}

}  // namespace fleet
