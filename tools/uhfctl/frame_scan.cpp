#include "frame_scan.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <numeric>
#include <optional>

#include "frame_catalogue.h"
#include "uhfsim/text.h"

namespace uhfctl {

using namespace ac::UHF;

namespace {

using Bytes = std::span<const unsigned char>;

std::string hex_number(unsigned int value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*X", digits, value);
  return text;
}

// Bytes of the frame that begins here, by its length field. REQUIRES: at least 5 bytes.
std::size_t declared_size(Bytes bytes) {
  return (static_cast<std::size_t>(bytes[3]) << 8 | bytes[4]) + Frame::MIN_FRAME_SIZE;
}

// The bytes under a look, each of which is summed up once, however many headers are among them.
class Look {
 public:
  explicit Look(Bytes bytes) : bytes_(bytes) {}

  Bytes from(std::size_t at) const { return bytes_.subspan(at); }

  // Whether all bytes are there of the frame that begins here, if one does. REQUIRES: a header stands here.
  bool is_whole(std::size_t at) const {
    const auto rest = from(at);
    return rest.size() >= Frame::MIN_FRAME_SIZE && rest.size() >= declared_size(rest);
  }

  // The frame of these bytes, or why they are none. REQUIRES: is_whole().
  Scanned judge(std::size_t at);

  // The first place from here on where a good frame begins; the end of the bytes when there is none. Asked for places
  // in their order.
  std::size_t next_good(std::size_t at) {
    for (good_ = std::max(good_, at); good_ < bytes_.size() && !is_good(good_); ++good_) {
    }
    return good_;
  }

  // The same of a frame whose end has not come.
  std::size_t next_open(std::size_t at) {
    for (open_ = std::max(open_, at); open_ < bytes_.size() && !is_open(open_); ++open_) {
    }
    return open_;
  }

 private:
  bool is_good(std::size_t at) { return bytes_[at] == Frame::HEADER && is_whole(at) && judge(at).frame != nullptr; }

  bool is_open(std::size_t at) const {
    const bool has_type = at + 1 >= bytes_.size() || bytes_[at + 1] <= static_cast<int>(Frame::Type::Notice);
    return bytes_[at] == Frame::HEADER && has_type && !is_whole(at);
  }

  unsigned char sum_of(std::size_t first, std::size_t size);

