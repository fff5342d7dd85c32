// The check of hosts: silent in whole hosts, and in each broken one it names the clause that is broken.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "door/tests/process.h"
#include "host/check/clauses.h"
#include "refhost/tests/support.h"

namespace {

namespace fs = std::filesystem;
using achost::test::Result;
using testing::HasSubstr;
using testing::IsEmpty;

using Numbers = std::set<std::string>;

std::string text_of(const fs::path& file) {
  std::ifstream stream(file);
  EXPECT_TRUE(stream) << file;
  return {std::istreambuf_iterator<char>(stream), {}};
}

// What a run has found, as its JUnit file has it.
struct Findings {
  Result result;
  std::map<std::string, Numbers> by_kind;  // "" for a clause that holds
  std::size_t all = 0;
  Numbers broken() const { return of_kind("failure"); }
  Numbers left_out() const { return of_kind("skipped"); }
  Numbers unfinished() const { return of_kind("error"); }  // the process ended meanwhile

 private:
  Numbers of_kind(const std::string& kind) const {
    const auto found = by_kind.find(kind);
    return found == by_kind.end() ? Numbers() : found->second;
  }
};

// A directory of its own, where the example leaves its audit records.
class HostCheck : public testing::Test {
 protected:
  HostCheck() { fs::current_path(directory_.path()); }
  ~HostCheck() override { fs::current_path("/"); }

  // Several at once, with names of their own.
  Findings run(const std::string& name, std::vector<std::string> words, const std::string& end) const {
    const fs::path junit = directory_.path() / (name + ".xml");
    words.insert(words.begin(), {"HOSTCHECK_JUNIT=" + junit.string(), "HOSTCHECK_END=" + end});
    Findings findings;
    findings.result = achost::test::run_program(ENV, words);
    const std::string cases = text_of(junit);
    constexpr std::string_view kName = " name=\"";
    for (auto at = cases.find("<testcase "); at != std::string::npos; at = cases.find("<testcase ", at + 1)) {
      const auto name_begin = cases.find(kName, at) + kName.size();
      const auto number = cases.substr(name_begin, cases.find(' ', name_begin) - name_begin);
      const auto behind = cases.substr(cases.find('"', name_begin) + 1, 12);  // "/>", "><failure ..."
      ++findings.all;
      findings.by_kind[behind.starts_with("><") ? behind.substr(2, behind.find(' ') - 2) : ""].insert(number);
    }
    return findings;
  }

  Findings run_example(const std::string& name, const std::string& end) const {
    return run(name, {std::string(HOSTS) + "/" + name, std::string(EXAMPLE) + "/settings.conf", HOSTCHECK_SO}, end);
  }

  Findings run_achost(const std::string& end) const {
    return run("achost",
               {ACHOST, "run", "--simulate", "--interactive", "--temporary-state", "--watchdog-limit", "10", "--plugin",
                HOSTCHECK_SO},
               end);
  }

