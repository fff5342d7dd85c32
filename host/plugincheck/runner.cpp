#include "runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <system_error>

#include "uhfsim/descriptor.h"

namespace plugincheck {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t kAtOnce = 4;
constexpr std::chrono::seconds kLongestScene{45};

// What leaves nothing to examine.
constexpr auto kNeeded = std::to_array<std::string_view>({"1.1", "1.2", "2.1", "2.2", "2.7"});

volatile sig_atomic_t is_interrupted = 0;

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

// A scene under way.
class Child {
 public:
  Child(const Scene& scene, const RunnerOptions& options, Report& report);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  int descriptor() const { return notes_.get(); }

  // Take what it has told; false at its end, which is judged.
  bool take();

  // Kill it when it has taken too long.
  void check(steady_clock::time_point now);

  bool leaves_something() const { return !has_failed_; }

 private:
  void start(const RunnerOptions& options, int notes);
  void take_line(const std::string& line);
  void blame(const std::string& text);
  void judge_end();

  const Scene& scene_;
  Report& report_;
  const steady_clock::time_point deadline_ = steady_clock::now() + kLongestScene;
  uhfsim::Descriptor notes_;
  pid_t pid_ = -1;
  std::string pending_;
  std::vector<std::string> current_;  // clauses under examination
  std::string last_words_;
  bool is_done_ = false;
  bool is_late_ = false;
  bool has_failed_ = false;
};

Child::Child(const Scene& scene, const RunnerOptions& options, Report& report) : scene_(scene), report_(report) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    fail("a pipe");
  }
  notes_ = uhfsim::Descriptor(ends[0]);
  const uhfsim::Descriptor writer(ends[1]);
  for (const auto id : scene.clauses) {
    current_.emplace_back(id.clause().number);
    report_.examined(current_.back());
  }
  start(options, writer.get());
}

void Child::start(const RunnerOptions& options, int notes) {
  constexpr int kNotes = 3;  // of the child
  auto arguments = options.under;
  const bool is_plain = arguments.empty();
  if (!is_plain) {  // which has a /proc/self/exe of its own
    arguments.push_back(std::filesystem::read_symlink("/proc/self/exe"));
  }
  arguments.insert(arguments.end(), options.arguments.begin() + (is_plain ? 0 : 1), options.arguments.end());
  const auto directory = options.directory / scene_.name;
  std::filesystem::create_directory(directory);
  arguments.insert(arguments.end(),
                   {"--scene", scene_.name, "--notes", std::to_string(kNotes), "--directory", directory});
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (auto& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!options.shows_output) {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, notes, kNotes);
  const char* const program = is_plain ? "/proc/self/exe" : words.front();
  const int error = posix_spawnp(&pid_, program, &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    errno = error;
    fail("starting a scene");
  }
}

Child::~Child() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

bool Child::take() {
  std::array<char, 4096> bytes;
  const auto count = read(notes_.get(), bytes.data(), bytes.size());
  if (count <= 0) {
    judge_end();
    return false;
  }
  pending_.append(bytes.data(), static_cast<std::size_t>(count));
  for (std::size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1)) {
    take_line(pending_.substr(0, end));
  }
  return true;
}

void Child::take_line(const std::string& line) {
  const auto words = words_of(line);
  if (words.empty()) {
    return;
  }
  const auto& what = words.front();
  if (what == "done") {
    is_done_ = true;
  } else if (what == "ended") {
    last_words_ = line.substr(what.size() + 1);
  } else if (what == "examine" || what == "look-at") {
    if (what == "examine") {
      current_.assign(words.begin() + 1, words.end());
    }
    std::for_each(words.begin() + 1, words.end(), [this](const auto& number) { report_.examined(number); });
  } else if (words.size() > 2) {
    const auto text = line.substr(what.size() + words[1].size() + 2);
    what == "found" ? report_.found(words[1], text) : report_.left_out(words[1], text);
    has_failed_ = has_failed_ || (what == "found" && std::ranges::find(kNeeded, words[1]) != kNeeded.end());
  }
}

void Child::check(steady_clock::time_point now) {
  if (now > deadline_ && !is_late_) {
    is_late_ = true;
    kill(pid_, SIGKILL);
  }
}

// The scene's name lets a person play it alone.
void Child::blame(const std::string& text) {
  has_failed_ = true;
  for (const auto& number : current_) {
    report_.found(number, text + " (scene " + scene_.name + ")");
  }
}

void Child::judge_end() {
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  if (is_late_) {
    blame("it came to no end within " + std::to_string(kLongestScene.count()) + " s");
  } else if (!last_words_.empty()) {
    blame("the process was ended by " + last_words_);
  } else if (WIFSIGNALED(status)) {
    blame("the process was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
          ")");
  } else if (!is_done_) {
    blame("the process exited with status " + std::to_string(WEXITSTATUS(status)));
  }
}

// One act.
class Act {
 public:
  Act(std::vector<const Scene*> scenes, const RunnerOptions& options, Report& report)
      : scenes_(std::move(scenes)), options_(options), report_(report) {}

  // False when it leaves nothing for the next, or the end is asked for.
  bool play() {
    while (is_interrupted == 0 && (next_ < scenes_.size() || !children_.empty())) {
      for (; next_ < scenes_.size() && children_.size() < kAtOnce; ++next_) {
        children_.push_back(std::make_unique<Child>(*scenes_[next_], options_, report_));
      }
      step();
    }
    return is_interrupted == 0 && leaves_something_;
  }

 private:
  void step() {
    constexpr int kLook = 200;  // ms
    std::vector<pollfd> awaited;
    for (const auto& child : children_) {
      awaited.push_back({child->descriptor(), POLLIN, 0});
    }
    if (poll(awaited.data(), awaited.size(), kLook) < 0 && errno != EINTR) {
      fail("waiting for a scene");
    }
    const auto now = steady_clock::now();
    for (std::size_t i = awaited.size(); i-- > 0;) {
      children_[i]->check(now);
      if (awaited[i].revents != 0 && !children_[i]->take()) {
        leaves_something_ = leaves_something_ && children_[i]->leaves_something();
        children_.erase(children_.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
  }

  const std::vector<const Scene*> scenes_;
  const RunnerOptions& options_;
  Report& report_;
  std::size_t next_ = 0;
  std::vector<std::unique_ptr<Child>> children_;
  bool leaves_something_ = true;
};

// What a thread has freed and keeps for itself would look like memory that it holds.
void keep_no_freed_memory() { setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1); }

}  // namespace

bool play_all(const std::vector<Scene>& scenes, Level level, const RunnerOptions& options, Report& report) {
  struct sigaction action {};
  action.sa_handler = [](int) { is_interrupted = 1; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  keep_no_freed_memory();
  for (const auto act : {Scene::Act::loading, Scene::Act::starting, Scene::Act::playing}) {
    std::vector<const Scene*> played;
    for (const auto& scene : scenes) {
      if (scene.act == act && (level == Level::uhf || scene.level == Level::contract)) {
        played.push_back(&scene);
      }
    }
    if (!Act(std::move(played), options, report).play()) {
      break;
    }
  }
  return is_interrupted == 0;
}

}  // namespace plugincheck
