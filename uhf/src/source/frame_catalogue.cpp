#include "frame_catalogue.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <numeric>
#include <string>
#include <tuple>
#include <utility>

namespace ac::UHF {

namespace {

using Type = Frame::Type;
using CommandType = Frame::CommandType;

unsigned short lengthOf(const ByteReader& parameters) { return static_cast<unsigned short>(parameters.size()); }

std::vector<unsigned char> toVector(std::span<const unsigned char> bytes) { return {bytes.begin(), bytes.end()}; }

// The two bytes of a big-endian field.
void append(std::vector<unsigned char>& data, unsigned short value) {
  data.push_back(static_cast<unsigned char>(value >> 8));
  data.push_back(static_cast<unsigned char>(value & 0xFF));
}

std::vector<unsigned char> powerToData(unsigned short power) {
  std::vector<unsigned char> data;
  append(data, power);
  return data;
}

// Here and below: braced initialisers are evaluated from left to right, which is the order on the wire.
DemodSensitivityInfo readSensitivity(ByteReader& parameters) {
  return {parameters.read<std::uint8_t>(), parameters.read<std::uint8_t>(), parameters.read<std::uint16_t>()};
}

std::vector<unsigned char> sensitivityToData(const DemodSensitivityInfo& info) {
  std::vector<unsigned char> data{info.m, info.i};
  append(data, info.sensitivity);
  return data;
}

// The EPC is what stands between the PC word and the last two bytes. Where these overlap (fewer than two bytes left)
// its length as an unsigned number is beyond any memory.
std::span<const unsigned char> takeEpc(ByteReader& parameters) {
  constexpr std::size_t CRC_SIZE = 2;
  if (parameters.remaining() < CRC_SIZE) {
    throw std::bad_alloc();
  }
  return parameters.take(parameters.remaining() - CRC_SIZE);
}

std::span<const unsigned char> takeChannels(ByteReader& parameters) {
  const auto count = parameters.read<std::uint8_t>();
  if (count > parameters.remaining()) {
    throw ac_exception("Invalid parameter length", true);
  }
  return parameters.take(count);
}

struct CatalogueEntry {
  CommandType command;
  Type type;
  std::unique_ptr<Frame> (*create)(unsigned char checksum, ByteReader parameters);

