// plugincheck FILE: examines a plug-in from outside.
#include <sys/prctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>
#include <random>

#include "cli/command_line.h"
#include "cli/failure.h"
#include "cli/output_file.h"
#include "cli/program.h"
#include "notes.h"
#include "report.h"
#include "runner.h"
#include "scenes.h"
#include "version.h"

namespace plugincheck {
namespace {

struct CommandLine {
  Plan plan;
  std::string level = "contract";
  std::optional<std::uint64_t> seed;
  std::optional<std::string> junit;
  std::string under;                 // words of a command
  std::optional<std::string> scene;  // of a child, or of a person who looks for one thing
  std::optional<int> notes;          // of a child
  bool is_verbose = false;
};

const Scene* scene_of(const std::vector<Scene>& scenes, const std::string& name) {
  const auto found = std::ranges::find(scenes, name, &Scene::name);
  return found == scenes.end() ? nullptr : &*found;
}

// In the child: the scene, and then the end, whatever threads there are.
[[noreturn]] void play(const Scene& scene, CommandLine& line) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  Notes::to(*line.notes);
  line.plan.seed = line.seed.value_or(1) ^ std::hash<std::string>()(scene.name);
  scene.play(line.plan);
  Notes::end();
}

// A directory that goes with the check.
class Workplace {
 public:
  Workplace() {
    std::string name = std::filesystem::temp_directory_path() / "plugincheck-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), "no directory can be made below " + name);
    }
    path_ = name;
  }
  ~Workplace() {
    std::error_code ignored;  // what cannot go stays
    std::filesystem::remove_all(path_, ignored);
  }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

void write_junit(const std::string& path, const Report& report) {
  achost::OutputFile file(path, achost::OutputFile::Form::whole);
  file.write(report.junit());
  file.close();
}

std::vector<std::string> arguments_of(const CommandLine& line) {
  std::vector<std::string> arguments = {"plugincheck", line.plan.file, "--level",
                                        line.level,    "--seed",       std::to_string(*line.seed)};
  for (const auto& setting : line.plan.settings) {
    arguments.insert(arguments.end(), {"--set", setting});
  }
  return arguments;
}

int examine(CommandLine& line) {
  auto scenes = all_scenes();
  if (line.scene) {
    const auto* const wanted = scene_of(scenes, *line.scene);
    if (wanted == nullptr) {
      throw cli::Failure(cli::kUsage, "there is no scene " + *line.scene + "; a finding names its own");
    }
    if (line.notes) {
      play(*wanted, line);
    }
    scenes = {*wanted};
  }
  if (!line.seed) {
    line.seed = std::random_device()();
  }
  std::cerr << "plugincheck: " << line.plan.file << ", --level " << line.level << " --seed " << *line.seed << std::endl;
  const Workplace workplace;
  Report report(line.plan.level);
  if (!play_all(scenes, line.plan.level,
                {arguments_of(line), CLI::detail::split_up(line.under), workplace.path(), line.is_verbose}, report)) {
    throw cli::Failure(cli::kFailed, "ended by a signal before all was examined");
  }
  report.tell(std::cerr, !line.scene);
  if (line.junit) {
    write_junit(*line.junit, report);
  }
  return report.is_whole() ? cli::kDone : cli::kFailed;
}

constexpr const char* kFooter =
    "The plug-in is run in processes of its own, with a host, settings and a simulated reader that are made for it: "
    "what ends or\n"
    "hangs it is a finding. Its settings are those of achost; --set gives others. What was found goes to standard "
    "error, a line\n"
    "each, with the number of the clause that is broken. It calls what the plug-in calls: a plug-in that runs commands "
    "runs them.\n"
    "\nExit status: 0 nothing was found, 1 something was found, or the check failed, 2 wrong usage.";

cli::Manual manual() {
  return {.examples = {{"plugincheck ./my.so", "Whether it keeps the contract of host/include."},
                       {"plugincheck /usr/lib/uhf/uhf.so --level uhf --junit report.xml",
                        "Whether it does all that uhf.so does, with a report for a build server."},
                       {"plugincheck ./my.so --seed 7 --scene odd-messages --verbose",
                        "One scene once more, with what the plug-in says."}},
          .files = {{"plugincheck-XXXXXX",
                     "In the directory for temporary files (TMPDIR): the host's own, until the end."}},
          .environment = {},
          .offers = {{"", "--level", {"contract", "uhf"}}}};
}

void add_options(CLI::App& app, CommandLine& line) {
  app.footer(kFooter);
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  app.add_option("FILE", line.plan.file, "The plug-in")->required()->type_name("");
  app.add_option("--level", line.level,
                 "contract: what host/include says; uhf: what uhf.so does, too (default: contract)")
      ->type_name("LEVEL")
      ->check(cli::one_of({"contract", "uhf"}));
  app.add_option("--seed", line.seed, "Seed of all chance, to repeat an examination (default: another each time)")
      ->type_name("N");
  app.add_option("--set", line.plan.settings, "A setting that the plug-in needs (may be given again)")
      ->type_name("SECTION.KEY=VALUE")
      ->expected(1)
      ->take_all()
      ->check([](const std::string& text) {
        const auto dot = text.find('.');
        const auto equals = text.find('=');
        const bool is_good = dot != 0 && dot != std::string::npos && equals != std::string::npos && equals > dot + 1;
        return is_good ? std::string() : "\"" + text + "\" is not SECTION.KEY=VALUE";
      });
  app.add_option("--junit", line.junit, "Write a report for build servers, too")->type_name("PATH");
  app.add_option("--under", line.under, "Start each scene under this command, such as an emulator")
      ->type_name("COMMAND");
  app.add_option("--scene", line.scene, "Play this scene alone, which a finding names")->type_name("NAME");
  app.add_flag("--verbose", line.is_verbose, "Show what the plug-in and the host say");
  app.add_option("--notes", line.notes)->group("");
  app.add_option("--directory", line.plan.directory)->group("");
}

int run(int argc, char** argv) {
  CommandLine line;
  CLI::App app("Examines a plug-in from outside, clause by clause.", "plugincheck");
  cli::set_up_help(app);
  add_options(app, line);
  if (!cli::read_command_line(app, manual(), argc, argv)) {
    return cli::kDone;
  }
  line.level = CLI::detail::to_lower(line.level);
  line.plan.level = line.level == "uhf" ? Level::uhf : Level::contract;
  if (!std::filesystem::is_regular_file(line.plan.file)) {
    throw cli::Failure(cli::kUsage, "there is no file " + line.plan.file + "; give the path of a plug-in");
  }
  line.plan.file = std::filesystem::absolute(line.plan.file);
  return examine(line);
}

}  // namespace
}  // namespace plugincheck

int main(int argc, char** argv) {
  return cli::explained("plugincheck", [=] { return plugincheck::run(argc, argv); });
}
