#include "cli/output_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "refhost/tests/support.h"

namespace achost::test {
namespace {

using refhost::test::content_of;
using refhost::test::failure_of;
using Form = OutputFile::Form;

class Output : public testing::Test {
 protected:
  std::filesystem::path file(const std::string& name) const { return directory_.path() / name; }

  static void write(const std::filesystem::path& place, const std::string& text, Form form = Form::whole) {
    OutputFile out(place, form);
    out.write(text);
    out.close();
  }

  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

 private:
  refhost::test::TemporaryDirectory directory_;
};

TEST_F(Output, AWholeFileTakesItsPlaceWhenItIsClosed) {
  std::ofstream(file("a")) << "before";
  {
    OutputFile out(file("a"), Form::whole);
    out.write("after");
    EXPECT_EQ(content_of(file("a")), "before");
    out.close();
  }
  EXPECT_EQ(content_of(file("a")), "after");
  EXPECT_THAT(names(), testing::ElementsAre("a"));
}

TEST_F(Output, AFileThatIsGivenUpLeavesTheOneBefore) {
  std::ofstream(file("a")) << "before";
  OutputFile(file("a"), Form::whole).write("after");
  EXPECT_EQ(content_of(file("a")), "before");
  EXPECT_THAT(names(), testing::ElementsAre("a"));
}

TEST_F(Output, AFileStaysAsPrivateAsTheOneBefore) {
  std::ofstream(file("a")) << "before";
  std::filesystem::permissions(file("a"), std::filesystem::perms(0600));
  write(file("a"), "after");
  EXPECT_EQ(std::filesystem::status(file("a")).permissions(), std::filesystem::perms(0600));
}

TEST_F(Output, ADeviceIsWrittenToAndStays) {
  ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
  const int reader = open(file("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  for (const Form form : {Form::whole, Form::growing}) {
    write(file("pipe"), "text", form);
    std::string text(10, '\0');
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(read(reader, text.data(), text.size()), 0)));
    EXPECT_EQ(text, "text");
  }
  close(reader);
  EXPECT_TRUE(std::filesystem::is_fifo(file("pipe")));
  write("/dev/null", "text");
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  EXPECT_EQ(failure_of([] { write("/dev/full", "text"); }), "cannot write /dev/full: No space left on device");
}

TEST_F(Output, OnesOwnLinkIsFollowedAndStays) {
  std::ofstream(file("a")) << "before";
  std::filesystem::create_symlink("a", file("link"));
  write(file("link"), "after");
  EXPECT_TRUE(std::filesystem::is_symlink(file("link")));
  EXPECT_EQ(content_of(file("a")), "after");
}

TEST_F(Output, AnotherUsersLinkIsRefused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give links away";
  }
  std::ofstream(file("a")) << "before";
  std::filesystem::create_symlink("a", file("link"));
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(lchown(file("link").c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(failure_of([&] { write(file("link"), "after"); }),
            "cannot write " + file("link").string() +
                ": it is a symbolic link of another user's; name the file that it leads to");
  EXPECT_EQ(content_of(file("a")), "before");
}

TEST_F(Output, AGrowingFileIsSeenAndIsWrittenOverNothing) {
  OutputFile out(file("a"), Form::growing);
  out.write("begun");
  EXPECT_EQ(content_of(file("a")), "begun");
  EXPECT_EQ(failure_of([&] { OutputFile(file("a"), Form::growing); }),
            file("a").string() + " is there already: give another name, or remove it");
}

TEST_F(Output, AGrowingFileGoesThroughNoLink) {
  std::filesystem::create_symlink(file("elsewhere"), file("a"));
  EXPECT_EQ(failure_of([&] { OutputFile(file("a"), Form::growing); }),
            "cannot write " + file("a").string() + ": File exists");
  EXPECT_FALSE(std::filesystem::exists(file("elsewhere")));
}

TEST_F(Output, ADirectoryThatIsMissingIsAnError) {
  EXPECT_EQ(failure_of([&] { write(file("no/a"), ""); }),
            "cannot write " + file("no/a").string() + ": No such file or directory");
}

}  // namespace
}  // namespace achost::test
