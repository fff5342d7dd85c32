// Recording the line, playing a recording, and telling what is in one.
#include <poll.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "commands.h"
#include "failure.h"
#include "frame_scan.h"
#include "recording.h"
#include "terminal.h"
#include "uhfsim/pty_link.h"
#include "uhfsim/text.h"

namespace uhfctl {

namespace {

// A command of the recording, and what came back until the next.
struct Exchange {
  Piece command;
  std::vector<Piece> replies;
};

std::vector<Exchange> exchanges_of(const std::vector<Piece>& pieces) {
  std::vector<Exchange> exchanges;
  for (const auto& piece : pieces) {
    if (piece.direction == Direction::to_reader) {
      exchanges.push_back({.command = piece, .replies = {}});
    } else if (!exchanges.empty()) {
      exchanges.back().replies.push_back(piece);
    }
  }
  return exchanges;
}

// The recorded exchanges as a reader: each command gets what came back to the same command, the next time it was given;
// after the last it begins anew.
class Player {
 public:
  explicit Player(std::vector<Exchange> exchanges) : exchanges_(std::move(exchanges)) {}

  // Null when that command was never recorded.
  const Exchange* answer_to(const std::vector<unsigned char>& command) {
    for (std::size_t i = 0; i < exchanges_.size(); ++i) {
      const auto& candidate = exchanges_[(next_ + i) % exchanges_.size()];
      if (candidate.command.bytes == command) {
        next_ = (next_ + i + 1) % exchanges_.size();
        return &candidate;
      }
    }
    return nullptr;
  }

 private:
  std::vector<Exchange> exchanges_;
  std::size_t next_ = 0;
};

void play(uhfsim::PtyLink& link, const Exchange& exchange) {
  const auto begin = Clock::now();
  for (const auto& reply : exchange.replies) {
    std::this_thread::sleep_until(begin + (reply.at - exchange.command.at));
    link.write(reply.bytes);
  }
}

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
  const auto begin = Clock::now();
  int polls = 0;
  int tags = 0;
  while (!interrupted() && (time <= 0 || Clock::now() - begin < std::chrono::duration<double>(time))) {
    const auto poll =
        port.poll([&](Direction direction, std::span<const unsigned char> bytes) { recorder.add(direction, bytes); });
    ++polls;
    tags += static_cast<int>(poll.tags.size());
    progress(seconds(Clock::now() - begin) + " s, " + std::to_string(polls) + " polls, " + std::to_string(tags) +
             " tag reports");
  }
  progress("");
  recorder.close();
  const nlohmann::ordered_json summary{{"file", file}, {"polls", polls}, {"tag_reports", tags}};
  common.json ? print(summary)
              : print(file + ": " + std::to_string(polls) + " polls, " + std::to_string(tags) + " tag reports in " +
                      seconds(Clock::now() - begin) + " s; `uhfctl decode " + file + "` tells what is in it\n");
}

void replay(const Common& common, const std::string& file, double time) {
  Player player(exchanges_of(read_recording(file)));
  uhfsim::PtyLink link;
  catch_interrupts();
  common.json ? print(nlohmann::ordered_json{{"port", link.path()}}) : print(link.path() + "\n");
  const auto begin = Clock::now();
  std::vector<unsigned char> received;
  while (!interrupted() && (time <= 0 || Clock::now() - begin < std::chrono::duration<double>(time))) {
    pollfd line{.fd = link.fd(), .events = POLLIN, .revents = 0};
    ::poll(&line, 1, 100);
    const auto bytes = link.read();
    received.insert(received.end(), bytes.begin(), bytes.end());
    const auto [found, rest] = scan(received, false);
    for (const auto& item : found) {
      const std::vector<unsigned char> command(received.begin() + static_cast<std::ptrdiff_t>(item.offset),
                                               received.begin() + static_cast<std::ptrdiff_t>(item.offset + item.size));
      if (const auto* exchange = player.answer_to(command)) {
        play(link, *exchange);
      } else {
        note("not in the recording, left unanswered: " + uhfsim::hex_of(command));
      }
    }
    received.erase(received.begin(), received.end() - static_cast<std::ptrdiff_t>(rest));
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
