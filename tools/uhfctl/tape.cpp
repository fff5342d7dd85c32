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
#include "watch.h"

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

// Prints frames as their bytes come. Pieces of one direction that follow each other are one stretch: a frame may be cut
// anywhere.
class Decoder {
 public:
  explicit Decoder(const Common& common) : common_(common) {}

  // at: since the beginning, in seconds.
  void add(double at, Direction direction, std::span<const unsigned char> bytes) {
    if (direction != direction_) {
      end();
      direction_ = direction;
    }
    if (stretch_.empty()) {
      at_ = at;
    }
    stretch_.insert(stretch_.end(), bytes.begin(), bytes.end());
    print_found(false);
  }

  // No more bytes come.
  void end() { print_found(true); }

 private:
  void print_found(bool all) {
    const auto [found, rest] = scan(stretch_, all);
    auto& offset = offsets_[direction_ == Direction::to_reader ? 0 : 1];
    for (const auto& item : found) {
      print_scanned(common_, item, offset, direction_ == Direction::to_reader ? ">" : "<", at_);
    }
    const auto done = stretch_.size() - rest;
    offset += done;
    stretch_.erase(stretch_.begin(), stretch_.begin() + static_cast<std::ptrdiff_t>(done));
  }

  const Common& common_;
  Direction direction_ = Direction::to_reader;
  double at_ = 0;                       // of the first byte below
  std::vector<unsigned char> stretch_;  // of which no frame is made yet
  std::size_t offsets_[2] = {0, 0};     // of its first byte, each way
};

void decode_recording(const Common& common, const std::vector<Piece>& pieces) {
  Decoder decoder(common);
  for (const auto& piece : pieces) {
    decoder.add(std::chrono::duration<double>(piece.at).count(), piece.direction, piece.bytes);
  }
  decoder.end();
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

namespace {

// What a watch of the line saw of it.
struct Count {
  int polls = 0;
  int tags = 0;
  Duration duration;
};

// Shows each piece to the tap until the time is over. on_poll is told how it goes.
Count show_line(Watch& watch, const Tap& tap, double time, const std::function<void(const Count&)>& on_poll = nullptr) {
  Count count{.duration = Duration(time)};
  while (!count.duration.is_over()) {
    if (const auto poll = watch.next(tap)) {
      ++count.polls;
      count.tags += static_cast<int>(poll->tags.size());
      if (on_poll) {
        on_poll(count);
      }
    }
  }
  if (watch.left_out() > 0) {
    note(std::to_string(watch.left_out()) + " bytes are left out: they came faster than they could be written");
  }
  return count;
}

}  // namespace

void record(const Common& common, const std::string& file, double time) {
  const auto polls = watch(common);
  Recorder recorder(file);
  const auto count = show_line(
      *polls, [&recorder](auto at, auto direction, auto bytes) { recorder.add(at, direction, bytes); }, time,
      [](const Count& so_far) {
        progress(seconds(so_far.duration.passed()) + " s, " + std::to_string(so_far.polls) + " polls, " +
                 std::to_string(so_far.tags) + " tag reports");
      });
  progress("");
  recorder.close();
  const nlohmann::ordered_json summary{{"file", file}, {"polls", count.polls}, {"tag_reports", count.tags}};
  common.json
      ? print(summary)
      : print(file + ": " + std::to_string(count.polls) + " polls, " + std::to_string(count.tags) + " tag reports in " +
              seconds(count.duration.passed()) + " s; `uhfctl decode " + file + "` tells what is in it\n");
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

void decode_live(const Common& common, double time) {
  const auto polls = watch(common);
  Decoder decoder(common);
  std::optional<Clock::time_point> begin;
  show_line(
      *polls,
      [&](auto at, auto direction, auto bytes) {
        begin = begin.value_or(at);
        decoder.add(std::chrono::duration<double>(at - *begin).count(), direction, bytes);
      },
      time);
  decoder.end();
}

}  // namespace uhfctl
