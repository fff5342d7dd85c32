#include "gateway/mqtt/options.h"

#include <charconv>
#include <fstream>
#include <map>
#include <system_error>

#include "cli/failure.h"
#include "gateway/mqtt/topics.h"

namespace mqtt {
namespace {

constexpr std::uint16_t kPlainPort = 1883;

[[noreturn]] void complain(const std::string& text) { throw cli::Failure(cli::kUsage, text); }

std::string trimmed(const std::string& text) {
  const auto begin = text.find_first_not_of(" \t\r");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

void take_option(const std::string& key, const std::string& value, const std::string& where, Options& options) {
  const std::map<std::string, std::string*> texts = {{"door", &options.door},
                                                     {"broker", &options.broker},
                                                     {"ca", &options.files.ca},
                                                     {"certificate", &options.files.certificate},
                                                     {"key", &options.files.key}};
  if (const auto found = texts.find(key); found != texts.end()) {
    *found->second = found->second->empty() ? value : *found->second;
  } else if (key == "discovery" && (value == "true" || value == "false")) {
    options.discovery = options.discovery || value == "true";
  } else {
    complain(where + ": \"" + key + "=" + value +
             "\" is no option: there are door, broker, ca, certificate, key, and discovery (true or false)");
  }
}

std::uint16_t port_of(const std::string& text, const std::string& broker) {
  std::uint16_t port = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (failure != std::errc() || end != text.data() + text.size() || port == 0) {
    complain("\"" + broker + "\" is no broker: give HOST or HOST:PORT, such as broker.example:8883");
  }
  return port;
}

}  // namespace

void read_options(const std::filesystem::path& file, Options& options) {
  std::ifstream lines(file);
  if (!lines) {
    complain("cannot read " + file.string() + ": give --config, or --door and --broker; achost-mqtt join makes it");
  }
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    line = trimmed(line);
    if (line.empty() || line.front() == '#') {
      continue;
    }
    const auto equals = line.find('=');
    const std::string where = file.string() + " line " + std::to_string(number);
    if (equals == std::string::npos) {
      complain(where + ": \"" + line + "\" is no KEY=VALUE");
    }
    take_option(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)), where, options);
  }
}

Place place_of(const Options& options) {
  if (!topics::is_id(options.door)) {
    complain("\"" + options.door + "\" is no door's name: give --door, 1 to 64 of a-z, 0-9 and -");
  }
  if (options.files.certificate.empty() != options.files.key.empty()) {
    complain("a certificate and its key go together: give both --certificate and --key");
  }
  if (options.files.ca.empty() && !options.without_tls) {
    complain(
        "without TLS everybody on the way may open the door: give --ca, or --without-tls for a broker on this machine");
  }
  Place place{.host = options.broker, .client = options.door, .files = options.files};
  place.port = options.files.ca.empty() ? kPlainPort : place.port;
  if (const auto colon = options.broker.rfind(':'); colon != std::string::npos) {
    place.host = options.broker.substr(0, colon);
    place.port = port_of(options.broker.substr(colon + 1), options.broker);
  }
  if (place.host.size() > 1 && place.host.front() == '[' && place.host.back() == ']') {
    place.host = place.host.substr(1, place.host.size() - 2);
  }
  if (place.host.empty()) {
    complain("which broker? Give --broker HOST:PORT");
  }
  return place;
}

}  // namespace mqtt
