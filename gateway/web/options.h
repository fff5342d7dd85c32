// How achost-web is to run.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <filesystem>
#include <string>
#include <vector>

namespace web {

struct Options {
  std::string listen = "127.0.0.1:8080";
  std::vector<std::string> names;  // beside those of the address itself
  std::string certificate;         // PEM files; empty: no TLS
  std::string key;
  std::filesystem::path state;   // this program's own
  std::filesystem::path daemon;  // the daemon's
};

// Throws cli::Failure (kUsage) for what is no address, and for one that others reach while there is no certificate.
boost::asio::ip::tcp::endpoint place_of(const Options& options);

// What a browser's address line may have there.
std::vector<std::string> names_of(const Options& options);

// "https://door.local:8443".
std::string base_of(const Options& options, unsigned short port);

}  // namespace web