  constexpr auto key() const { return std::tuple(command, type); }
};

template <class ConcreteFrame>
std::unique_ptr<Frame> createConcrete(unsigned char checksum, ByteReader parameters) {
  return std::make_unique<ConcreteFrame>(checksum, parameters);
}

constexpr std::array CATALOGUE{
    CatalogueEntry{CommandType::SetWorkArea, Type::Command, createConcrete<SetWorkAreaFrame>},
    CatalogueEntry{CommandType::SetWorkArea, Type::Response, createConcrete<SetWorkAreaResponse>},
    CatalogueEntry{CommandType::InventoryCard, Type::Command, createConcrete<InventoryCardFrame>},
    CatalogueEntry{CommandType::InventoryCard, Type::Notice, createConcrete<InventoryCardNotice>},
    CatalogueEntry{CommandType::InsertWorkChannel, Type::Command, createConcrete<InsertWorkChannelFrame>},
    CatalogueEntry{CommandType::InsertWorkChannel, Type::Response, createConcrete<InsertWorkChannelResponse>},
    CatalogueEntry{CommandType::SetTransmitPower, Type::Command, createConcrete<SetTransmitPowerFrame>},
    CatalogueEntry{CommandType::SetTransmitPower, Type::Response, createConcrete<SetTransmitPowerResponse>},
    CatalogueEntry{CommandType::GetTransmitPower, Type::Command, createConcrete<GetTransmitPowerFrame>},
    CatalogueEntry{CommandType::GetTransmitPower, Type::Response, createConcrete<GetTransmitPowerResponse>},
    CatalogueEntry{CommandType::SetRxSensitive, Type::Command, createConcrete<SetRxSensitiveFrame>},
    CatalogueEntry{CommandType::SetRxSensitive, Type::Response, createConcrete<SetRxSensitiveResponse>},
    CatalogueEntry{CommandType::GetRxSensitive, Type::Command, createConcrete<GetRxSensitiveFrame>},
    CatalogueEntry{CommandType::GetRxSensitive, Type::Response, createConcrete<GetRxSensitiveResponse>},
    CatalogueEntry{CommandType::CRCError, Type::Response, createConcrete<CRCErrorResponse>},
};
static_assert(std::ranges::is_sorted(CATALOGUE, {}, &CatalogueEntry::key), "sorted by command, then type");
static_assert(std::ranges::adjacent_find(CATALOGUE, {}, &CatalogueEntry::key) == CATALOGUE.end(), "each entry once");

}  // namespace

std::unique_ptr<Frame> Frame::create(int commandType, int type, unsigned char checksum, ByteReader parameters) {
  const auto commandMatches = [commandType](const CatalogueEntry& entry) {
    return static_cast<int>(entry.command) == commandType;
  };
  const auto first = std::ranges::find_if(CATALOGUE, commandMatches);
  if (first == CATALOGUE.end()) {
    throw ac_exception("Unknown Command Type: " + std::to_string(commandType), true);
  }
  for (auto entry = first; entry != CATALOGUE.end() && commandMatches(*entry); ++entry) {
    if (static_cast<int>(entry->type) == type) {
      return entry->create(checksum, parameters);
    }
  }
  throw ac_exception("Unknown Frame Type: " + std::to_string(type), true);
}

SetWorkAreaFrame::SetWorkAreaFrame(unsigned char region)
    : Frame(Type::Command, CommandType::SetWorkArea, 1, 0), region_(region) {
  updateChecksum();
}

SetWorkAreaFrame::SetWorkAreaFrame(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : SetWorkAreaFrame(checksum, ByteReader(parameters)) {}

SetWorkAreaFrame::SetWorkAreaFrame(unsigned char checksum, ByteReader parameters)
    : Frame(Type::Command, CommandType::SetWorkArea, lengthOf(parameters), checksum),
      region_(parameters.read<std::uint8_t>()) {}

std::vector<unsigned char> SetWorkAreaFrame::parameterToData() const { return {region_}; }

InventoryCardNotice::InventoryCardNotice(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : InventoryCardNotice(checksum, ByteReader(parameters)) {}

CardNoticeView CardNoticeView::read(ByteReader parameters) {
  return {parameters.read<std::uint8_t>(), parameters.read<std::uint16_t>(), takeEpc(parameters),
          parameters.read<std::uint16_t>()};
}

InventoryCardNotice::InventoryCardNotice(unsigned char checksum, ByteReader parameters)
    : InventoryCardNotice(checksum, parameters, CardNoticeView::read(parameters)) {}

InventoryCardNotice::InventoryCardNotice(unsigned char checksum, ByteReader parameters, const CardNoticeView& fields)
    : Frame(Type::Notice, CommandType::InventoryCard, lengthOf(parameters), checksum),
      rssi_(fields.rssi),
      pc_(fields.pc),
      epc_(toVector(fields.epc)),
      crc_(fields.crc) {}

std::vector<unsigned char> InventoryCardNotice::parameterToData() const {
  std::vector<unsigned char> data;
  data.reserve(epc_.size() + 5);
  data.push_back(rssi_);
  append(data, pc_);
  data.insert(data.end(), epc_.begin(), epc_.end());
  append(data, crc_);
  return data;
}

unsigned int InventoryCardNotice::parameterSum() const {
  const auto sum = [](unsigned short value) { return static_cast<unsigned int>(value >> 8) + (value & 0xFFU); };
  return std::accumulate(epc_.begin(), epc_.end(), rssi_ + sum(pc_) + sum(crc_));
}

InsertWorkChannelFrame::InsertWorkChannelFrame(std::vector<unsigned char> channels)
    : Frame(Type::Command, CommandType::InsertWorkChannel, static_cast<unsigned short>(channels.size() + 1), 0),
      channels_(std::move(channels)) {
  updateChecksum();
}

InsertWorkChannelFrame::InsertWorkChannelFrame(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : InsertWorkChannelFrame(checksum, ByteReader(parameters)) {}

InsertWorkChannelFrame::InsertWorkChannelFrame(unsigned char checksum, ByteReader parameters)
    : Frame(Type::Command, CommandType::InsertWorkChannel, lengthOf(parameters), checksum),
      channels_(toVector(takeChannels(parameters))) {}

std::vector<unsigned char> InsertWorkChannelFrame::parameterToData() const {
  std::vector<unsigned char> data;
  data.reserve(channels_.size() + 1);
  data.push_back(static_cast<unsigned char>(channels_.size()));
  data.insert(data.end(), channels_.begin(), channels_.end());
  return data;
}

SetTransmitPowerFrame::SetTransmitPowerFrame(unsigned short power)
    : Frame(Type::Command, CommandType::SetTransmitPower, 2, 0), power_(power) {
  updateChecksum();
}

SetTransmitPowerFrame::SetTransmitPowerFrame(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : SetTransmitPowerFrame(checksum, ByteReader(parameters)) {}

SetTransmitPowerFrame::SetTransmitPowerFrame(unsigned char checksum, ByteReader parameters)
    : Frame(Type::Command, CommandType::SetTransmitPower, lengthOf(parameters), checksum),
      power_(parameters.read<std::uint16_t>()) {}

std::vector<unsigned char> SetTransmitPowerFrame::parameterToData() const { return powerToData(power_); }

GetTransmitPowerResponse::GetTransmitPowerResponse(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : GetTransmitPowerResponse(checksum, ByteReader(parameters)) {}

GetTransmitPowerResponse::GetTransmitPowerResponse(unsigned char checksum, ByteReader parameters)
    : Frame(Type::Response, CommandType::GetTransmitPower, lengthOf(parameters), checksum),
      power_(parameters.read<std::uint16_t>()) {}

std::vector<unsigned char> GetTransmitPowerResponse::parameterToData() const { return powerToData(power_); }

SetRxSensitiveFrame::SetRxSensitiveFrame(unsigned char m, unsigned char i, unsigned short sensitivity)
    : Frame(Type::Command, CommandType::SetRxSensitive, 4, 0), info_{m, i, sensitivity} {
  updateChecksum();
}

SetRxSensitiveFrame::SetRxSensitiveFrame(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : SetRxSensitiveFrame(checksum, ByteReader(parameters)) {}

SetRxSensitiveFrame::SetRxSensitiveFrame(unsigned char checksum, ByteReader parameters)
    : Frame(Type::Command, CommandType::SetRxSensitive, lengthOf(parameters), checksum),
      info_(readSensitivity(parameters)) {}

std::vector<unsigned char> SetRxSensitiveFrame::parameterToData() const { return sensitivityToData(info_); }

GetRxSensitiveResponse::GetRxSensitiveResponse(unsigned char checksum, const std::vector<unsigned char>& parameters)
    : GetRxSensitiveResponse(checksum, ByteReader(parameters)) {}

GetRxSensitiveResponse::GetRxSensitiveResponse(unsigned char checksum, ByteReader parameters)
    : Frame(Type::Response, CommandType::GetRxSensitive, lengthOf(parameters), checksum),
      info_(readSensitivity(parameters)) {}

std::vector<unsigned char> GetRxSensitiveResponse::parameterToData() const { return sensitivityToData(info_); }

}  // namespace ac::UHF
