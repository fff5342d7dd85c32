#include "gateway/web/options.h"

#include <boost/asio/ip/address.hpp>
#include <charconv>
#include <optional>
#include <system_error>

#include "cli/failure.h"

namespace web {
namespace {

using boost::asio::ip::tcp;

[[noreturn]] void complain(const std::string& text) { throw cli::Failure(cli::kUsage, text); }

std::optional<unsigned short> port_of(const std::string& text) {
  unsigned short port = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
  return failure == std::errc() && end == text.data() + text.size() ? std::optional(port) : std::nullopt;
}

std::string bracketed(const boost::asio::ip::address& address) {
  return address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
}

}  // namespace

tcp::endpoint place_of(const Options& options) {
  const auto colon = options.listen.rfind(':');
  std::string host = options.listen.substr(0, colon);
  if (host.size() > 1 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  boost::system::error_code failure;
  const auto address = boost::asio::ip::make_address(host, failure);
  const auto port = colon == std::string::npos ? std::nullopt : port_of(options.listen.substr(colon + 1));
  if (failure || !port.has_value()) {
    complain("\"" + options.listen + "\" is no address and port: give --listen 127.0.0.1:8080, say, or [::]:8443");
  }
  if (options.certificate.empty() != options.key.empty()) {
    complain("a certificate and its key go together: give both --certificate and --key");
  }
  if (!address.is_loopback() && options.certificate.empty()) {
    complain("others can reach " + options.listen +
             ", and would read what goes there: give --certificate and --key, or listen at 127.0.0.1");
  }
  return {address, *port};
}

std::vector<std::string> names_of(const Options& options) {
  std::vector<std::string> names = options.names;
  const auto address = place_of(options).address();
  if (address.is_loopback()) {
    names.insert(names.end(), {"localhost", "127.0.0.1", "[::1]"});
  } else if (!address.is_unspecified()) {
    names.push_back(bracketed(address));
  }
  if (names.empty()) {
    complain("nobody can tell by which name " + options.listen + " is reached: give --name, such as --name door.local");
  }
  return names;
}

std::string base_of(const Options& options, unsigned short port) {
  return (options.certificate.empty() ? "http://" : "https://") + names_of(options).front() + ":" +
         std::to_string(port);
}

}  // namespace web