  Bytes bytes_;
  std::vector<unsigned char> sums_;  // of all bytes before each, modulo 256; empty until asked for
  std::size_t good_ = 0;             // no good frame begins before this and after where it was asked for last
  std::size_t open_ = 0;             // likewise
};

unsigned char Look::sum_of(std::size_t first, std::size_t size) {
  if (sums_.empty()) {
    sums_.resize(bytes_.size() + 1);
    std::partial_sum(bytes_.begin(), bytes_.end(), sums_.begin() + 1,
                     [](unsigned char a, unsigned char b) { return static_cast<unsigned char>(a + b); });
  }
  return static_cast<unsigned char>(sums_[first + size] - sums_[first]);
}

Scanned Look::judge(std::size_t at) {
  const auto bytes = from(at).first(declared_size(from(at)));
  Scanned result{.offset = at, .size = bytes.size()};
  if (bytes.back() != Frame::END) {
    result.size = 1;
    result.problem = "no end byte 7E where the length puts it, " + std::to_string(bytes.size() - 1) + " bytes on";
    return result;
  }
  if (const auto sum = sum_of(at + 1, bytes.size() - 3); sum != bytes[bytes.size() - 2]) {
    result.problem =
        "wrong checksum: it has " + hex_number(bytes[bytes.size() - 2], 2) + ", its bytes give " + hex_number(sum, 2);
    result.wrong_checksum = true;
    return result;
  }
  try {
    result.frame = Frame::decode(bytes).first;
  } catch (const std::bad_alloc&) {
    result.problem = "a tag report with no room for its CRC";
  } catch (const std::exception& failure) {
    result.problem = failure.what();
  }
  return result;
}

void add(std::vector<Scanned>& found, Scanned next) {
  // Junk that goes on is one piece.
  if (next.frame == nullptr && !next.wrong_checksum && !found.empty() && found.back().frame == nullptr &&
      found.back().problem == next.problem) {
    found.back().size += next.size;
    return;
  }
  found.push_back(std::move(next));
}

// What begins with a header whose frame cannot come any more.
Scanned cut_off(std::size_t at, Bytes rest) {
  return {.offset = at,
          .size = 1,
          .problem = rest.size() < Frame::MIN_FRAME_SIZE
                         ? "cut off: a frame has at least 7 bytes"
                         : "cut off: its length asks for " + std::to_string(declared_size(rest)) + " bytes, " +
                               std::to_string(rest.size()) + " are left",
          .cut_off = true};
}

// A whole frame; only the header when it is none and a good frame begins before its end, which it would take along.
// Nothing when one may yet.
std::optional<Scanned> frame_at(std::size_t at, Look& look, bool all) {
  auto next = look.judge(at);
  if (next.frame != nullptr || next.size == 1) {
    return next;
  }
  const auto end = at + next.size;
  if (const auto good = look.next_good(at + 1); good < end) {
    return Scanned{
        .offset = at,
        .size = 1,
        .problem = "a false header, or a frame cut off: another begins " + std::to_string(good - at) + " bytes on"};
  }
  return !all && look.next_open(at + 1) < end ? std::nullopt : std::optional(std::move(next));
}

// The piece that begins here; nothing when more bytes may make it a frame.
std::optional<Scanned> piece_at(std::size_t at, Look& look, bool all) {
  const auto rest = look.from(at);
  if (rest.front() != Frame::HEADER) {
    const auto header = std::ranges::find(rest, Frame::HEADER);
    return Scanned{.offset = at, .size = static_cast<std::size_t>(header - rest.begin()), .problem = "no header 7F"};
  }
  if (!look.is_whole(at)) {
    return all ? std::optional(cut_off(at, rest)) : std::nullopt;
  }
  return frame_at(at, look, all);
}

}  // namespace

Scan scan(Bytes bytes, bool all) {
  Scan result;
  Look look(bytes);
  for (std::size_t at = 0; at < bytes.size();) {
    auto next = piece_at(at, look, all);
    if (!next.has_value()) {
      result.rest = bytes.size() - at;
      return result;
    }
    at += next->size;
    add(result.found, std::move(*next));
  }
  return result;
}

namespace {

std::string hex_list(const std::vector<unsigned char>& bytes) { return uhfsim::hex_of(bytes); }

std::string kind_of(const Frame& frame) {
  switch (frame.type()) {
    case Frame::Type::Command:
      return "command";
    case Frame::Type::Response:
      return "response";
    case Frame::Type::Notice:
      return "notice";
  }
  return "frame";
}

std::string name_of(const Frame& frame) {
  switch (frame.command()) {
    case Frame::CommandType::SetWorkArea:
      return "set region";
    case Frame::CommandType::InventoryCard:
      return frame.type() == Frame::Type::Notice ? "tag report" : "inventory";
    case Frame::CommandType::InsertWorkChannel:
      return "set channels";
    case Frame::CommandType::SetTransmitPower:
      return "set power";
    case Frame::CommandType::GetTransmitPower:
      return "get power";
    case Frame::CommandType::SetRxSensitive:
      return "set sensitivity";
    case Frame::CommandType::GetRxSensitive:
      return "get sensitivity";
    case Frame::CommandType::CRCError:
      return "refusal";
  }
  return "frame";
}

}  // namespace

nlohmann::ordered_json fields_of(const Frame& frame) {
  nlohmann::ordered_json fields{{"frame", name_of(frame)}, {"type", kind_of(frame)}};
  if (const auto* notice = dynamic_cast<const InventoryCardNotice*>(&frame)) {
    fields["epc"] = hex_list(notice->epc());
    fields["rssi"] = notice->rssi();
    fields["pc"] = hex_number(notice->pc(), 4);
    fields["crc"] = hex_number(notice->crc(), 4);
    return fields;
  }
  const auto parameters = frame.parameterToData();
  if (const auto* power = dynamic_cast<const GetTransmitPowerResponse*>(&frame)) {
    fields["power"] = power->power();
  } else if (const auto* sensitivity = dynamic_cast<const GetRxSensitiveResponse*>(&frame)) {
    fields["m"] = sensitivity->info().m;
    fields["i"] = sensitivity->info().i;
    fields["threshold"] = sensitivity->info().sensitivity;
  } else if (frame.type() == Frame::Type::Response && parameters.size() == 1) {
    fields["status"] = hex_number(parameters.front(), 2);
  } else if (!parameters.empty()) {
    fields["parameters"] = hex_list(parameters);
  }
  return fields;
}

std::string describe(const Frame& frame) {
  const auto fields = fields_of(frame);
  std::string text = fields["frame"].get<std::string>() + (fields["frame"] == "tag report" ? "" : " " + kind_of(frame));
  const char* separator = ": ";
  for (const auto& [name, value] : fields.items()) {
    const std::string content = value.is_string() ? value.get<std::string>() : value.dump();
    if (name != "frame" && name != "type" && !content.empty()) {
      text.append(separator).append(name).append(" ").append(content);
      separator = ", ";
    }
  }
  return text;
}

}  // namespace uhfctl
