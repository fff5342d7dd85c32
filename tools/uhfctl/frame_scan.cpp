#include "frame_scan.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <numeric>

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

unsigned char sum_of(Bytes frame) {
  return static_cast<unsigned char>(std::accumulate(frame.begin() + 1, frame.end() - 2, 0U));
}

// Why the whole frame of these bytes is none, or the frame. REQUIRES: as many bytes as declared.
Scanned judge(Bytes bytes) {
  Scanned result{.size = bytes.size()};
  if (bytes.back() != Frame::END) {
    result.size = 1;
    result.problem = "no end byte 7E where the length puts it, " + std::to_string(bytes.size() - 1) + " bytes on";
    return result;
  }
  if (const auto sum = sum_of(bytes); sum != bytes[bytes.size() - 2]) {
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

}  // namespace

Scan scan(Bytes bytes, bool all) {
  Scan result;
  for (std::size_t at = 0; at < bytes.size();) {
    const auto rest = bytes.subspan(at);
    Scanned next;
    if (rest.front() != Frame::HEADER) {
      const auto header = std::ranges::find(rest, Frame::HEADER);
      next.size = static_cast<std::size_t>(header - rest.begin());
      next.problem = "no header 7F";
    } else if (rest.size() < Frame::MIN_FRAME_SIZE || rest.size() < declared_size(rest)) {
      if (!all) {
        result.rest = rest.size();
        return result;
      }
      next.size = 1;
      next.problem = rest.size() < Frame::MIN_FRAME_SIZE
                         ? "cut off: a frame has at least 7 bytes"
                         : "cut off: its length asks for " + std::to_string(declared_size(rest)) + " bytes, " +
                               std::to_string(rest.size()) + " are left";
    } else {
      next = judge(rest.first(declared_size(rest)));
    }
    next.offset = at;
    at += next.size;
    add(result.found, std::move(next));
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
