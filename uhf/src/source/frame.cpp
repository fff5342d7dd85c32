#include "frame.h"

#include <array>
#include <cstdint>
#include <numeric>

#include "byte_reader.h"

namespace ac::UHF {

namespace {

// Every field is big-endian on the wire.
constexpr unsigned char highByte(unsigned short value) { return static_cast<unsigned char>(value >> 8); }
constexpr unsigned char lowByte(unsigned short value) { return static_cast<unsigned char>(value & 0xFF); }

}  // namespace

Frame::Frame(Type type, CommandType commandType, unsigned short parameterLength, unsigned char checksum)
    : header_(HEADER),
      type_(type),
      command_(commandType),
      parameterLength_(parameterLength),
      checksum_(checksum),
      end_(END) {}

std::vector<unsigned char> Frame::parameterToData() const { return {}; }

std::vector<unsigned char> Frame::toData() const {
  const std::array<unsigned char, 5> head{header_, static_cast<unsigned char>(type_),
                                          static_cast<unsigned char>(command_), highByte(parameterLength_),
                                          lowByte(parameterLength_)};
  const auto parameters = parameterToData();
  std::vector<unsigned char> data;
  data.reserve(parameterLength_ + MIN_FRAME_SIZE);
  data.insert(data.end(), head.begin(), head.end());
  data.insert(data.end(), parameters.begin(), parameters.end());
  data.push_back(checksum_);
  data.push_back(end_);
  return data;
}

unsigned int Frame::parameterSum() const {
  const auto parameters = parameterToData();
  return std::accumulate(parameters.begin(), parameters.end(), 0U);
}

unsigned char Frame::View::calculateChecksum() const {
  const auto length = static_cast<unsigned short>(parameters.size());
  const unsigned int head = 0U + type + command + highByte(length) + lowByte(length);
  return static_cast<unsigned char>(std::accumulate(parameters.begin(), parameters.end(), head));
}

unsigned char Frame::calculateChecksum() const {
  const unsigned int head = static_cast<unsigned int>(type_) + static_cast<unsigned int>(command_) +
                            highByte(parameterLength_) + lowByte(parameterLength_);
  return static_cast<unsigned char>(head + parameterSum());
}

bool Frame::validateCheckSum() const { return checksum_ == calculateChecksum(); }

Frame::Decoded Frame::fromData(const std::vector<unsigned char>& data) { return decode(data); }

Frame::Decoded Frame::decode(std::span<const unsigned char> data) {
  const auto [view, consumed] = cut(data);
  return {view.has_value() ? create(*view) : nullptr, consumed};
}

std::pair<std::optional<Frame::View>, unsigned int> Frame::cut(std::span<const unsigned char> data) {
  if (data.size() < MIN_FRAME_SIZE) {
    return {std::nullopt, 0};
  }
  ByteReader reader(data);
  if (reader.read<std::uint8_t>() != HEADER) {
    return {std::nullopt, 1};
  }
  const auto type = reader.read<std::uint8_t>();
  const auto command = reader.read<std::uint8_t>();
  const auto length = reader.read<std::uint16_t>();
  if (length > reader.remaining()) {
    throw ac_exception("Invalid parameter length", true);
  }
  const auto parameters = reader.take(length);
  const auto checksum = reader.read<std::uint8_t>();
  const auto end = reader.read<std::uint8_t>();
  const unsigned int consumed = length + MIN_FRAME_SIZE;
  if (end != END) {
    return {std::nullopt, consumed};
  }
  return {View{type, command, checksum, parameters}, consumed};
}

std::unique_ptr<Frame> Frame::create(const View& view) {
  return create(view.command, view.type, view.checksum, ByteReader(view.parameters));
}

std::unique_ptr<Frame> Frame::createFrame(int commandType, int type, unsigned char checksum,
                                          const std::vector<unsigned char>& parameters) {
  return create(commandType, type, checksum, ByteReader(parameters));
}

std::string Frame::printVector(const std::vector<unsigned char>& bytes) {
  std::string text;
  printBytes(bytes, text);
  return text;
}

void Frame::printBytes(std::span<const unsigned char> bytes, std::string& text) {
  static constexpr char DIGITS[] = "0123456789abcdef";
  const auto start = text.size();
  text.resize(start + 3 * bytes.size(), ' ');
  char* at = text.data() + start;
  for (const unsigned char byte : bytes) {
    at[0] = DIGITS[byte >> 4];
    at[1] = DIGITS[byte & 0x0F];
    at += 3;
  }
  text += '[';
  text += std::to_string(bytes.size());
  text += ']';
}

}  // namespace ac::UHF
