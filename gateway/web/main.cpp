// achost-web, the page and the figures of a door. The command line.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "cli/command_line.h"
#include "cli/failure.h"
#include "cli/program.h"
#include "gateway/web/access.h"
#include "gateway/web/manual.h"
#include "gateway/web/run.h"
#include "version.h"

namespace {

constexpr const char* kStatuses =
    "Exit status:\n"
    "  0  done; also ended by Ctrl-C or SIGTERM\n"
    "  1  the operation failed\n"
    "  2  wrong usage";

struct Words {
  web::Options options;
  std::string role = "admin";
  std::string name;
};

std::string from_environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::filesystem::path own_state(const std::filesystem::path& given) {
  if (!given.empty()) {
    return given;
  }
  if (geteuid() == 0) {
    return "/var/lib/achost-web";
  }
  return std::filesystem::path(from_environment("HOME")) / ".local/state/achost-web";
}

std::filesystem::path daemons_state(const std::filesystem::path& given) {
  const std::string usual = from_environment("ACHOST_STATE");
  return !given.empty() ? given : !usual.empty() ? std::filesystem::path(usual) : "/var/lib/achost";
}

void add_state(CLI::App& command, web::Options& options) {
  command
      .add_option("--state", options.state,
                  "Directory of who may get in (default: /var/lib/achost-web for root, else ~/.local/state/achost-web)")
      ->type_name("DIR");
}

void add_run(CLI::App& app, web::Options& options) {
  CLI::App& run = *app.add_subcommand("run", "Serve the page and the figures");
  run.add_option("--listen", options.listen, "Where; other than this machine's own addresses only with a certificate")
      ->type_name("ADDRESS:PORT")
      ->capture_default_str();
  run.add_option("--name", options.names, "A name by which it is reached, such as door.local; may be repeated")
      ->type_name("NAME")
      ->take_all()
      ->expected(1);
  run.add_option("--certificate", options.certificate, "The certificate for TLS, PEM")->type_name("FILE");
  run.add_option("--key", options.key, "Its key, PEM")->type_name("FILE");
  run.add_option("--host-state", options.daemon,
                 "State directory of the door daemon (default: $ACHOST_STATE, else /var/lib/achost)")
      ->type_name("DIR");
  add_state(run, options);
  run.footer(kStatuses);
  run.callback([&options] {
    options.state = own_state(options.state);
    options.daemon = daemons_state(options.daemon);
    web::run(options);
  });
}

void add_access(CLI::App& app, Words& words) {
  web::Options& options = words.options;
  CLI::App& link = *app.add_subcommand("link", "Print a link that lets somebody in, once, within 15 minutes");
  link.add_option("--role", words.role, "What he may do")
      ->type_name("admin|view")
      ->capture_default_str()
      ->check(cli::one_of({"admin", "view"}));
  link.add_option("--for", words.name, "Who he is: the journal keeps it with what he does")
      ->type_name("NAME")
      ->check([](const std::string& name) { return name.size() <= 40 ? "" : "a name has at most 40 bytes"; });
  link.callback([&words] {
    web::Access access(own_state(words.options.state));
    std::puts(web::link_text(own_state(words.options.state), access, *web::role_of(words.role), words.name).c_str());
  });
  CLI::App& key = *app.add_subcommand("key", "Print a key with which a program may read /metrics");
  key.callback([&options] { std::puts(web::Access(own_state(options.state)).make_key().c_str()); });
  CLI::App& forget = *app.add_subcommand("forget", "End all sessions, links and keys");
  forget.callback([&options] { web::Access(own_state(options.state)).forget(); });
  for (CLI::App* const command : {&link, &key, &forget}) {
    add_state(*command, options);
  }
}

int run_command_line(int argc, char** argv) {
  Words words;
  CLI::App app("The page and the figures of a door, for browsers and for monitoring.", "achost-web");
  cli::set_up_help(app);
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  app.require_subcommand(1);
  add_run(app, words.options);
  add_access(app, words);
  app.footer(kStatuses);
  cli::read_command_line(app, web::manual(), argc, argv);
  return cli::kDone;
}

}  // namespace

int main(int argc, char** argv) {
  umask(077);
  std::signal(SIGPIPE, SIG_IGN);
  return cli::explained("achost-web", [=] { return run_command_line(argc, argv); });
}
