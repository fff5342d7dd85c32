#include "gateway/web/run.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "cli/failure.h"
#include "gateway/base/state_file.h"
#include "gateway/web/server.h"

namespace web {
namespace {

constexpr const char* kPlaceFile = "place";  // where it serves, for `achost-web link`

std::optional<net::ssl::context> safety_of(const Options& options) {
  std::optional<net::ssl::context> safety;
  if (options.certificate.empty()) {
    return safety;
  }
  safety.emplace(net::ssl::context::tls_server);
  safety->set_options(net::ssl::context::default_workarounds | net::ssl::context::no_tlsv1 |
                      net::ssl::context::no_tlsv1_1);
  boost::system::error_code failure;
  safety->use_certificate_chain_file(options.certificate, failure);
  if (failure) {
    throw cli::Failure(cli::kUsage, "cannot use the certificate " + options.certificate + ": " + failure.message());
  }
  safety->use_private_key_file(options.key, net::ssl::context::pem, failure);
  if (failure) {
    throw cli::Failure(cli::kUsage, "cannot use the key " + options.key + ": " + failure.message());
  }
  return safety;
}

std::string link_at(const std::string& base, Access& access, Role role, const std::string& name) {
  return base + "/#" + access.make_link(role, now(), name);
}

void tell(const std::string& text) { std::fprintf(stderr, "achost-web: %s\n", text.c_str()); }

}  // namespace

std::string link_text(const std::filesystem::path& state, Access& access, Role role, const std::string& name) {
  std::ifstream file(state / kPlaceFile);
  std::string base;
  if (!std::getline(file, base)) {
    throw cli::Failure(cli::kFailed, "nobody serves with " + state.string() +
                                         " yet: start achost-web first (systemctl start achost-web)");
  }
  return link_at(base, access, role, name);
}

void run(const Options& options) {
  const auto place = place_of(options);
  const auto names = names_of(options);
  auto safety = safety_of(options);
  Access access(options.state);
  net::io_context context(1);
  gateway::Daemon daemon(context, options.daemon);
  Live live(context, daemon);
  Traffic traffic(context, daemon);
  Field field(context, daemon);
  Site site(context, access, live, traffic, field, daemon, names);
  Server server(context, site, place, safety.has_value() ? &*safety : nullptr);
  net::signal_set signals(context, SIGINT, SIGTERM);
  signals.async_wait([&context](const boost::system::error_code&, int) { context.stop(); });
  const std::string base = base_of(options, server.place().port());
  tell("serves at " + base + "; Ctrl-C ends");
  if (access.is_new()) {
    tell("the first link, for 15 minutes: " + link_at(base, access, Role::admin, "the installer"));
  }
  gateway::replace_file(options.state / kPlaceFile, base + "\n");
  net::co_spawn(context, live.tell_status(), net::detached);
  net::co_spawn(context, live.tell_entries(), net::detached);
  net::co_spawn(context, field.tell(), net::detached);
  net::co_spawn(context, traffic.tell_messages(), net::detached);
  net::co_spawn(context, traffic.tell_frames(), net::detached);
  net::co_spawn(context, server.accept_all(), net::detached);
  context.run();
}

}  // namespace web
