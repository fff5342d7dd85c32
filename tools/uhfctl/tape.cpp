// Recording the line, playing a recording, and telling what is in one.
#include <poll.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <thread>

#include "commands.h"
#include "failure.h"
#include "frame_scan.h"
#include "player.h"
#include "recording.h"
#include "terminal.h"
#include "uhfsim/pty_link.h"
#include "uhfsim/text.h"

namespace uhfctl {

namespace {

// Hands each piece of the answer over at its time, until it is over.
void play(uhfsim::PtyLink& link, const std::vector<Piece>& pieces, const Duration& duration) {
  const auto begin = Clock::now();
  for (const auto& piece : pieces) {
    for (Clock::duration left = piece.at; left > Clock::duration(0); left = piece.at - (Clock::now() - begin)) {
      if (duration.is_over()) {
        return;
      }
      std::this_thread::sleep_for(std::min<Clock::duration>(left, std::chrono::milliseconds(50)));
    }
    link.write(piece.bytes);
  }
}

// A desk's reader that has nothing but a recording.
class Tape {
 public:
  explicit Tape(const std::string& file) : player_(read_recording(file)) {}

  const std::string& path() const { return link_.path(); }

  // Answers what comes within a moment.
  void serve(const Duration& duration) {
    pollfd line{.fd = link_.fd(), .events = POLLIN, .revents = 0};
    const bool is_quiet = ::poll(&line, 1, 100) == 0;
    const auto bytes = link_.read();
    received_.insert(received_.end(), bytes.begin(), bytes.end());
    // After a pause no more of a command comes.
    const auto [found, rest] = scan(received_, is_quiet);
    for (const auto& item : found) {
      if (!duration.is_over()) {
        take({received_.begin() + static_cast<std::ptrdiff_t>(item.offset),
              received_.begin() + static_cast<std::ptrdiff_t>(item.offset + item.size)},
             item, duration);
      }
    }
    received_.erase(received_.begin(), received_.end() - static_cast<std::ptrdiff_t>(rest));
  }

 private:
  void take(const std::vector<unsigned char>& bytes, const Scanned& item, const Duration& duration) {
    if (item.frame == nullptr) {
      note("no command, left unanswered: " + uhfsim::hex_of(bytes) + " (" + item.problem + ")");
      return;
    }
    const auto answer = player_.answer_to(bytes);
    if (!answer.recorded && told_.insert(bytes).second) {
      note("not in the recording, answered as a plain reader does: " + describe(*item.frame));
    }
    play(link_, answer.pieces, duration);
  }

  Player player_;
  uhfsim::PtyLink link_;
  std::vector<unsigned char> received_;        // of which no command is made yet
  std::set<std::vector<unsigned char>> told_;  // commands that the recording does not hold
};

void print_scanned(const Common& common, const Scanned& item, std::size_t base, const std::string& direction,
                   double at) {
  const auto offset = base + item.offset;
  const bool has_place = !direction.empty();
  if (common.json) {
    nlohmann::ordered_json object;
    if (has_place) {
      object["time"] = at;
      object["direction"] = direction == ">" ? "to_reader" : "from_reader";
    }
    object["offset"] = offset;
    object["size"] = item.size;
    if (item.frame != nullptr) {
      object.update(fields_of(*item.frame));
    } else {
      object["problem"] = item.problem;
    }
    print(object);
    return;
  }
  char place[64] = "";
  if (has_place) {
    std::snprintf(place, sizeof place, "%10.6f %s ", at, direction.c_str());
  }
  const std::string size = std::to_string(item.size) + (item.size == 1 ? " byte" : " bytes");
  const std::string what =
      item.frame != nullptr ? describe(*item.frame) : coloured(Colour::red, "no frame, " + item.problem);
  char where[64];
  std::snprintf(where, sizeof where, "%6zu  %-9s ", offset, size.c_str());
  print(std::string(place) + where + what + "\n");
}

// Pieces of one direction that follow each other are one stretch: a frame may be cut anywhere.
void decode_recording(const Common& common, const std::vector<Piece>& pieces) {
  std::size_t offsets[2] = {0, 0};
  for (std::size_t i = 0; i < pieces.size();) {
    const auto direction = pieces[i].direction;
    const double at = std::chrono::duration<double>(pieces[i].at).count();
    std::vector<unsigned char> stretch;
    for (; i < pieces.size() && pieces[i].direction == direction; ++i) {
      stretch.insert(stretch.end(), pieces[i].bytes.begin(), pieces[i].bytes.end());
    }
    auto& offset = offsets[direction == Direction::to_reader ? 0 : 1];
    for (const auto& item : scan(stretch, true).found) {
      print_scanned(common, item, offset, direction == Direction::to_reader ? ">" : "<", at);
    }
    offset += stretch.size();
  }
}

// Whether a text is meant as bytes rather than as a file's name: at least half of it is digits.
bool looks_like_hex(const std::string& text) {
  const auto digits = std::ranges::count_if(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
  const auto blanks = std::ranges::count_if(text, [](unsigned char c) { return std::isspace(c) != 0; });
  return text.find_first_of("/.") == std::string::npos && 2 * digits >= std::ssize(text) - blanks;
}

std::string content_of(const std::string& what) {
  std::stringstream text;
  if (what == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  std::ifstream in(what);
  if (!in && !looks_like_hex(what)) {
    throw Failure(kUsage, what + ": " + std::strerror(errno) + ", and no hexadecimal digits either");
  }
  if (!in) {
    return what;  // the digits themselves
  }
  text << in.rdbuf();
  if (std::filesystem::is_directory(what)) {
    throw Failure(kUsage, what + " is a directory: give a file");
  }
  return text.str();
}

}  // namespace

void record(const Common& common, const std::string& file, double time) {
  const Port port(common.port, std::chrono::milliseconds(common.timeout));
  port.power_or_nobody();
  Recorder recorder(file);
  catch_interrupts();
  const Duration duration(time);
  int polls = 0;
  int tags = 0;
  while (!duration.is_over()) {
    const auto poll =
        port.poll([&](Direction direction, std::span<const unsigned char> bytes) { recorder.add(direction, bytes); });
    ++polls;
    tags += static_cast<int>(poll.tags.size());
    progress(seconds(duration.passed()) + " s, " + std::to_string(polls) + " polls, " + std::to_string(tags) +
             " tag reports");
  }
  progress("");
  recorder.close();
  const nlohmann::ordered_json summary{{"file", file}, {"polls", polls}, {"tag_reports", tags}};
  common.json ? print(summary)
              : print(file + ": " + std::to_string(polls) + " polls, " + std::to_string(tags) + " tag reports in " +
                      seconds(duration.passed()) + " s; `uhfctl decode " + file + "` tells what is in it\n");
}

void replay(const Common& common, const std::string& file, double time) {
  Tape tape(file);
  catch_interrupts();
  common.json ? print(nlohmann::ordered_json{{"port", tape.path()}}) : print(tape.path() + "\n");
  for (const Duration duration(time); !duration.is_over();) {
    tape.serve(duration);
  }
}

void decode(const Common& common, const std::string& what) {
  const auto text = content_of(what);
  const std::string name = text == what ? "the argument" : what == "-" ? "standard input" : what;
  if (is_recording(text)) {
    decode_recording(common, parse_recording(text, name));
    return;
  }
  const auto bytes = parse_hex(text, name);
  for (const auto& item : scan(bytes, true).found) {
    print_scanned(common, item, 0, "", 0);
  }
}

}  // namespace uhfctl
