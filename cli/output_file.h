// Files that a command writes because a person named them.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace achost {

// A file that cannot be written; what() names it and says why.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A file under way. What is no regular file (/dev/null, a terminal, a pipe) is written to as it stands. Nobody who may
// write the directory can lead the writing elsewhere: a new file is made where none is, under a name that nobody can
// guess where it is not the wanted one, and another user's symbolic link is refused.
class OutputFile {
 public:
  enum class Form {
    whole,    // takes its place, also another's, when it is closed, and is not seen before
    growing,  // stands in its place from the beginning, where nothing may be
  };

  // All throw OutputError.
  OutputFile(const std::filesystem::path& path, Form form);
  void write(std::string_view text);
  void close();  // what is not closed is no file, or ends somewhere when it grows

  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

 private:
  [[noreturn]] void fail(const std::string& reason) const;
  void open_as(const std::filesystem::path& place, int flags);
  void refuse_foreign_link() const;
  void open_special();
  void open_growing();
  void open_whole();
  void take_place();

  const std::filesystem::path path_;  // as it was named
  std::filesystem::path place_;       // where it is to stand
  std::filesystem::path under_way_;   // where it is until then; empty when it is there, or nowhere
  int fd_ = -1;
};

}  // namespace achost
