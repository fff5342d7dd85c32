// Every frame of the reader protocol: commands (names ending in Frame), responses and the notice.
//
// Each class has a decoding constructor (checksum, parameters), for Frame::createFrame(): it keeps the received
// checksum and the received length, decodes its fields from the front of the parameters and ignores bytes after them.
// Too few bytes throw ac::ac_exception "Not enough bytes to parse type". Commands have a value constructor too, which
// sets the checksum. Multi-byte fields are big-endian.
#pragma once

#include <cstdint>
#include <vector>

#include "byte_reader.h"
#include "demod_sensitivity_info.h"
#include "frame.h"

namespace ac::UHF {

// A response whose parameter is one status byte, whose meaning is the module's.
template <Frame::CommandType code>
class StatusResponse final : public Frame {
 public:
  StatusResponse(unsigned char checksum, const std::vector<unsigned char>& parameters)
      : StatusResponse(checksum, ByteReader(parameters)) {}
  StatusResponse(unsigned char checksum, ByteReader parameters)
      : Frame(Type::Response, code, static_cast<unsigned short>(parameters.size()), checksum),
        status_(parameters.read<std::uint8_t>()) {}

  std::vector<unsigned char> parameterToData() const override { return {status_}; }
  unsigned char status() const { return status_; }

 private:
  unsigned char status_;
};

using SetWorkAreaResponse = StatusResponse<Frame::CommandType::SetWorkArea>;
using InsertWorkChannelResponse = StatusResponse<Frame::CommandType::InsertWorkChannel>;
using SetTransmitPowerResponse = StatusResponse<Frame::CommandType::SetTransmitPower>;
using SetRxSensitiveResponse = StatusResponse<Frame::CommandType::SetRxSensitive>;
using CRCErrorResponse = StatusResponse<Frame::CommandType::CRCError>;

// A command without parameters.
template <Frame::CommandType code>
class PlainCommand final : public Frame {
 public:
  PlainCommand() : Frame(Type::Command, code, 0, 0) { updateChecksum(); }
  PlainCommand(unsigned char checksum, const std::vector<unsigned char>& parameters)
      : PlainCommand(checksum, ByteReader(parameters)) {}
  PlainCommand(unsigned char checksum, ByteReader parameters)
      : Frame(Type::Command, code, static_cast<unsigned short>(parameters.size()), checksum) {}
};

using InventoryCardFrame = PlainCommand<Frame::CommandType::InventoryCard>;
using GetTransmitPowerFrame = PlainCommand<Frame::CommandType::GetTransmitPower>;
using GetRxSensitiveFrame = PlainCommand<Frame::CommandType::GetRxSensitive>;

// Sets the regulatory work area: the module's region code.
class SetWorkAreaFrame final : public Frame {
 public:
  explicit SetWorkAreaFrame(unsigned char region);
  SetWorkAreaFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  SetWorkAreaFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  unsigned char region() const { return region_; }

 private:
  unsigned char region_;
};

// One tag read: RSSI 1 byte, PC 2 bytes, EPC all bytes between, CRC the last 2 bytes.
class InventoryCardNotice final : public Frame {
 public:
  // Throws std::bad_alloc for 3 or 4 parameter bytes, which leave no room for the CRC.
  InventoryCardNotice(unsigned char checksum, const std::vector<unsigned char>& parameters);
  InventoryCardNotice(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  unsigned char rssi() const { return rssi_; }
  unsigned short pc() const { return pc_; }
  const std::vector<unsigned char>& epc() const& { return epc_; }
  std::vector<unsigned char> epc() && { return std::move(epc_); }
  unsigned short crc() const { return crc_; }

 private:
  unsigned int parameterSum() const override;

  unsigned char rssi_;
  unsigned short pc_;
  std::vector<unsigned char> epc_;
  unsigned short crc_;
};

// Sets the working channels: a count byte, then that many channel numbers. No channels clear the module's list.
class InsertWorkChannelFrame final : public Frame {
 public:
  // More than 255 channels are not refused: the count byte wraps.
  explicit InsertWorkChannelFrame(std::vector<unsigned char> channels);
  // Throws ac::ac_exception "Invalid parameter length" when fewer channels follow than counted.
  InsertWorkChannelFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  InsertWorkChannelFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  const std::vector<unsigned char>& channels() const { return channels_; }

 private:
  std::vector<unsigned char> channels_;
};

// The transmit power in the module's own unit.
class SetTransmitPowerFrame final : public Frame {
 public:
  explicit SetTransmitPowerFrame(unsigned short power);
  SetTransmitPowerFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  SetTransmitPowerFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  unsigned short power() const { return power_; }

 private:
  unsigned short power_;
};

class GetTransmitPowerResponse final : public Frame {
 public:
  GetTransmitPowerResponse(unsigned char checksum, const std::vector<unsigned char>& parameters);
  GetTransmitPowerResponse(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  unsigned short power() const { return power_; }

 private:
  unsigned short power_;
};

// The receive demodulator's settings: M 1 byte, I 1 byte, sensitivity 2 bytes.
class SetRxSensitiveFrame final : public Frame {
 public:
  SetRxSensitiveFrame(unsigned char m, unsigned char i, unsigned short sensitivity);
  SetRxSensitiveFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  SetRxSensitiveFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  const DemodSensitivityInfo& info() const { return info_; }

 private:
  DemodSensitivityInfo info_;
};

class GetRxSensitiveResponse final : public Frame {
 public:
  GetRxSensitiveResponse(unsigned char checksum, const std::vector<unsigned char>& parameters);
  GetRxSensitiveResponse(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;
  const DemodSensitivityInfo& info() const { return info_; }

 private:
  DemodSensitivityInfo info_;
};

}  // namespace ac::UHF