  refhost::test::TemporaryDirectory directory_;
};

TEST_F(HostCheck, FindsNothingInTheExample) {
  const auto findings = run_example("example-host", "return");
  EXPECT_THAT(findings.broken(), IsEmpty()) << findings.result.err;
  EXPECT_THAT(findings.unfinished(), IsEmpty());
  EXPECT_EQ(findings.left_out(), (Numbers{"7.2", "9.3", "9.4"}));
  EXPECT_GT(findings.all, 70U);
  EXPECT_EQ(findings.result.status, 1) << "the exit is the host's";
}

TEST_F(HostCheck, FindsNothingInTheExampleWhenRunThrows) {
  const auto findings = run_example("example-host", "throw");
  EXPECT_THAT(findings.broken(), IsEmpty()) << findings.result.err;
  EXPECT_THAT(findings.result.err, HasSubstr("the plug-in has ended: the examination is over"));
}

TEST_F(HostCheck, FindsNothingInTheExampleWhenInitRefuses) {
  const auto findings = run_example("example-host", "refuse");
  EXPECT_THAT(findings.broken(), IsEmpty()) << findings.result.err;
  EXPECT_THAT(findings.result.err, HasSubstr("the plug-in did not start: hostcheck was asked to refuse"));
}

TEST_F(HostCheck, FindsNothingInAchost) {
  const auto findings = run_achost("return");
  EXPECT_THAT(findings.broken(), IsEmpty()) << findings.result.err;
  EXPECT_THAT(findings.unfinished(), IsEmpty());
  EXPECT_EQ(findings.left_out(), (Numbers{"7.2", "9.3", "9.4"}));
  EXPECT_EQ(findings.result.status, 8) << "the exit is the host's";
}

TEST_F(HostCheck, FindsNothingInAchostWhenRunThrows) {
  const auto findings = run_achost("throw");
  EXPECT_THAT(findings.broken(), IsEmpty()) << findings.result.err;
  EXPECT_EQ(findings.result.status, 8);
}

TEST_F(HostCheck, FindsNothingInAchostWhenAThreadFallsSilent) {
  const auto findings = run_achost("silence");
  EXPECT_THAT(findings.broken(), IsEmpty()) << findings.result.err;
  EXPECT_EQ(findings.result.status, 7);
}

TEST_F(HostCheck, RefusesAnEndThatItDoesNotKnow) {
  const auto findings = run_example("example-host", "retrun");
  EXPECT_THAT(findings.result.err, HasSubstr("HOSTCHECK_END is \"retrun\": give return, throw, refuse or silence"));
}

TEST_F(HostCheck, SaysThatItsFileCannotBeWritten) {
  const auto result = achost::test::run_program(
      ENV, {"HOSTCHECK_JUNIT=/nowhere/findings.xml", "HOSTCHECK_END=refuse", std::string(HOSTS) + "/example-host",
            std::string(EXAMPLE) + "/settings.conf", HOSTCHECK_SO});
  EXPECT_THAT(result.err, HasSubstr("/nowhere/findings.xml cannot be written: set HOSTCHECK_JUNIT to a file"));
}

#ifdef BROKEN_HOSTS

// What stands behind a word at the beginning of a patch.
std::vector<std::string> words_behind(const std::string& word, const std::string& patch) {
  const std::string begin = "\n" + word + ": ";
  const auto at = patch.find(begin);
  if (at == std::string::npos) {
    return {};
  }
  const auto from = at + begin.size();
  std::istringstream line(patch.substr(from, patch.find('\n', from) - from));
  return {std::istream_iterator<std::string>(line), {}};
}

struct Broken {
  std::string name;
  std::vector<std::string> clauses;  // the one that it is made for first; the others may be found beside it
  std::string end = "return";
};

// Those that are made for a clause of that chapter.
std::vector<Broken> broken_hosts_of(char chapter) {
  std::vector<Broken> hosts;
  for (const std::string name : {BROKEN_HOSTS}) {
    const std::string patch = text_of(std::string(PATCHES) + "/" + name + ".patch");
    const auto end = words_behind("End", patch);
    Broken host{name, words_behind("Clauses", patch), end.empty() ? "return" : end.front()};
    if (!host.clauses.empty() && host.clauses.front().front() == chapter) {
      hosts.push_back(std::move(host));
    }
  }
  return hosts;
}

TEST(BrokenHost, ThereIsOneForEachClause) {
  Numbers broken;
  for (const char chapter : std::string("123456789")) {
    for (const auto& host : broken_hosts_of(chapter)) {
      broken.insert(host.clauses.front());
    }
  }
  for (const auto& clause : hostcheck::kClauses) {
    EXPECT_TRUE(broken.contains(std::string(clause.number))) << clause.number << ": " << clause.sentence;
  }
}

class BrokenHosts : public HostCheck, public testing::WithParamInterface<char> {};

// All at once: they wait for most of their time.
TEST_P(BrokenHosts, AreCaughtByTheClauseThatEachBreaks) {
  const auto hosts = broken_hosts_of(GetParam());
  ASSERT_THAT(hosts, testing::Not(IsEmpty()));
  std::vector<std::future<Findings>> runs;
  for (const auto& host : hosts) {
    runs.push_back(std::async(std::launch::async, [&] { return run_example("broken-" + host.name, host.end); }));
  }
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    const auto findings = runs[i].get();
    SCOPED_TRACE(hosts[i].name + ":\n" + findings.result.err);
    EXPECT_TRUE(findings.broken().contains(hosts[i].clauses.front())) << hosts[i].clauses.front();
    EXPECT_THAT(findings.broken(), testing::IsSubsetOf(hosts[i].clauses));
    EXPECT_THAT(findings.result.err, HasSubstr("hostcheck: clause " + hosts[i].clauses.front() + ": "));
  }
}

INSTANTIATE_TEST_SUITE_P(Chapter, BrokenHosts, testing::Range('1', ':'),
                         [](const auto& chapter) { return std::string(1, chapter.param); });

#endif

}  // namespace
