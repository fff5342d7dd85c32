// achost-web, the page and the figures of a door. The command line.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "cli/command_line.h"
#include "cli/failure.h"
#include "cli/program.h"
#include "gateway/base/state_file.h"
#include "gateway/web/access.h"
#include "gateway/web/manual.h"
#include "gateway/web/run.h"
#include "version.h"

namespace {

constexpr const char* kProgram = "achost-web";
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
    options.state = gateway::own_state(kProgram, options.state);
    options.daemon = gateway::daemons_state(options.daemon);
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
    const auto state = gateway::own_state(kProgram, words.options.state);
    web::Access access(state);
    std::puts(web::link_text(state, access, *web::role_of(words.role), words.name).c_str());
  });
  CLI::App& key = *app.add_subcommand("key", "Print a key with which a program may read /metrics");
  key.callback([&options] { std::puts(web::Access(gateway::own_state(kProgram, options.state)).make_key().c_str()); });
  CLI::App& forget = *app.add_subcommand("forget", "End all sessions, links and keys");
  forget.callback([&options] { web::Access(gateway::own_state(kProgram, options.state)).forget(); });
  for (CLI::App* const command : {&link, &key, &forget}) {
    add_state(*command, options);
  }
}

int run_command_line(int argc, char** argv) {
  Words words;
  CLI::App app("The page and the figures of a door, for browsers and for monitoring.", kProgram);
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
  return cli::explained(kProgram, [=] { return run_command_line(argc, argv); });
}
