#include "cli/paragraph.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <sstream>

namespace cli {

std::string wrapped(const std::string& text, std::size_t indent, std::size_t width) {
  std::istringstream words(text);
  std::string lines;
  std::size_t column = indent;
  for (std::string word; words >> word;) {
    if (column > indent && column + 1 + word.size() > width) {
      lines += "\n" + std::string(indent, ' ');
      column = indent;
    }
    lines += (column > indent ? " " : "") + word;
    column += word.size() + (column > indent ? 1 : 0);
  }
  return lines;
}

std::size_t terminal_width() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace cli
